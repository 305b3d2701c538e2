// Name resolution: from a name to the (block, index) of its cell, members of
// classes and structs, the implicit `this.` of class members, type words, and
// the compile-time walk that turns a dotted member path into subscripts.
//
// The walk uses what the compiler knows of the cells along the path: a class
// declared before (a CLASS cell, or a variable with a class hint) has its
// members addressed by position, a struct layout its elements by position, and
// anything unknown by its name as a key at run time. So `a.b` is always legal
// text; the knowledge only makes it faster.
#include <string>
#include <vector>

#include "base/log.h"
#include "frontend/compiler.h"
#include "frontend/syntax_error.h"
#include "frontend/text.h"
#include "vm/engine.h"

namespace vrk {

namespace {

// The cell at `index` of the block's table entry for `name`, or null; the
// index is checked against the variables, which a failed body may have freed.
vrkvar* table_hit(vrkblock* b, const std::string& name, int64_t& index) {
    index = b->find_var_index(name);
    if (index < 0) return nullptr;
    if (static_cast<uint64_t>(index) >= b->vars.size()) {
        index = -1;
        return nullptr;
    }
    return b->vars[static_cast<std::size_t>(index)];
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

bool is_quoted(const std::string& text) {
    return text.size() >= 2 && text.front() == '"' && text.back() == '"';
}

void unquote(std::string& text) {
    if (is_quoted(text)) text = text.substr(1, text.size() - 2);
}

// The struct body a `this.` path starts in: the nearest block with the struct
// bit, this block included.
vrkblock* enclosing_struct(vrkblock* b) {
    for (vrkblock* p = b; p; p = p->parent) {
        if (p->kind & kind::STRUCT) return p;
        if (p->parent == p) break;
    }
    return nullptr;
}

// Inside a struct body: the position of member `name` in the record, counting
// the named plain variables before it. -1 when the body has no such name.
int64_t struct_body_position(vrkblock* body, const std::string& name, vrkvar*& member) {
    int64_t m = -1;
    member = table_hit(body, name, m);
    if (!member) return -1;
    int64_t count = 0;
    for (int64_t i = 0; i < m; ++i) {
        const vrkvar* v = body->vars[static_cast<std::size_t>(i)];
        if (!v || (v->flags & flag::STRUCT_VAR) || (v->attrs & attr::NO_DESTRUCTOR) || v->constant)
            continue;
        if (body->var_name_at(static_cast<uint32_t>(i)).empty()) continue;
        ++count;
    }
    return count;
}

// The native type name a compile-time cell with a value hint stands for.
std::string native_type_name(const vrkvar* c, const std::string& fallback) {
    if (c->type == Tag::STRING && c->value.str && !c->value.str->empty()) return *c->value.str;
    if (c->type == Tag::PTR) {
        if (const vrkobject* object = object_of(c)) return object->type_name;
    }
    return fallback;
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
    vrkengine* engine = b->engine;
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

bool find_member(vrkblock* b, vrkblock* cls, const std::string& name, int64_t& index) {
    vrkblock* block = cls ? cls : b;
    index = -1;
    if (!block || name.empty()) return false;
    if (table_hit(block, name, index)) return true;
    // The reserved functions answer to their names even where the table does
    // not list them, as long as the class declares them.
    if (block->is_class_or_instance()) {
        for (uint32_t slot = 0; slot < kClassSlotCount && slot < block->vars.size(); ++slot) {
            const vrkvar* cell = block->vars[slot];
            if (name == kClassSlotNames[slot] && cell && cell->type == Tag::FUNCTION) {
                index = slot;
                return true;
            }
        }
    }
    index = -1;
    return false;
}

const std::pair<vrkvar*, uint8_t>* declared_return_type(vrkblock* b, vrkblock* fn) {
    for (vrkblock* p = b; p; p = p->parent) {
        if (compile_state* state = p->compile_state_ptr) {
            auto it = state->return_types.find(fn);
            if (it != state->return_types.end()) return &it->second;
        }
        if (p->parent == p) break;
    }
    return nullptr;
}

bool find_native_member(const std::string& type_name, const std::string& name, native_member& hit) {
    // The native script types register no member records yet: nothing of
    // theirs is known at compile time, and their members are looked up by
    // name when the script runs.
    (void)type_name;
    (void)name;
    hit = native_member{};
    return false;
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
    vrkvar* c = nullptr;
    if (!pieces.empty()) {
        std::string first = pieces[0];
        strip_blanks(first);
        c = find_variable(b, first, nullptr, nullptr);
    }
    const vrkvar* skipped = nullptr;
    for (std::size_t i = 1; c && i < pieces.size(); ++i) {
        std::string p = pieces[i];
        strip_blanks(p);
        c = deref(c);
        if (c->type == Tag::FUNCTION && c->block) {
            if (const auto* declared = declared_return_type(b, c->block)) {
                c = declared->first;
                if (!c) break;
            }
        }
        if ((c->flags & flag::KEEP_HINT) && c != skipped) {
            // A member of an array type: the piece is the index, the type stays.
            skipped = c;
            log().log("skipping array index.");
            continue;
        }
        if (vrkblock* cls = known_class(c)) {
            int64_t index = -1;
            if (!find_member(b, cls, p, index)) {
                log().error("cannot resolve type: %s", text.c_str());
                return nullptr;
            }
            c = cls->vars[static_cast<std::size_t>(index)];
        } else if (c->type == Tag::JSON || (c->flags & flag::CLASS_HINT)) {
            int64_t position = -1;
            vrkvar* member = layout_member(c, p, position);
            if (!member) {
                log().error("cannot resolve type: %s", text.c_str());
                return nullptr;
            }
            log().log("found struct member %s", p.c_str());
            c = member;
        }
    }
    if (!c) log().error("cannot get type of: %s", text.c_str());
    return c;
}

vrkvar* rewrite_member_path(vrkblock* b, std::string& token) {
    compile_state& state = *b->compile_state_ptr;
    const std::vector<std::string> pieces = split_scoped(token, '.');
    if (pieces.empty()) return nullptr;
    token = pieces[0];
    strip_blanks(token);

    // Where the path starts: the named variable, else the object of a call
    // chain; `this` stands for the class it is written in.
    vrkvar* c = token.empty() ? nullptr : find_variable(b, token, nullptr, nullptr);
    vrkblock* cls = token == "this" ? enclosing_struct(b) : nullptr;
    if (!c) c = state.call_context;
    if (token == "this") {
        if (vrkvar* declared = enclosing_class_cell(b)) c = declared;
    }

    const vrkvar* skipped = nullptr;  // the array-typed cell whose index was just taken
    for (std::size_t i = 1; i < pieces.size(); ++i) {
        std::string p = pieces[i];
        strip_blanks(p);
        bool numeric = false;
        bool array = false;
        bool plain_key = false;

        // A function stands for the type it is declared to return.
        if (c) {
            c = deref(c);
            if (c->type == Tag::FUNCTION && c->block) {
                if (const auto* declared = declared_return_type(b, c->block)) {
                    c = declared->first;
                    array = declared->second != 0;
                }
            }
        }

        if (c && (c->flags & flag::KEEP_HINT) && c != skipped) {
            // An array of a type: this piece indexes the array, the next one
            // meets the element type.
            skipped = c;
            log().log("skipping array index.");
            plain_key = true;
        }

        vrkblock* class_block = (!plain_key && !array) ? known_class(c) : nullptr;
        if (class_block) {
            std::string suffix = cut_suffix(p);
            int64_t index = -1;
            if (find_member(b, class_block, p, index)) {
                token += "[" + std::to_string(index) + "]" + suffix;
                c = nullptr;
                continue;
            }
            p += suffix;
            int64_t oparray = -1;
            const bool is_class = class_block->is_class_or_instance();
            if (!(is_class && find_member(b, class_block, "oparray", oparray))) {
                // Unknown members are reported and then looked up by name at
                // run time all the same.
                std::string previous = pieces[i - 1];
                strip_blanks(previous);
                syntaxError("class error", b);
                if (is_class)
                    log().error("error, variable %s does not have class member %s!",
                                previous.c_str(), p.c_str());
                else
                    log().error("error, variable %s is not a class (%s)!", previous.c_str(),
                                p.c_str());
            }
        } else if (!plain_key && c && (c->type == Tag::JSON || (c->flags & flag::CLASS_HINT))) {
            std::string key = p;
            const std::string suffix = cut_suffix(key);
            int64_t position = -1;
            if (vrkvar* member = layout_member(c, key, position)) {
                log().log("found struct member %s", key.c_str());
                p = std::to_string(position) + suffix;
                numeric = true;
                c = member;
            }
        }

        if (!plain_key && !numeric && !class_block && !cls && c &&
            (c->flags & (flag::VALUE_HINT | kNativeValueFlag))) {
            // A value of a native type: its member records give positions.
            c = deref(c);
            std::string key = p;
            const std::string suffix = cut_suffix(key);
            strip_blanks(key);
            const std::string type = native_type_name(c, state.last_type_name);
            std::string bare = key;
            unquote(bare);
            native_member hit;
            if (find_native_member(type, bare, hit)) {
                state.native_member_seen = 1;
                if (!hit.position.empty())
                    key = hit.position;
                else if (!starts_with(key, "$") && !is_quoted(key))
                    key = "\"" + key + "\"";
                token += "[" + key + "]" + suffix;
                state.last_type = nullptr;
                state.last_type_name = hit.result_type;
                c = nullptr;
                continue;
            }
        }

        if (!plain_key && !numeric && cls) {
            // `this.x` written in a struct body: the member's place in the record.
            vrkvar* member = nullptr;
            std::string key = p;
            const std::string suffix = cut_suffix(key);
            const int64_t position = struct_body_position(cls, key, member);
            if (position >= 0) {
                log().log("found structblk member %s", key.c_str());
                p = std::to_string(position) + suffix;
                numeric = true;
                c = member;
                cls = nullptr;
            }
        }

        state.last_type = c;
        state.last_type_name.clear();
        const std::string suffix = cut_suffix(p);
        unquote(p);
        if (numeric)
            token += "[" + p + "]";
        else if (starts_with(p, "$"))
            token += "[" + p.substr(1) + "]";  // the key is the value of a variable
        else
            token += "[\"" + p + "\"]";
        token += suffix;
        // Behind a key that nothing knew, nothing is known; an array type stays
        // for its element.
        if (!numeric && c != skipped) c = nullptr;
    }
    return c;
}

}  // namespace vrk
