// The opcode table's rows and names, and freeing the operands a block's code owns.
#include "vm/instruction.h"

#include <array>

namespace vrk {

namespace {

// The rows in opcode order; the list is written in number order, which the
// assertion below holds it to.
constexpr std::array<vrkop_info, kOpcodeCount> kOpRows = {{
#define VRK_OP_ROW(name, number, effect, arg, ref) {#name, effect, arg, ref},
    VRK_OPCODES(VRK_OP_ROW)
#undef VRK_OP_ROW
}};

constexpr bool rows_in_number_order() {
    int next = 0;
#define VRK_OP_CHECK(name, number, effect, arg, ref) \
    if (number != next++) return false;
    VRK_OPCODES(VRK_OP_CHECK)
#undef VRK_OP_CHECK
    return next == kOpcodeCount;
}
static_assert(rows_in_number_order(), "the opcode table lists every number once, in order");

const vrkop_info kUnknownOp{};

}  // namespace

const vrkop_info& op_info(uint8_t op) { return op < kOpcodeCount ? kOpRows[op] : kUnknownOp; }

const char* load_code_name(int64_t code) {
    switch (code) {
#define VRK_CODE_NAME(name, number, meaning) \
    case number: return #name;
        VRK_LOAD_CODES(VRK_CODE_NAME)
        default: return nullptr;
    }
}

const char* cmp_code_name(int64_t code) {
    switch (code) {
        VRK_CMP_CODES(VRK_CODE_NAME)
#undef VRK_CODE_NAME
        default: return nullptr;
    }
}

void free_code_operands(std::vector<vrkinstr>& code) {
    for (vrkinstr& ins : code) {
        if (ins.ref == 0 || ins.ref == kRefMinusOne) continue;
        if (ins.opcode() == Op::EXTERNAL) {
            delete reinterpret_cast<vrknative*>(ins.ref);
            ins.ref = 0;
        } else if (ins.opcode() == Op::INDEX) {
            delete reinterpret_cast<vrkindex_cache*>(ins.ref);
            ins.ref = 0;
        }
    }
}

}  // namespace vrk
