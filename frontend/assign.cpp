// token_assign: the plain "=" — declarations with their words, stores into
// variables, elements and dereferenced targets, the type hint a new variable
// takes from its right side, and the start of class, singleton and struct
// declarations (classes.cpp does the rest).
#include <string>
#include <vector>

#include "base/context.h"
#include "base/log.h"
#include "frontend/compile.h"
#include "frontend/compile_context.h"
#include "frontend/compiler.h"
#include "frontend/emit.h"
#include "frontend/syntax_error.h"
#include "frontend/text.h"
#include "platform/system.h"
#include "vm/engine.h"

namespace vrk {

namespace {

// What the words in front of the declared name asked for.
struct declaration_kind {
    bool is_global = false;
    bool is_class = false;
    bool is_singleton = false;
    bool is_struct = false;
    bool new_variable = false;
    bool is_scoped = false;
    bool array_of = false;
    int fixed_type = 0;  // 1 INT, 2 FLOAT, 3 STRING
    vrkvar* type_hint = nullptr;
};

// A trailing "[]" (blanks allowed between) marks an array of the type.
bool cut_array_mark(std::string& word) {
    std::string w = word;
    trim_trailing_blanks(w);
    if (w.size() < 2 || w.compare(w.size() - 2, 2, "[]") != 0) return false;
    w.resize(w.size() - 2);
    trim_trailing_blanks(w);
    word = w;
    return true;
}

void apply_word(vrkblock* b, std::string word, declaration_kind& d) {
    if (cut_array_mark(word)) d.array_of = true;
    trim_blanks(word);
    if (word.empty()) return;
    if (word == "global") {
        d.is_global = d.new_variable = true;
    } else if (word == "class") {
        d.is_class = d.new_variable = true;
    } else if (word == "singleton") {
        d.is_class = d.is_singleton = d.new_variable = true;
    } else if (word == "struct") {
        d.is_struct = d.new_variable = true;
    } else if (word == "var") {
        d.new_variable = true;
    } else if (word == "auto" || word == "scoped") {
        d.is_scoped = true;
    } else if (word == "int") {
        d.fixed_type = 1;
    } else if (word == "float") {
        d.fixed_type = 2;
    } else if (word == "string") {
        d.fixed_type = 3;
    } else if (!d.type_hint) {
        d.type_hint = resolve_type(b, word);
    }
}

Tag fixed_tag(int fixed_type) {
    switch (fixed_type) {
        case 2: return Tag::FLOAT;
        case 3: return Tag::STRING;
        default: return Tag::INT;
    }
}

// `list:: = a, b` calls each piece on every element of the list; `obj: = a, b`
// (also `obj := a, b`) calls each piece on the object.
vrkvar* member_list(vrkblock* b, std::string& left, std::string& right, int32_t* block_index) {
    left.pop_back();
    if (!left.empty() && left.back() == ':') {
        left.pop_back();
        trim_blanks(left);
        uint32_t& counter = compile_context().array_loop_counter;
        const std::string name = "ITERATIVE_ARRAY_LOOPER_" + std::to_string(counter) + "I";
        ++counter;
        std::string body;
        for (std::string piece : split_scoped(right, ',')) {
            trim_leading_blanks(piece);
            body += name + "." + piece + ";";
        }
        const std::string head = "for(" + name + "::" + left + "){";
        return compile_text(b, head + add_text_block(b, body) + "}", block_index);
    }
    trim_blanks(left);
    vrkvar* result = nullptr;
    for (std::string piece : split_scoped(right, ',')) {
        trim_leading_blanks(piece);
        result = compile_text(b, left + "." + piece);
    }
    return result;
}

// The compile-time type a new variable takes from its right side.
void apply_hint(vrkvar* cell, vrkvar* hint, const declaration_kind& d,
                const std::string& last_type_name, const std::string& hint_name) {
    cell->attrs &= static_cast<uint16_t>(~attr::CLASS_HINT2);
    cell->flags &= static_cast<uint16_t>(~(flag::CLASS_HINT | flag::VALUE_HINT | flag::KEEP_HINT));
    if (!hint) {
        // The native type the right side gave, by its name.
        const std::string& type = last_type_name.empty() ? hint_name : last_type_name;
        if (!type.empty()) {
            set_string(cell, type);
            cell->flags |= flag::VALUE_HINT;
        }
        return;
    }
    if (d.array_of || (hint->flags & flag::KEEP_HINT)) cell->flags |= flag::KEEP_HINT;
    if (hint->type == Tag::CLASS || (hint->attrs & attr::CLASS_HINT2)) {
        cell->attrs |= attr::CLASS_HINT2;
        cell->block = hint->block;
    }
    if (hint->type == Tag::JSON || (hint->flags & (flag::STRUCT_VAR | flag::CLASS_HINT))) {
        // The cell keeps the struct block its records are laid out by: that
        // of a struct itself, or the one a struct-typed hint carries (a plain
        // container has none).
        cell->flags |= flag::CLASS_HINT;
        cell->block = hint->block;
    }
    if (hint->flags & (flag::VALUE_HINT | kNativeValueFlag)) {
        if (!hint_name.empty())
            set_string(cell, hint_name);
        else
            assign(cell, hint);
        cell->flags |= flag::VALUE_HINT;
    }
}

// The declaration of a new variable, cell `i` of `owner`: its store, its
// release at the end of the block, class and struct declarations, and the
// type knowledge and fixed type it takes.
vrkvar* declare_new(vrkblock* b, const declaration_kind& d, const std::string& left,
                    const std::string& raw_token, int32_t child, vrkvar* hint,
                    const std::string& last_type_name, const std::string& hint_name,
                    vrkblock* owner, uint32_t i, int deref_count) {
    vrkvar* cell = owner->vars[i];

    // The store, and the release at the end of the block for scoped ones.
    // A class or struct declaration stores nothing at run time.
    if (!d.is_class && !d.is_struct) emit(b, Op::SET, i, ref_of(owner));
    if (!d.is_global && d.is_scoped) {
        cell->attrs |= attr::OWNS_RESULT;
        owner->get_scoped().push_back(i);
    }

    vrkblock* cls = nullptr;
    if (d.is_class)
        cls = declare_class(b, cell, left, child, d.is_singleton);
    else if (d.is_struct)
        declare_struct(b, cell, child);

    // A new variable has nothing to dereference.
    if (deref_count > 0) {
        syntaxError("internal error", b);
        log().log("syntax error. cant deref new value!");
        log().log("%s", raw_token.c_str());
    }

    // Type knowledge; a class cell stays the class it declares.
    apply_hint(cell, hint, d, last_type_name, hint_name);
    if (cls) finish_class_declaration(b, cell, cls, left);
    if (d.fixed_type) {
        set_type(cell, fixed_tag(d.fixed_type));
        cell->flags |= flag::FIXED_TYPE;
    }
    return nullptr;
}

// A new global: created in the engine's global block when it does not exist.
vrkvar* global_target(vrkblock* b, const std::string& name, int64_t& index, vrkblock*& owner,
                      bool& created) {
    created = false;
    vrkvar* cell = find_global(b, name, &index, &owner);
    if (cell || !b->engine || !b->engine->globalBlock) return cell;
    vrkblock* globals = b->engine->globalBlock;
    globals->get_names()[name] = append_cell(globals);
    cell = find_global(b, name, &index, &owner);
    created = cell != nullptr;
    return cell;
}

}  // namespace

vrkvar* token_assign(vrkblock* b, std::string& token, std::string& raw_token, int32_t* block_index,
                     std::string& left, std::string& right) {
    (void)token;
    compile_state& state = *b->compile_state_ptr;

    // Member lists.
    if (!left.empty() && left.back() == ':') return member_list(b, left, right, block_index);

    // Declaration words, cut off the front one by one.
    declaration_kind d;
    for (std::size_t p = find_scoped(left, ' ', 0); p != npos && p < left.size();
         p = find_scoped(left, ' ', 0)) {
        apply_word(b, left.substr(0, p), d);
        left.erase(0, p + 1);
    }
    strip_blanks(left);

    // A singleton is declared once.
    if (d.is_singleton && d.is_global) {
        if (vrkvar* existing = find_global(b, left, nullptr, nullptr)) {
            log().warn("not overriding already declared singleton %s", left.c_str());
            return existing;
        }
    }

    // The right side, and the type knowledge it gives.
    int32_t child = -2;
    trim_blanks(right);
    state.last_type_name.clear();
    state.last_type = nullptr;
    bool static_buffer = false;
    int32_t size = 0;
    std::string hint_name;
    std::string native_type;  // type name a native constructor on the right side makes
    vrkvar* hint = d.type_hint;
    if (starts_with(right, "staticbuffer(")) {
        static_buffer = true;
        const std::size_t close = right.find(')');
        const std::string digits = right.substr(
            13, close == std::string::npos ? std::string::npos : close - 13);
        if (!read_decimal(digits, size)) size = 0;
        log().log("allocating static buffer of size %i", size);
    } else if (right == "null") {
        emit(b, Op::LOAD, load_code::ERASE, 0);
    } else {
        vrkvar* result = compile_token(b, right, d.is_class, &child, false);
        if (!hint) hint = result ? result : state.last_type;
        state.last_type = nullptr;
        if (hint) hint = deref(hint);
        if (hint && hint->type == Tag::FUNCTION && hint->block) {
            auto declared = state.return_types.find(hint->block);
            if (declared != state.return_types.end()) {
                d.array_of = declared->second.second != 0;
                hint = declared->second.first;
            } else if (b->engine) {
                // A native constructor: the variable holds a value of the
                // native type it names.
                auto made = b->engine->constructors.find(hint);
                if (made != b->engine->constructors.end() && made->second) {
                    native_type = to_string(made->second);
                    hint = nullptr;
                }
            }
        }
        hint_name = state.last_type_name;
        if (!native_type.empty()) hint_name = native_type;
    }

    // Prefixes of the target.
    strip_blanks(left);
    bool by_reference = false;
    if (starts_with(left, "#")) {
        by_reference = true;
        left.erase(0, 1);
    }
    int deref_count = 0;
    while (starts_with(left, "$")) {
        ++deref_count;
        left.erase(0, 1);
    }
    strip_blanks(left);

    // Members.
    if (needs_this(b, left)) {
        log().warn("added missing 'this' to token %s", left.c_str());
        left = "this." + left;
    }
    if (find_scoped(left, '.', 0) != npos) rewrite_member_path(b, left);

    // A subscripted target: the element is selected, then stored into.
    const std::size_t n = find_scoped(left, '[', 0);
    if (n != npos && !static_buffer) {
        emit(b, Op::PUSH, 0, 0);
        const std::string name = left.substr(0, n);
        std::vector<std::string> list;
        if (!collect_subscripts(left, n, list)) {
            syntaxError("json error", b);
            log().error("json syntax error!\n%s", left.c_str());
            return nullptr;
        }
        vrkvar* target = compile_text(b, name);
        if (!list.empty()) token_index_chain(b, target, list, true);
        if (deref_count > 0) {
            for (int i = 0; i < deref_count; ++i) emit(b, Op::SET_DEREF, i == 0 ? -2 : 0, 0);
        } else {
            emit(b, Op::SET, -2, 0);
        }
        if (by_reference) emit(b, Op::MAKE_REF, 0, 0);
        emit(b, Op::RESET, 0, 0);
        return nullptr;
    }

    // The target: an existing variable, a global, or a new one.
    int64_t index = -1;
    vrkblock* owner = nullptr;
    vrkvar* cell = nullptr;
    bool new_global = false;  // the declaration has just created this global
    if (!d.new_variable || ((d.is_class || d.is_struct) && !d.is_global)) {
        // A class or struct is always new, but declaring one over a name that
        // exists is worth the warning below.
        cell = find_variable(b, left, &index, &owner);
    } else if (d.is_global) {
        cell = global_target(b, left, index, owner, new_global);
        // The engine keeps no table of global declarations' texts yet.
    }
    if (cell && (!owner || index < 0)) {
        log().error("%s cannot be stored to here", left.c_str());
        return nullptr;
    }

    // A typed, class or struct declaration of a global that did not exist
    // before declares that global itself.
    if (new_global && (d.fixed_type || d.is_class || d.is_struct))
        return declare_new(b, d, left, raw_token, child, hint, state.last_type_name, hint_name,
                           owner, static_cast<uint32_t>(index), deref_count);

    // Store into an existing variable; a typed declaration makes a new one.
    if (cell && (d.fixed_type || d.is_class || d.is_struct)) {
        log().warn(
            "warning: new variable (%s) declared but this name already exists. creating new var...",
            left.c_str());
        cell = nullptr;
    }
    if (cell) {
        if (static_buffer && size > 0) {
            set_type(cell, Tag::DATA);
            if (std::vector<uint8_t>* data = as_data(cell))
                data->resize(static_cast<std::size_t>(size));
            cell->flags |= flag::STATIC_BUFFER;
            return nullptr;
        }
        if (deref_count > 0) {
            for (int i = 0; i < deref_count; ++i) emit(b, Op::SET_DEREF, index, ref_of(owner));
        } else {
            emit(b, Op::SET, index, ref_of(owner));
        }
        if (by_reference) emit(b, Op::MAKE_REF, 0, 0);
        return nullptr;
    }

    // A new variable of this block.
    const uint32_t i = static_cast<uint32_t>(b->vars.size());
    b->get_names()[left] = i;
    append_cell(b);
    cell = b->vars[i];
    if (left == "this") {
        if (b->this_index < 0) {
            b->this_index = static_cast<int32_t>(i);
            set_type(cell, Tag::REF);
            cell->flags |= flag::NO_COUNT;
        } else {
            platform::write_stdout("this double set\n", 16);
        }
    } else if (left == "self") {
        if (b->self_index < 0) {
            b->self_index = static_cast<int32_t>(i);
            cell->flags |= flag::NO_COUNT;
        } else {
            platform::write_stdout("self double set\n", 16);
        }
    }

    // A static buffer is sized now; nothing is stored at run time.
    if (static_buffer && size >= 1) {
        set_type(cell, Tag::DATA);
        if (std::vector<uint8_t>* data = as_data(cell))
            data->resize(static_cast<std::size_t>(size));
        cell->flags |= flag::STATIC_BUFFER;
        return nullptr;
    }

    return declare_new(b, d, left, raw_token, child, hint, state.last_type_name, hint_name, b, i,
                       deref_count);
}

}  // namespace vrk
