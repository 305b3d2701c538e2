// Appending instructions to a block, with the debug tables of the compile.
#include "frontend/emit.h"

#include "base/context.h"
#include "frontend/compile_state.h"
#include "vm/block.h"

namespace vrk {

namespace {

// Text of the token under compilation, without its leading blanks, for the
// line table; empty when the state has no token list at that index.
std::string current_token_text(const compile_state& state) {
    const std::vector<std::string>* tokens = state.token_list;
    if (!tokens || state.token_index < 0 ||
        static_cast<std::size_t>(state.token_index) >= tokens->size())
        return std::string();
    const std::string& token = (*tokens)[static_cast<std::size_t>(state.token_index)];
    const std::size_t first = token.find_first_not_of(' ');
    return first == std::string::npos ? std::string() : token.substr(first);
}

}  // namespace

void emit(vrkblock* block, Op op, int64_t arg, uint64_t ref) {
    compile_state* state = block->compile_state_ptr;
    if (state && state->dry_run) return;
    // The code vector grows geometrically (a fixed step would make compiling a
    // large block quadratic); its capacity is not visible anywhere.
    const uint32_t index = static_cast<uint32_t>(block->code.size());
    block->code.push_back(vrkinstr{static_cast<uint8_t>(op), ref, arg});

    // Debug tables: one record per token (all instructions of a token extend
    // it), and one per change of the file being compiled.
    if (!state || !context().debug_info || !block->line_table) return;
    auto& lines = *block->line_table;
    const uint32_t token = static_cast<uint32_t>(state->token_index);
    auto it = lines.find(token);
    if (it == lines.end()) {
        vrkline_entry entry;
        entry.first = entry.last = index;
        entry.line = static_cast<uint32_t>(state->line_number);
        entry.text = current_token_text(*state);
        lines.emplace(token, std::move(entry));
    } else {
        it->second.last = index;
    }
    const std::string file = state->file_stack.empty() ? std::string("MEMORY")
                                                       : state->file_stack.back();
    if (!block->file_table) block->file_table = std::make_unique<std::vector<vrkfile_entry>>();
    auto& files = *block->file_table;
    if (files.empty() || files.back().name != file) files.push_back({index, file});
}

}  // namespace vrk
