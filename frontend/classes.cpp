// Classes, singletons and structs at compile time: their declarations, the
// compile-time knowledge of their members, and class operators.
//
// `class name = {...}` makes `name` a constant CLASS cell whose block, the
// body, is the class blueprint. The body is compiled at once, behind nine
// reserved variables (constructor, destructor and the operator functions), and
// then run once, so that static initialisers execute while the script is being
// compiled and a class is fully known before the next statement uses it.
// Instances are copies of the blueprint made when the class cell is assigned.
// A `singleton` is the blueprint itself, constructed at its declaration and
// never counted or released.
//
// `struct name = {...}` makes `name` a constant JSON cell laid out by its body:
// the plain variables of the body, in order, are the keyed elements of every
// record copied from it. The body is compiled, never run.
//
// A left operand known to be a class turns `a + b` into the call
// `a.opadd(b)` (likewise `opsub`, `opmult`, `opdiv`): at run time a class
// takes part in no arithmetic of its own.
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "base/log.h"
#include "frontend/compile.h"
#include "frontend/compiler.h"
#include "frontend/text.h"
#include "vm/run.h"

namespace vrk {

namespace {

// The child block a declaration's right side compiled to, or null when the
// right side was no body.
vrkblock* declared_body(vrkblock* b, int32_t child) {
    if (child < 0 || !b->children || static_cast<std::size_t>(child) >= b->children->size())
        return nullptr;
    return (*b->children)[static_cast<std::size_t>(child)];
}

// A cell enters the class's list of cells once: the list is what the class's
// tear-down blanks, and a freed cell takes out only one entry of itself.
void remember_cell(vrkclass_data& data, vrkvar* cell) {
    if (std::find(data.cells.begin(), data.cells.end(), cell) == data.cells.end())
        data.cells.push_back(cell);
}

// Makes `cell` the constant CLASS cell of `cls`, whatever it held.
void make_class_cell(vrkvar* cell, vrkblock* cls) {
    if (cell->type != Tag::CLASS) {
        cell->constant = 0;
        set_type(cell, Tag::CLASS);
    }
    cell->block = cls;
    cell->attrs |= attr::NO_DESTRUCTOR;
    cell->constant = 1;
}

// The singleton is constructed once, with its own cell as `this`.
void construct_singleton(vrkvar* cell, vrkblock* cls) {
    if (cls->vars.empty()) return;
    vrkvar* ctor = cls->vars[static_cast<std::size_t>(ClassSlot::constructor)];
    if (!ctor) return;
    ctor = deref(ctor);
    if (ctor->type != Tag::FUNCTION || !ctor->block) return;
    if (ctor->block->busy()) {
        log().error("singleton constructor is busy and was not run: %s",
                    cls->class_data && cls->class_data->name ? cls->class_data->name->c_str() : "");
        return;
    }
    run(ctor->block, nullptr, 0, cell);
}

bool is_plain_name(const std::string& text) {
    if (text.empty()) return false;
    for (const char c : text) {
        const bool word = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                          (c >= '0' && c <= '9') || c == '_';
        if (!word) return false;
    }
    return !(text[0] >= '0' && text[0] <= '9');
}

}  // namespace

vrkblock* known_class(vrkvar* cell) {
    if (!cell || cell->type == Tag::PTR) return nullptr;
    if (cell->type != Tag::CLASS && !(cell->attrs & attr::CLASS_HINT2)) return nullptr;
    return block_alive(cell->block) ? cell->block : nullptr;
}

vrkvar* enclosing_class_cell(vrkblock* b) {
    vrkblock* cls = nullptr;
    for (vrkblock* p = b; p; p = p->parent) {
        if (p->kind & kind::CLASS) {
            cls = p;
            break;
        }
        if (p->parent == p) break;
    }
    if (!cls) return nullptr;
    // The declaring block holds the class cell; a global class has it in the
    // engine's global block, which the class's own list of cells names.
    if (cls->parent) {
        for (vrkvar* v : cls->parent->vars)
            if (v && v->type == Tag::CLASS && v->block == cls) return v;
    }
    if (cls->class_data) {
        for (vrkvar* v : cls->class_data->cells)
            if (v && v->type == Tag::CLASS && v->block == cls) return v;
    }
    return nullptr;
}

vrkblock* known_struct(vrkvar* cell) {
    if (!cell || cell->type == Tag::PTR || !cell->block) return nullptr;
    if (cell->flags & flag::STRUCT_VAR) return block_alive(cell->block) ? cell->block : nullptr;
    if ((cell->flags & flag::CLASS_HINT) && block_alive(cell->block) &&
        (cell->block->kind & kind::STRUCT))
        return cell->block;
    return nullptr;
}

std::vector<std::pair<std::string, vrkvar*>> struct_layout(vrkblock* layout) {
    std::vector<std::pair<std::string, vrkvar*>> members;
    const std::vector<vrkvar*>& vars = layout->vars;
    for (std::size_t i = 0; i < vars.size(); ++i) {
        vrkvar* v = vars[i];
        // Nested struct declarations, class declarations and constants are no
        // part of a record; this is the rule the copy of a struct follows.
        if (!v || (v->flags & flag::STRUCT_VAR) || (v->attrs & attr::NO_DESTRUCTOR) || v->constant)
            continue;
        members.emplace_back(layout->var_name_at(static_cast<uint32_t>(i)), v);
    }
    return members;
}

vrkvar* layout_member(vrkvar* cell, const std::string& key, int64_t& position) {
    position = -1;
    if (!cell) return nullptr;
    if (vrkblock* layout = known_struct(cell)) {
        const auto members = struct_layout(layout);
        for (std::size_t i = 0; i < members.size(); ++i) {
            if (members[i].first == key) {
                position = static_cast<int64_t>(i);
                return members[i].second;
            }
        }
        return nullptr;
    }
    if (cell->type != Tag::JSON || !cell->value.json) return nullptr;
    const auto& elements = cell->value.json->elements;
    for (std::size_t i = 0; i < elements.size(); ++i) {
        if (elements[i] && elements[i]->key && *elements[i]->key == key) {
            position = static_cast<int64_t>(i);
            return elements[i];
        }
    }
    return nullptr;
}

vrkvar* layout_member_at(vrkvar* cell, int64_t position) {
    if (!cell || position < 0) return nullptr;
    if (vrkblock* layout = known_struct(cell)) {
        const auto members = struct_layout(layout);
        return static_cast<std::size_t>(position) < members.size()
                   ? members[static_cast<std::size_t>(position)].second
                   : nullptr;
    }
    if (cell->type != Tag::JSON || !cell->value.json) return nullptr;
    const auto& elements = cell->value.json->elements;
    return static_cast<std::size_t>(position) < elements.size()
               ? elements[static_cast<std::size_t>(position)]
               : nullptr;
}

vrkblock* declare_class(vrkblock* b, vrkvar* cell, const std::string& name, int32_t child,
                        bool singleton) {
    vrkblock* cls = declared_body(b, child);
    if (!cls) {
        log().error("class %s needs a body: class %s = {...}", name.c_str(), name.c_str());
        return nullptr;
    }
    make_class_cell(cell, cls);
    cls->kind |= kind::CLASS;

    vrkclass_data& data = cls->get_class_data();
    data.refs = 1;
    remember_cell(data, cell);
    data.name = std::make_unique<std::string>(name);

    if (!cls->compiled) {
        // The reserved slots come first, so that every member the body
        // declares has an index of at least nine; then the body is compiled
        // and run once, here, at compile time.
        cls->make_class_slots();
        compile_nested(b, cls);
        run(cls, nullptr, 0, kSelfUnchanged);
    }

    if (singleton) {
        cls->kind |= kind::SINGLETON;
        construct_singleton(cell, cls);
    }
    return cls;
}

void finish_class_declaration(vrkblock* b, vrkvar* cell, vrkblock* cls, const std::string& name) {
    if (!cls) return;
    make_class_cell(cell, cls);
    vrkclass_data& data = cls->get_class_data();
    remember_cell(data, cell);
    data.name = std::make_unique<std::string>(name);
    if (!cls->compiled) {
        log().warn("precompiling class block...");
        compile_nested(b, cls);
    }
}

void declare_struct(vrkblock* b, vrkvar* cell, int32_t child) {
    vrkblock* layout = declared_body(b, child);
    if (!layout) {
        log().error("struct needs a body: struct name = {...}");
        return;
    }
    set_type(cell, Tag::JSON);
    cell->flags |= flag::STRUCT_VAR;
    cell->block = layout;
    if (!layout->compiled) {
        layout->kind |= kind::STRUCT;
        compile_nested(b, layout);
    }
    cell->constant = 1;
}

bool class_operator(vrkblock* b, char op, const std::string& left, const std::string& right,
                    int32_t* block_index, vrkvar*& result) {
    ClassSlot slot = ClassSlot::opadd;
    switch (op) {
        case '+': slot = ClassSlot::opadd; break;
        case '-': slot = ClassSlot::opsub; break;
        case '*': slot = ClassSlot::opmult; break;
        case '/': slot = ClassSlot::opdiv; break;
        default: return false;
    }
    std::string name = left;
    strip_blanks(name);
    // Only a name the compiler can look up here; a bare member name is left
    // to the usual path, which makes it `this.name` first.
    if (!is_plain_name(name) || needs_this(b, name)) return false;
    vrkvar* cell = name == "this" ? enclosing_class_cell(b)
                                  : find_variable(b, name, nullptr, nullptr);
    if (!cell) return false;
    vrkblock* cls = known_class(deref(cell));
    const auto index = static_cast<std::size_t>(slot);
    if (!cls || !cls->is_class_or_instance() || cls->vars.size() <= index) return false;
    const vrkvar* fn = cls->vars[index];
    if (!fn || fn->type != Tag::FUNCTION) return false;
    result = compile_text(b, name + "." + kClassSlotNames[index] + "(" + right + ")", block_index);
    return true;
}

}  // namespace vrk
