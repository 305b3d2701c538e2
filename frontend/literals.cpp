// Block references ("##BLKn") and subscript chains (`a[1]["x"]`); list
// literals are not compiled yet.
#include <string>
#include <vector>

#include "frontend/compiler.h"
#include "frontend/text.h"
#include "host/log.h"

namespace vrk {

vrkvar* token_list_literal(vrkblock* b, const std::string& token, std::size_t close) {
    (void)b;
    (void)close;
    log().error("list literals are not supported yet: %s", token.c_str());
    return nullptr;
}

vrkvar* token_block_ref(vrkblock* b, const std::string& token, int32_t* block_index) {
    int32_t number = 0;
    if (!read_decimal(token.size() > kBlockWordLength ? token.substr(kBlockWordLength) : std::string(), number)) {
        syntaxError("internal error", b);
        log().log("compile error stoi! %s", token.c_str());
        return nullptr;
    }
    const std::size_t children = b->children ? b->children->size() : 0;
    if (number < 0 || static_cast<std::size_t>(number) >= children) {
        syntaxError("internal error", b);
        log().log("blocknum compilation error!");
        return nullptr;
    }
    vrkblock* child = (*b->children)[static_cast<std::size_t>(number)];
    auto& names = b->get_names();
    auto entry = names.find(token);
    if (entry == names.end() || entry->second >= b->vars->size()) {
        // The function cell that stands for the child; constant, so a script
        // cannot overwrite its own body.
        const uint32_t index = append_cell(b, Tag::FUNCTION);
        vrkvar* cell = (*b->vars)[index];
        cell->block = child;
        cell->aux = static_cast<uint16_t>(child->param_count);
        cell->constant = 1;
        entry = names.insert_or_assign(token, index).first;
    }
    if (block_index && *block_index == -2) child->is_function = 1;  // a class body
    emit(b, Op::LOAD, entry->second, ref_of(b));
    if (block_index) *block_index = number;
    return (*b->vars)[entry->second];
}

vrkvar* token_index_chain(vrkblock* b, vrkvar* start, std::vector<std::string>& list, bool is_target) {
    compile_state& state = *b->compile_state_ptr;
    vrkvar* c = start ? start : state.call_context;
    state.call_context = nullptr;
    // Subscripts are resolved at run time: each one is a key or a position
    // that INDEX looks up. Members known at compile time (classes, structs,
    // native types) will narrow this to positions.
    (void)c;
    for (std::size_t i = 0; i < list.size(); ++i) {
        std::string& s = list[i];
        strip_blanks(s);
        emit(b, Op::PUSH, 1, 0);
        compile_text(b, s);
        const bool last = i + 1 == list.size();
        emit(b, Op::INDEX, is_target && last ? -1 : 0, 0);
        state.last_type = nullptr;
        state.last_type_name.clear();
    }
    return nullptr;
}

}  // namespace vrk
