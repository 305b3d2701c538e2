// Name resolution: from a name to the (block, index) of its cell, the implicit
// `this.` of class members, type words, and dotted member paths.
#include <string>
#include <vector>

#include "frontend/compiler.h"
#include "frontend/text.h"
#include "host/engine.h"
#include "host/log.h"

namespace vrk {

namespace {

// The cell at `index` of the block's table entry for `name`, or null; the
// index is checked against the variables, which a failed body may have freed.
vrkvar* table_hit(vrkblock* b, const std::string& name, int64_t& index) {
    index = b->find_var_index(name);
    if (index < 0) return nullptr;
    if (static_cast<uint64_t>(index) >= b->vars->size()) {
        index = -1;
        return nullptr;
    }
    return (*b->vars)[static_cast<std::size_t>(index)];
}

// The nine reserved slots of a class are no names of the language.
bool reserved_slot(const vrkblock* b, int64_t index) {
    return b->is_class_or_instance() && index < static_cast<int64_t>(kClassSlotCount);
}

bool nested_class(const vrkvar* cell) {
    return cell->type == Tag::CLASS && cell->block && (cell->block->kind & kind::CLASS);
}

void set_out(int64_t* index, vrkblock** owner, int64_t i, vrkblock* o) {
    if (index) *index = i;
    if (owner) *owner = o;
}

// Text before the first "." and then before the first "[".
std::string first_name(std::string name) {
    const std::size_t dot = name.find('.');
    if (dot != std::string::npos) name.resize(dot);
    const std::size_t bracket = name.find('[');
    if (bracket != std::string::npos) name.resize(bracket);
    return name;
}

// A bracketed suffix `[...]` of a member piece, cut off and returned.
std::string cut_suffix(std::string& piece) {
    const std::size_t open = find_scoped(piece, '[', 0);
    if (open == npos || open >= piece.size()) return std::string();
    std::string suffix = piece.substr(open);
    piece.resize(open);
    return suffix;
}

}  // namespace

vrkvar* find_variable(vrkblock* b, const std::string& name, int64_t* index, vrkblock** owner) {
    set_out(index, owner, -1, nullptr);
    if (name.empty()) return nullptr;
    int64_t i = -1;
    if (vrkvar* cell = table_hit(b, name, i); cell && !reserved_slot(b, i)) {
        set_out(index, owner, i, b);
        return cell;
    }
    if (name == "this" || name == "self") return nullptr;
    if (vrkvar* cell = find_in_parents(b, name, index, owner)) return cell;
    // The engine's registered functions are found by find_global, in the table
    // of its first block.
    return find_global(b, name, index, owner);
}

vrkvar* find_in_parents(vrkblock* b, const std::string& name, int64_t* index, vrkblock** owner) {
    set_out(index, owner, -1, nullptr);
    const bool self_ref = name == "this" || name == "self";
    if (self_ref && b->is_function) return nullptr;
    for (vrkblock* p = b->parent; p; p = p->parent) {
        int64_t i = -1;
        vrkvar* cell = table_hit(p, name, i);
        if (cell && !reserved_slot(p, i)) {
            set_out(index, owner, i, p);
            if (p->is_class_or_instance() && !nested_class(cell)) {
                syntaxError("did you forget to use 'this' ?", b);
                log().error("static class member %s", name.c_str());
            }
            return cell;
        }
        if (self_ref && p->is_function) return nullptr;
        if (p->parent == p) break;
    }
    return nullptr;
}

vrkvar* find_global(vrkblock* b, const std::string& name, int64_t* index, vrkblock** owner) {
    set_out(index, owner, -1, nullptr);
    vrkscript* engine = b->engine;
    if (!engine) return nullptr;
    int64_t i = -1;
    if (engine->globalBlock) {
        if (vrkvar* cell = table_hit(engine->globalBlock, name, i)) {
            set_out(index, owner, i, engine->globalBlock);
            return cell;
        }
    }
    for (const auto& [cell, cell_name] : engine->namedCells) {
        if (cell_name == name) return cell;  // no address: index -1, no owner
    }
    if (engine->firstBlock) {
        if (vrkvar* cell = table_hit(engine->firstBlock, name, i)) {
            set_out(index, owner, i, engine->firstBlock);
            return cell;
        }
    }
    return nullptr;
}

bool needs_this(vrkblock* b, std::string name) {
    if (starts_with(name, "this")) return false;
    name = first_name(name);
    if (b->is_class_or_instance() || !b->parent) return false;
    // The block's own table is not consulted: a parameter named like a member
    // is taken as the member.
    for (vrkblock* p = b->parent; p; p = p->parent) {
        int64_t i = -1;
        vrkvar* cell = table_hit(p, name, i);
        if (p->is_class_or_instance()) return cell && !nested_class(cell);
        if (cell) return false;
        if (p->parent == p) break;
    }
    return false;
}

vrkvar* resolve_type(vrkblock* b, std::string text) {
    const std::vector<std::string> pieces = split_scoped(text, '.');
    vrkvar* cell = nullptr;
    if (!pieces.empty()) {
        std::string first = pieces[0];
        strip_blanks(first);
        cell = find_variable(b, first, nullptr, nullptr);
    }
    if (cell && pieces.size() > 1) {
        // Types reached through members need class knowledge, which this
        // compiler does not have yet.
        log().error("member types are not supported yet: %s", text.c_str());
        return nullptr;
    }
    if (!cell) log().error("cannot get type of: %s", text.c_str());
    return cell;
}

void rewrite_member_path(vrkblock* b, std::string& token) {
    compile_state& state = *b->compile_state_ptr;
    std::vector<std::string> pieces = split_scoped(token, '.');
    if (pieces.empty()) return;
    token = pieces[0];
    strip_blanks(token);
    // Without type knowledge every member is a key looked up at run time:
    // `a.b` is `a["b"]`, and `a.$k` is `a[k]`.
    for (std::size_t i = 1; i < pieces.size(); ++i) {
        std::string p = pieces[i];
        strip_blanks(p);
        std::string suffix = cut_suffix(p);
        state.last_type = nullptr;
        state.last_type_name.clear();
        if (p.size() >= 2 && p.front() == '"' && p.back() == '"') p = p.substr(1, p.size() - 2);
        if (starts_with(p, "$"))
            token += "[" + p.substr(1) + "]";
        else
            token += "[\"" + p + "\"]";
        token += suffix;
    }
}

}  // namespace vrk
