// A readable listing of a block's code from the opcode table.
#include "vm/dump_code.h"

#include "vm/block.h"
#include "vm/instruction.h"

namespace vrk {

std::string dump_code(const vrkblock* block, const char* separator, const vrkref_namer& namer) {
    std::string out;
    if (!block) return out;
    const uint64_t self = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(block));
    for (const vrkinstr& ins : block->code) {
        if (!out.empty()) out += separator;
        out += op_info(ins.op).name;
        out += " " + std::to_string(ins.arg);
        if (namer) {
            std::string named;
            if (namer(ins.ref, named)) {
                if (!named.empty()) out += " " + named;
                continue;
            }
        }
        if (ins.ref == 0) continue;
        if (ins.ref == self) {
            out += " B";
        } else if (ins.ref == kRefMinusOne) {
            out += " -1";
        } else if (ins.ref < kFirstBlockRef) {
            out += " " + std::to_string(ins.ref);
        } else {
            out += " blk";
        }
    }
    return out;
}

}  // namespace vrk
