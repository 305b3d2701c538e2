// Appending instructions to a block, and freeing the operands code owns.
#include "vm/instruction.h"

#include "frontend/compile_state.h"
#include "host/context.h"
#include "vm/block.h"

namespace vrk {

void emit(vrkblock* block, Op op, int64_t arg, uint64_t ref) {
    compile_state* state = block->compile_state_ptr;
    if (state && state->emission_off) return;
    if (block->code.size() == block->code.capacity()) block->code.reserve(block->code.size() + 10);
    uint32_t index = static_cast<uint32_t>(block->code.size());
    block->code.push_back(vrkinstr{static_cast<uint8_t>(op), ref, arg});

    // Debug tables: one entry per source line, one per change of file.
    if (!state || !context().debug_info || !block->line_table) return;
    auto& lines = *block->line_table;
    auto it = lines.find(static_cast<uint32_t>(state->line_index));
    if (it == lines.end()) {
        vrkline_entry entry;
        entry.first = entry.last = index;
        entry.line = static_cast<uint32_t>(state->line);
        entry.text = state->line_text;
        lines.emplace(static_cast<uint32_t>(state->line_index), std::move(entry));
    } else {
        it->second.last = index;
    }
    const std::string& file = state->file_stack.empty() ? std::string() : state->file_stack.back();
    if (!block->file_table) block->file_table = std::make_unique<std::vector<vrkfile_entry>>();
    auto& files = *block->file_table;
    if (files.empty() || files.back().name != file) files.push_back({index, file});
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
