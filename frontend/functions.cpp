// Function declarations: the words in front of the name, the parameters with
// their types, by-reference marks and defaults, lambdas with their captures,
// the store of the function into its variable, and the two special names
// `onFrame` and `die`.
//
// The body of a function is a child block that the source splitter has made
// already; the declaration finds it through its "##BLK" placeholder, declares
// the parameters as its first variables and leaves the body to be compiled
// with the other children of the block. A function is a value: the statement
// loads the constant cell that stands for the child and stores it into the
// function's variable when it runs, and the compile-time cell already points
// at the body, so that calls compiled earlier in the block reach it.
//
// A default is a run-time statement of the body: `f(a, b = 2)` puts
// `set_internal_param_var(2,b,2);` in front of the body's text, and that
// builtin stores the default when the call passed fewer than two arguments.
// Parameters keep their declaration bits (by reference, fixed type, hints)
// on the function's own cells; a call swaps the argument cells in, and the
// function's cells come back when it returns.
//
// A lambda `[a, b](x) {...}` copies the values of `a` and `b` when the
// declaration runs: each is stored into a hidden "__lambda_store__" variable
// of the function, and the store of the function value into a variable takes
// those into its closure. A call loads the closure into the variables `a` and
// `b` of the block that runs the function.
#include <algorithm>
#include <string>
#include <vector>

#include "base/log.h"
#include "frontend/compiler.h"
#include "frontend/emit.h"
#include "frontend/syntax_error.h"
#include "frontend/text.h"
#include "values/pools.h"
#include "vm/copies.h"
#include "vm/engine.h"

namespace vrk {

namespace {

std::size_t scoped_hit(const std::string& text, char ch) {
    const std::size_t hit = find_scoped(text, ch, 0);
    return hit != npos && hit < text.size() ? hit : npos;
}

// Cuts a trailing "[]" (blanks allowed) off `word`; true when there was one.
bool cut_array_mark(std::string& word) {
    std::string w = word;
    trim_trailing_blanks(w);
    if (w.empty() || w.back() != ']') return false;
    w.pop_back();
    trim_trailing_blanks(w);
    if (w.empty() || w.back() != '[') return false;
    w.pop_back();
    trim_trailing_blanks(w);
    word = w;
    return true;
}

// The type words of a parameter list. "[]", "auto" and a fixed type stay in
// force for every later parameter of the same list.
struct parameter_kind {
    bool array_of = false;  // the parameters hold arrays of their type
    bool scoped = false;    // the parameters are released at the end of each run
    Tag fixed = Tag::VOID;  // INT, FLOAT or STRING: assignment converts; VOID: none
};

// The compile-time type a parameter's cell takes from its type word.
void apply_type_hint(vrkvar* cell, vrkvar* hint, bool array_of) {
    cell->attrs &= static_cast<uint16_t>(~attr::CLASS_HINT2);
    cell->flags &= static_cast<uint16_t>(~(flag::CLASS_HINT | flag::VALUE_HINT | flag::KEEP_HINT));
    if (!hint) return;
    if (array_of || (hint->flags & flag::KEEP_HINT)) cell->flags |= flag::KEEP_HINT;
    if (hint->type == Tag::CLASS || (hint->attrs & attr::CLASS_HINT2)) {
        cell->attrs |= attr::CLASS_HINT2;
        cell->block = hint->block;
    }
    if (hint->type == Tag::JSON || (hint->flags & (flag::STRUCT_VAR | flag::CLASS_HINT))) {
        cell->flags |= flag::CLASS_HINT;
        cell->block = hint->block;
    }
    if (hint->flags & (flag::VALUE_HINT | kNativeValueFlag)) {
        assign(cell, hint);
        cell->flags |= flag::VALUE_HINT;
    }
}

// Parameter `k` (counted from 1) of `fn`, from its text in the list.
void declare_parameter(vrkblock* b, vrkblock* fn, std::string text, int k, parameter_kind& kind) {
    trim_blanks(text);
    bool has_default = false;
    std::string default_text;
    if (const std::size_t eq = scoped_hit(text, '='); eq != npos) {
        has_default = true;
        default_text = text.substr(eq + 1);
        text.resize(eq);
        trim_trailing_blanks(text);
    }

    vrkvar* hint = nullptr;
    if (const std::size_t blank = scoped_hit(text, ' '); blank != npos) {
        std::string word = text.substr(0, blank);
        const std::string rest = text.substr(blank + 1);
        const bool marked = !word.empty() && word.back() == '#';
        if (marked) word.pop_back();
        if (cut_array_mark(word)) kind.array_of = true;
        if (word == "auto") {
            kind.scoped = true;
        } else if (word == "int") {
            kind.fixed = Tag::INT;
        } else if (word == "float") {
            kind.fixed = Tag::FLOAT;
        } else if (word == "string") {
            kind.fixed = Tag::STRING;
        } else {
            hint = resolve_type(b, word);
        }
        text = (marked ? "#" : "") + rest;
    }
    strip_blanks(text);
    bool by_reference = false;
    if (starts_with(text, "#")) {
        by_reference = true;
        text.erase(0, 1);
    }

    const auto index = static_cast<uint32_t>(fn->vars.size());
    fn->get_names()[text] = index;
    vrkvar* cell = cell_new(Tag::VOID);
    fn->vars.push_back(cell);
    if (by_reference) cell->attrs |= attr::BY_REF_PARAM;
    apply_type_hint(cell, hint, kind.array_of);
    if (kind.array_of) cell->flags |= flag::KEEP_HINT;
    if (kind.fixed != Tag::VOID) {
        reset(cell, kind.fixed);
        cell->flags |= flag::FIXED_TYPE;
    }
    if (kind.scoped) {
        cell->attrs |= attr::OWNS_RESULT;
        fn->get_scoped().push_back(index);
    }
    cell->flags |= kParameterFlag;

    if (has_default) {
        if (fn->compiled) log().error("block was compiled before default args could be compiled.");
        if (!fn->code_text || fn->text_shared) {
            fn->code_text = string_new();
            fn->text_shared = 0;
        }
        fn->code_text->insert(0, "set_internal_param_var(" + std::to_string(k) + "," + text + "," +
                                     default_text + ");");
    }
}

// One name of a lambda's capture list: the function gets the variable (marked
// captured) and a hidden store variable, and the declaration copies the
// current value of the name, as this block sees it, into the store.
void declare_capture(vrkblock* b, vrkblock* fn, std::string name) {
    strip_blanks(name);
    if (name.empty()) return;
    const bool is_this = name == "this";
    if (is_this) {
        if (fn->this_index < 0) fn->declare_var("this");
        if (b->this_index < 0) b->declare_var("this");
    }
    fn->declare_var(name)->flags |= flag::CAPTURED;
    const auto target = static_cast<uint32_t>(fn->find_var_index(name));

    const std::string store_name = name + "__lambda_store__";
    vrkvar* store = fn->declare_var(store_name);
    store->flags |= flag::CAPTURED;
    if (is_this) store->flags |= flag::NO_COUNT;
    const auto source = static_cast<int32_t>(fn->find_var_index(store_name));

    emit(b, Op::PUSH, 1, 0);
    compile_text(b, name);
    emit(b, Op::SET, source, ref_of(fn));
    emit(b, Op::POP, 1, 0);
    fn->get_captures().emplace_back(target, source);
}

// Whether the cell is still one of the block's variables.
bool holds_cell(const vrkblock* b, const vrkvar* cell) {
    return std::find(b->vars.begin(), b->vars.end(), cell) != b->vars.end();
}

// The store of the function value, which the declaration left in the top
// slot, into the function's variable.
void store_function(vrkblock* b, const function_head& head) {
    if (head.indexed_name) {
        emit(b, Op::PUSH, 1, 0);
        compile_text(b, head.name);
        emit(b, Op::SET, -1, 0);
        emit(b, Op::RESET, 0, 0);
    } else if (head.reserved_slot) {
        // The reserved slots of a class are no names the search would find:
        // the slot is named by its position.
        emit(b, Op::PUSH, 1, 0);
        emit(b, Op::LOAD, head.index, ref_of(b));
        emit(b, Op::SET, -1, 0);
    } else if (!head.name.empty()) {
        emit(b, Op::PUSH, 1, 0);
        compile_text(b, head.name);
        emit(b, Op::SET, -1, 0);
    } else if (head.index >= 0) {
        // An anonymous function goes into the cell made for it in this block.
        emit(b, Op::SET, head.index, ref_of(b));
    }
}

}  // namespace

void read_function_attributes(vrkblock* b, const std::vector<std::string>& words,
                              function_head& head, const std::string& token) {
    for (std::string word : words) {
        strip_blanks(word);
        if (word.empty()) continue;
        if (word == "global") {
            head.is_global = true;
        } else if (word == "extern") {
            head.is_extern = true;
        } else if (word == "threaded" || word == "threaded_join") {
            // Accepted; script threads are cooperative whatever the function says.
        } else if (word == "parallel") {
            log().error("\"parallel\" is deprecated! %s", token.c_str());
        } else if (word == "recursive") {
            log().error("\"recursive\" is deprecated! %s", token.c_str());
        } else if (word == "locked") {
            head.is_locked = true;
        } else if (!head.has_return_type) {
            head.has_return_type = true;
            if (cut_array_mark(word)) head.returns_array = true;
            head.return_type = resolve_type(b, word);
        }
    }
}

vrkvar* token_function_declaration(vrkblock* b, function_head& head, std::string body,
                                   const std::vector<std::string>& params, bool in_class,
                                   const std::string& token) {
    compile_state& state = *b->compile_state_ptr;

    // The body: its placeholder loads the constant cell of the child.
    if (const std::size_t eq = scoped_hit(body, '='); eq != npos) body = body.substr(eq + 1);
    int32_t child = 0;
    const bool type_here = head.return_type && holds_cell(b, head.return_type);
    compile_token(b, body, false, &child, true);
    // A body that turns out to be no block (a `for` without one behind the
    // function's braces) discards everything this block has compiled, the
    // cells of the head among them: what of the head was in this block is
    // forgotten then, as the call of a function does with its callee's cell.
    if (head.owner == b && head.target &&
        (head.index < 0 || static_cast<uint64_t>(head.index) >= b->vars.size() ||
         b->vars[static_cast<std::size_t>(head.index)] != head.target))
        head.target = nullptr;
    if (type_here && !holds_cell(b, head.return_type)) head.return_type = nullptr;
    if (!b->children || child < 0 || static_cast<std::size_t>(child) >= b->children->size()) {
        syntaxError("internal error", b);
        discard_block(b);
        return nullptr;
    }
    vrkblock* fn = (*b->children)[static_cast<std::size_t>(child)];
    if (head.has_return_type && head.return_type)
        state.return_types[fn] = {head.return_type, head.returns_array};

    vrkvar* target = head.target;
    if (target) {
        if (target->type != Tag::FUNCTION || target->value.closure) reset(target, Tag::FUNCTION);
        if (!target->constant) {
            target->value.i = 0;
            target->aux = static_cast<uint16_t>(params.size());
            target->block = fn;
            target->flags |= flag::DECLARED_FUNCTION;
        }
    }
    if (head.is_locked) fn->options |= kLockedOption;
    if (head.is_extern) {
        if (b->engine) b->engine->extern_blocks[head.name] = fn;
        fn->kind |= kind::EXTERN;
    }
    fn->param_count = static_cast<int16_t>(params.size());
    fn->is_function = 1;

    parameter_kind types;
    for (std::size_t k = 0; k < params.size(); ++k)
        declare_parameter(b, fn, params[k], static_cast<int>(k) + 1, types);

    if (!all_blanks(head.captures)) {
        fn->kind |= kind::LAMBDA;
        for (const std::string& name : split_scoped(head.captures, ','))
            declare_capture(b, fn, name);
    }

    store_function(b, head);

    if (head.name.size() >= 7 && head.name.compare(0, 7, "onFrame") == 0) {
        if (!params.empty()) {
            syntaxError("internal error", b);
            log().log("onFrame callback should not have any arguments.");
        } else if (!in_class && b->engine) {
            b->engine->frame_blocks.push_back(fn);
        }
    } else if (head.name == "die") {
        if (!params.empty()) {
            log().error("die function cannot take arguments.");
            log().error("%s", token.c_str());
        } else if (!in_class) {
            b->get_die_blocks().push_back(fn);
        }
    }
    return target;
}

}  // namespace vrk
