// The instruction record and the opcode table of the stack machine.
//
// A block's code is a flat vector of fixed-size records. A slot of the value
// stack holds a pointer to a cell, never a value: loading a variable pushes the
// variable's own cell so the next instruction can read it or write through it.
// There is no constant pool: constants are hidden variables of the block, marked
// `constant`, loaded like any variable.
//
// The opcode numbers are written into compiled programs: they never move. Any
// number without a case (44 and up, and the never-emitted aliases) acts as LOAD.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace vrk {

struct vrkvar;
struct vrkblock;

// The opcode table: name, number, what the instruction does, what its `arg`
// and its `ref` mean. Everything that names an opcode (the enum below, the run
// loop's switch, `dump_code`, the tests) is generated from or checked against
// this one list.
#define VRK_OPCODES(X)                                                                             \
    X(SET, 0, "checked store", "variable index", "block of the variable")                          \
    X(SET_DEREF, 1, "store through a REF destination", "variable index", "block of the variable")  \
    X(MAKE_REF, 2, "wrap top in a REF", "variable index", "block of the variable")                 \
    X(DEREF, 3, "top := target of a REF top", "-", "-")                                            \
    X(LOAD_ALIAS, 4, "never emitted; acts as LOAD", "variable index", "block of the variable")     \
    X(ADD_TMP, 5, "left operand step of +", "-", "-")                                              \
    X(ADD, 6, "+", "-", "-")                                                                       \
    X(INC, 7, "in place +1", "-", "-")                                                             \
    X(SUB_TMP, 8, "left operand step of -", "-", "-")                                              \
    X(SUB, 9, "-", "-", "-")                                                                       \
    X(DEC, 10, "in place -1", "-", "-")                                                            \
    X(MULT_TMP, 11, "left operand step of *", "-", "-")                                            \
    X(MULT, 12, "*", "-", "-")                                                                     \
    X(DIV_TMP, 13, "left operand step of /", "-", "-")                                             \
    X(DIV, 14, "/", "-", "-")                                                                      \
    X(EXP_TMP, 15, "left operand step of ^", "-", "-")                                             \
    X(EXP, 16, "^", "-", "-")                                                                      \
    X(CALL, 17, "call the prepared function", "argument count", "calling block")                   \
    X(CALL_PREP, 18, "check the callee / start binding", "argument count", "calling block")        \
    X(RUN_CHILD, 19, "run a nested block in line", "child index", "block")                         \
    X(EXTERNAL, 20, "a native block's only instruction", "parameter count", "owned vrknative")     \
    X(TMP, 21, "plain operand step; emitted by no front end path", "-", "-")                       \
    X(PUSH, 22, "push slots / copy top into a movable temp", "slot count", "mode")                 \
    X(ARG, 23, "wrap top as an argument", "-", "mode")                                             \
    X(POP, 24, "pop slots in one of four modes", "slot count", "mode")                             \
    X(FREE_TOP, 25, "free the temp in top", "-", "-")                                              \
    X(JMP, 26, "relative jump", "distance", "-")                                                   \
    X(JMP_FALSE, 27, "jump if top is false", "distance", "-")                                      \
    X(JMP_FALSE_LOOP, 28, "loop exit test", "distance", "-")                                       \
    X(NOP, 29, "nothing", "-", "-")                                                                \
    X(LOAD_ALIAS2, 30, "never emitted; acts as LOAD", "variable index", "block of the variable")   \
    X(LOAD, 31, "load a variable, or a sub-code", "variable index, or a load_code", "block, or 0") \
    X(BREAK, 32, "break / continue", "0 break, 1 continue", "-")                                   \
    X(CMP, 33, "comparison", "a cmp_code", "block")                                                \
    X(INDEX, 34, "subscript", "mode", "owned vrkindex_cache")                                      \
    X(SWAP, 35, "swap two slots", "distance", "-")                                                 \
    X(BIT_TMP, 36, "left operand step of bit operators", "-", "-")                                 \
    X(BIT_OR, 37, "|", "-", "-")                                                                   \
    X(BIT_XOR, 38, "bitwise exclusive or", "-", "-")                                               \
    X(BIT_AND, 39, "&", "-", "-")                                                                  \
    X(NOT, 40, "logical not", "-", "-")                                                            \
    X(INVERT, 41, "bitwise not", "-", "-")                                                         \
    X(RESET, 42, "clear pending index / pop object stack", "mode", "-")                            \
    X(CLASS_ACCESS, 43, "member by index", "variable index", "-")

// Sub-codes of LOAD with a `ref` of 0 (any other `arg` loads variable `arg`).
#define VRK_LOAD_CODES(X)                                                  \
    X(ERASE, -2, "the void constant")                                      \
    X(RETURN, -1, "return: the run ends with the top slot")                \
    X(TRUE, 1, "the shared true constant")                                 \
    X(FALSE, 2, "the shared false constant")                               \
    X(UNDEFINED, 3, "an empty slot (undefined)")                           \
    X(CALL_START, 4, "put a temp copy of the function cell on callblocks") \
    X(SCRATCH, 5, "the block's scratch cell")                              \
    X(CLEAR_JSON, 6, "empty the JSON in the top slot")                     \
    X(NONE, 7, "the shared none constant")                                 \
    X(HAND_OVER, 8, "mark a list literal's list as taken by its next store")

// Sub-codes of CMP: the test applied to the kept left value and the top.
#define VRK_CMP_CODES(X)                      \
    X(STRICT_EQUAL, -1, "same tag and equal") \
    X(EQUAL, 0, "==")                         \
    X(NOT_EQUAL, 1, "!=")                     \
    X(GREATER_EQUAL, 2, ">=")                 \
    X(LESS_EQUAL, 3, "<=")                    \
    X(GREATER, 4, ">")                        \
    X(LESS, 5, "<")                           \
    X(OR, 6, "||")                            \
    X(AND, 7, "&&")

enum class Op : uint8_t {
#define VRK_OP_ENUM(name, number, effect, arg, ref) name = number,
    VRK_OPCODES(VRK_OP_ENUM)
#undef VRK_OP_ENUM
};
inline constexpr int kOpcodeCount = 44;

// Named sub-codes of LOAD (`load_code::RETURN`, ...) and of CMP (`cmp_code::LESS`, ...).
namespace load_code {
#define VRK_CODE_CONST(name, number, meaning) inline constexpr int64_t name = number;
VRK_LOAD_CODES(VRK_CODE_CONST)
}  // namespace load_code
namespace cmp_code {
VRK_CMP_CODES(VRK_CODE_CONST)
#undef VRK_CODE_CONST
}  // namespace cmp_code

// One row of the opcode table.
struct vrkop_info {
    const char* name = "?";   // the opcode's name
    const char* effect = "";  // what the instruction does
    const char* arg = "-";    // meaning of `arg`
    const char* ref = "-";    // meaning of `ref`
};

// The row of an opcode number; numbers without a row (44 and up) get a row
// named "?" (they act as LOAD).
const vrkop_info& op_info(uint8_t op);
// Name of a LOAD / CMP sub-code, or null for a number that has none.
const char* load_code_name(int64_t code);
const char* cmp_code_name(int64_t code);

// One instruction: `op`, `ref` and `arg` are what the saved form holds (made
// in that order); `shape` is the run loop's own note, kept in the record's
// padding and never saved.
struct vrkinstr {
    uint8_t op = 0;             // opcode (Op)
    mutable uint8_t shape = 0;  // fused sequence starting here, 0 until the run loop looks
    uint64_t ref = 0;  // a vrkblock*, a small mode number, all ones (-1), or an owned operand
    int64_t arg = 0;   // variable index, count, relative distance or sub-code

    vrkinstr() = default;
    constexpr vrkinstr(uint8_t o, uint64_t r, int64_t a) : op(o), ref(r), arg(a) {}

    Op opcode() const { return static_cast<Op>(op); }
    vrkblock* ref_block() const { return reinterpret_cast<vrkblock*>(ref); }
    int64_t ref_signed() const { return static_cast<int64_t>(ref); }
};
static_assert(sizeof(vrkinstr) == 24, "the shape note lives in the padding after the opcode");

// `ref` value meaning -1.
inline constexpr uint64_t kRefMinusOne = ~uint64_t{0};

// A `ref` from 0 to 100 is a number (a mode, a count); from here on it is a
// block, unless it is all ones.
inline constexpr uint64_t kFirstBlockRef = 101;

// Signature of a builtin: the calling block, the arguments, the registration's
// user value, the result cell to fill. Returns the result cell, or null/1 for
// "no value".
using vrkbuiltin_fn = std::function<vrkvar*(vrkblock*, std::vector<vrkvar*>&, void*, vrkvar&)>;

// Operand of EXTERNAL: what a native block calls.
struct vrknative {
    vrkbuiltin_fn fn;         // the callable
    void* user = nullptr;     // user value handed to every call
    bool deref_args = false;  // arguments are replaced by the end of their REF chains
};

// Look-up cache of INDEX on class members and native object members (operand of op 34).
struct vrkindex_cache {
    const std::string* key_ptr = nullptr;  // text pointer of the key last looked up
    std::string key;                       // its text
    vrkblock* block = nullptr;             // block it was found in
    const void* object = nullptr;          // member table of a native type it was found in
    uint32_t index = 0;                    // variable index found
};

// Frees the owned operands of a block's code (native records, look-up caches).
void free_code_operands(std::vector<vrkinstr>& code);

}  // namespace vrk
