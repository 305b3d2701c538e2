// token_call: every statement whose first structural character is "(" and that
// is no control statement. One shape serves for a call and a declaration; what
// follows the closing parenthesis tells them apart.
//
// On the way to the call proper the token passes a few text rewrites:
// parentheses around an expression, the command form with a call in it, the
// thread sugar `~f(x)` (a call of the builtin `thread`), and the colon call
// `a:f(b)`, which is `f(a,b)`. Then the callee is searched: a member path, a
// lambda's capture list, a reserved function of a class, a known name, or a
// new function cell that a later declaration in the block fills, which is how
// a call may stand before the function it calls.
//
// A call `f(a, b)` compiles to: the callee; LOAD 4 (a copy of the function
// cell goes on `callblocks`); CALL_PREP with the argument count (checks the
// callee, makes an instance of a busy one); each argument and its ARG;
// CALL_PREP -1 (start binding); then from the last argument to the first a POP
// and a SET into the callee's parameter (ref -1: the callee's variable pointer is
// swapped for the argument cell); RESET 1; CALL. The arguments are thus bound
// without a copy, and the caller puts the displaced pointers back afterwards.
// What stands behind the parenthesis is applied to the result: subscripts, or
// a chain of member calls `f().g().h()`.
#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "base/log.h"
#include "frontend/compiler.h"
#include "frontend/emit.h"
#include "frontend/syntax_error.h"
#include "frontend/text.h"
#include "vm/engine.h"
#include "vm/globals.h"

namespace vrk {

namespace {

void collapse_double_blanks(std::string& text) {
    std::size_t p = text.find("  ");
    while (p != std::string::npos) {
        text.erase(p, 1);
        p = text.find("  ", p);
    }
}

std::size_t scoped_hit(const std::string& text, char ch, bool last = false) {
    const std::size_t hit = find_scoped(text, ch, 0, last);
    return hit != npos && hit < text.size() ? hit : npos;
}

bool has_scoped(const std::string& text, char ch) { return scoped_hit(text, ch) != npos; }

// `~f(x)` starts `f` as a script thread: the statement becomes a call of the
// builtin `thread`, or of `thread_class` with the object for a member
// function. Nothing when the token is no such statement.
std::optional<std::string> thread_sugar(const std::string& token) {
    const std::size_t tilde = scoped_hit(token, '~');
    if (tilde == npos || has_scoped(token, '=') || has_scoped(token, '{')) return std::nullopt;
    const std::string rest = token.substr(tilde + 1);
    const std::size_t o = rest.find('(');
    if (o == std::string::npos || rest.find('=') != std::string::npos) return std::nullopt;
    std::size_t c = find_closing(rest, '(', ')', o + 1);
    if (c == npos) c = rest.rfind(')');
    if (c == std::string::npos || c < o) return std::nullopt;
    const std::string args = rest.substr(o + 1, c - o - 1);
    std::string name = rest.substr(0, o);
    trim_blanks(name);
    const std::string tail = all_blanks(args) ? std::string() : "," + args;
    if (has_scoped(name, '.') || has_scoped(name, '[')) {
        // The object is the path up to where its last member or subscript
        // begins: `o.f` runs on `o`, `a[1].f` on `a[1]`, `a.b["f"]` on `a.b`.
        const std::size_t dot = name.rfind('.');
        const std::size_t bracket = name.rfind('[');
        std::size_t cut = dot == std::string::npos       ? bracket
                          : bracket == std::string::npos ? dot
                                                         : std::max(dot, bracket);
        return "thread_class(" + name + "," + name.substr(0, cut) + tail + ")";
    }
    return "thread(" + name + tail + ")";
}

// `a:f(b)` is `f(a,b)`, and `list:count()` is `count(list)`; a "!" in front
// negates the result. False when the token is no colon call.
bool colon_call(vrkblock* b, const std::string& token, const std::string& left,
                int32_t* block_index, vrkvar*& result) {
    if (scoped_hit(token, ':', true) == npos || has_scoped(left, '=')) return false;
    std::string text = token;
    bool negate = false;
    if (const std::size_t bang = scoped_hit(text, '!'); bang != npos) {
        negate = true;
        text = text.substr(bang + 1);
        trim_leading_blanks(text);
    }
    const std::size_t colon = scoped_hit(text, ':', true);
    if (colon == npos) return false;
    const std::string receiver = text.substr(0, colon);
    std::string call = text.substr(colon + 1);
    if (const std::size_t o = scoped_hit(call, '('); o != npos) {
        const std::size_t c = find_closing(call, '(', ')', o + 1);
        std::string inside = call.substr(o + 1, c == npos ? std::string::npos : c - o - 1);
        strip_blanks(inside);
        call.insert(o + 1, inside.empty() ? receiver : receiver + ",");
    }
    result = compile_token(b, call, false, block_index, false);
    if (negate) emit(b, Op::NOT, 0, 0);
    return true;
}

// The reserved slot a function name stands for in a class block, or -1: the
// constructor (also the class's own name), the destructor (also "~" and the
// name) and the operators.
int32_t reserved_slot_of(vrkblock* b, const std::string& head) {
    for (uint32_t slot = 0; slot < kClassSlotCount; ++slot)
        if (head == kClassSlotNames[slot]) return static_cast<int32_t>(slot);
    if (b->class_data && b->class_data->name) {
        const std::string& own = *b->class_data->name;
        if (head == own) return static_cast<int32_t>(ClassSlot::constructor);
        if (head == "~" + own) return static_cast<int32_t>(ClassSlot::destructor);
    }
    return -1;
}

// Construction through a class name: the arguments go straight into the
// constructor's parameters, and the class cell is the value; the assignment
// that receives it makes the instance.
bool constructor_call(vrkblock* b, const std::string& head, bool in_class, int32_t* block_index,
                      const std::vector<std::string>& args, vrkvar* target, vrkvar*& result) {
    if (!target || target->type != Tag::CLASS || !target->block || target->block->vars.empty())
        return false;
    vrkvar* ctor = target->block->vars[static_cast<std::size_t>(ClassSlot::constructor)];
    if (!ctor) return false;
    ctor = deref(ctor);
    if (ctor->type != Tag::FUNCTION || !ctor->block) {
        // A class without a constructor is made with empty parentheses just
        // as by its name; handing it arguments stays a call of nothing.
        if (!std::all_of(args.begin(), args.end(),
                         [](const std::string& a) { return all_blanks(a); }))
            return false;
        result = compile_token(b, head, in_class, block_index, false);
        return true;
    }
    const std::size_t n = std::min(
        static_cast<std::size_t>(std::max<int16_t>(ctor->block->param_count, 0)), args.size());
    for (std::size_t i = 0; i < n; ++i) {
        compile_token(b, args[i], false, nullptr, false);
        emit(b, Op::SET, static_cast<int64_t>(i), ref_of(ctor->block));
    }
    result = compile_token(b, head, in_class, block_index, false);
    return true;
}

// What stands behind the closing parenthesis of a call: subscripts of the
// result, or a chain of member calls on it.
vrkvar* after_call(vrkblock* b, std::string& left, vrkvar* target, bool negate, bool by_reference) {
    compile_state& state = *b->compile_state_ptr;
    if (has_scoped(left, '.')) {
        // Each further member applies to the value in the top slot; the call's
        // cell is the type knowledge it starts from. Without any, a known
        // placeholder still says "there is an object", so that the member is
        // taken as a member and not as a name of this block.
        const std::vector<std::string> pieces = split_scoped(left, '.');
        vrkvar* result = nullptr;
        for (std::size_t i = 1; i < pieces.size(); ++i) {
            std::string piece = pieces[i];
            strip_blanks(piece);
            state.call_context = target ? target : void_value();
            result = compile_text(b, "." + piece);
        }
        state.call_context = nullptr;
        return result;
    }
    const std::size_t open = scoped_hit(left, '[');
    if (!left.empty() && open == npos) {
        syntaxError("internal error", b);
        log().log("junk data after function call %s", left.c_str());
    }
    std::vector<std::string> list;
    if (open != npos && !collect_subscripts(left, open, list)) {
        syntaxError("json syntax error", b);
        return nullptr;
    }
    if (!list.empty()) token_index_chain(b, target, list, false);
    if (negate) emit(b, Op::NOT, 0, 0);
    if (by_reference) emit(b, Op::MAKE_REF, 0, 0);
    return target;
}

// The call proper: callee, preparation, arguments, binding, CALL, and what
// follows the parenthesis.
vrkvar* emit_call(vrkblock* b, std::string& head, bool in_class, int32_t* block_index,
                  std::string& left, std::vector<std::string> args, function_head& callee,
                  bool negate, bool by_reference) {
    compile_state& state = *b->compile_state_ptr;
    vrkvar* target = callee.target;
    if (vrkvar* result = nullptr;
        constructor_call(b, head, in_class, block_index, args, target, result))
        return result;
    trim_leading_blanks(left);

    // A member called on the value of a previous call: the value is in the top
    // slot, the member name is looked up in it. The context is used up here, so
    // that the calls among the arguments are plain calls again.
    const bool on_result = state.call_context != nullptr;
    state.call_context = nullptr;
    if (on_result) {
        if (head.size() >= 2 && head.front() == '[' && head.back() == ']')
            head = head.substr(1, head.size() - 2);
        emit(b, Op::PUSH, 1, 0);
    }
    compile_text(b, head, block_index);
    if (on_result) emit(b, Op::INDEX, 0, 0);
    emit(b, Op::LOAD, load_code::CALL_START, 0);
    // The count is taken before empty arguments are dropped.
    emit(b, Op::CALL_PREP, static_cast<int64_t>(args.size()), 0);
    for (std::size_t i = 0; i < args.size();) {
        if (all_blanks(args[i])) {
            log().error("empty argument passed?? %s : %s : %s", head.c_str(), "", args[i].c_str());
            args.erase(args.begin() + static_cast<std::ptrdiff_t>(i));
        } else {
            ++i;
        }
    }
    if (b->params.capacity() < args.size()) b->params.reserve(args.size());

    const std::size_t n = args.size();
    if (n == 0) {
        emit(b, Op::CALL_PREP, 0, kRefMinusOne);
    } else {
        const bool plain_args = target && target->type == Tag::FUNCTION && target->block &&
                                target->block->plain_args;
        for (std::size_t i = 0; i < n; ++i) {
            std::string arg = args[i];
            strip_blanks(arg);
            bool by_ref = plain_args;
            if (const std::size_t hash = scoped_hit(arg, '#'); hash != npos) {
                by_ref = true;
                arg = arg.substr(hash + 1);
            }
            compile_text(b, arg);
            emit(b, Op::ARG, by_ref ? -1 : static_cast<int64_t>(i) + 1, i + 1 < n ? 1 : 0);
        }
        // An argument that could not be compiled may have emptied this block,
        // and the callee's cell with it.
        if (callee.owner == b &&
            (callee.index < 0 || static_cast<uint64_t>(callee.index) >= b->vars.size() ||
             b->vars[static_cast<std::size_t>(callee.index)] != target))
            target = nullptr;
        emit(b, Op::CALL_PREP, 0, kRefMinusOne);
        for (std::size_t j = n; j-- > 0;) {
            emit(b, Op::POP, 1, j == n - 1 ? 3 : 1);
            emit(b, Op::SET, static_cast<int64_t>(j), kRefMinusOne);
        }
    }
    emit(b, Op::RESET, 1, 0);
    emit(b, Op::CALL, callee.index, ref_of(callee.owner));
    return after_call(b, left, target, negate, by_reference);
}

}  // namespace

vrkvar* token_call(vrkblock* b, std::size_t s, bool in_class, std::string& token,
                   std::string& raw_token, int32_t* block_index, std::string& left,
                   std::string& right) {
    compile_state& state = *b->compile_state_ptr;
    std::string head = token == "else" ? token : token.substr(0, s);
    function_head callee;

    // A head of several words: the command form, or a declaration with
    // attribute words. `else if` is a statement head of two words.
    collapse_double_blanks(head);
    trim_blanks(head);
    if (head != "else if" && has_scoped(head, ' ')) {
        if (!has_scoped(token, '{')) {
            std::string command = token;
            collapse_double_blanks(command);
            trim_blanks(command);
            const std::size_t w = command.find(' ');
            if (w == std::string::npos) return nullptr;
            return compile_token(b, command.substr(0, w) + "(" + command.substr(w) + ")", in_class,
                                 block_index, false);
        }
        std::vector<std::string> words = split_scoped(head, ' ');
        head = words.empty() ? std::string() : words.back();
        if (!words.empty()) words.pop_back();
        read_function_attributes(b, words, callee, token);
        strip_blanks(head);
    }

    // A parenthesis: what stands behind it is compiled first.
    const bool has_body = has_scoped(token, '{');
    if (head.empty() && !has_body) {
        const std::size_t c = find_closing(right, '(', ')', 0);
        std::string behind = c == npos ? std::string() : right.substr(c + 1);
        std::string inside = c == npos ? right : right.substr(0, c);
        compile_text(b, behind, block_index);
        compile_text(b, inside, block_index);
        return nullptr;
    }

    // Arguments and what follows them; control statements.
    {
        const std::size_t c = find_closing(right, '(', ')', 0);
        left = c == npos ? std::string() : right.substr(c + 1);
        if (c != npos) right.resize(c);
        trim_trailing_blanks(left);
    }
    if (is_statement_head(head))
        return token_statement(b, head, in_class, block_index, right, left);

    // Text rewrites: the thread sugar and the colon call.
    if (std::optional<std::string> text = thread_sugar(token))
        return compile_token(b, *text, false, block_index, false);
    if (vrkvar* result = nullptr; colon_call(b, token, left, block_index, result)) return result;

    // Prefixes of the name.
    bool negate = false;
    bool by_reference = false;
    if (const std::size_t bang = scoped_hit(head, '!'); bang != npos) {
        negate = true;
        head = head.substr(bang + 1);
    }
    if (const std::size_t hash = scoped_hit(token, '#'); hash != npos) {
        by_reference = true;
        token = token.substr(hash + 1);
        if (const std::size_t h = head.find('#'); h != std::string::npos) head = head.substr(h + 1);
    }
    trim_leading_blanks(head);

    // The callee.
    if (needs_this(b, head)) {
        log().warn("added missing 'this' for class function %s", head.c_str());
        head = "this." + head;
    }
    callee.target = state.call_context;
    if (has_scoped(head, '.')) {
        vrkvar* reached = rewrite_member_path(b, head);
        callee.target = reached ? reached : state.call_context;
    }
    if (!state.call_context && starts_with(head, "[")) {
        // A lambda: `[a, b](x) {...}`. The list names what it captures.
        const std::string behind = head.substr(1);
        const std::size_t c = find_closing(behind, '[', ']', 0);
        if (c == npos) {
            syntaxError("syntax error", b);
            log().log("%s", token.c_str());
            return nullptr;
        }
        callee.captures = behind.substr(0, c);
        head.clear();
    }
    const int32_t slot = b->is_class_or_instance() ? reserved_slot_of(b, head) : -1;
    if (slot >= 0 && static_cast<std::size_t>(slot) < b->vars.size()) {
        vrkvar* cell = b->vars[static_cast<std::size_t>(slot)];
        if (cell->type != Tag::FUNCTION) reset(cell, Tag::FUNCTION);
        b->get_names()[head] = static_cast<uint32_t>(slot);
        callee.target = cell;
        callee.index = slot;
        callee.owner = b;
        callee.reserved_slot = true;
    } else if (!callee.is_global && !state.call_context) {
        callee.target = find_variable(b, head, &callee.index, &callee.owner);
    }
    if (!callee.target) {
        if (callee.captures.empty() && has_scoped(head, '[')) {
            callee.indexed_name = true;
            callee.owner = b;
        } else if (!callee.is_global) {
            // A new function cell, named unless the function is anonymous.
            const uint32_t index = append_cell(b, Tag::FUNCTION);
            if (!head.empty()) b->get_names()[head] = index;
            callee.index = index;
            callee.owner = b;
            callee.target = b->vars[index];
        } else if (b->engine && !head.empty()) {
            // The engine keeps no table of the declarations' source texts.
            callee.target = declare_global(b->engine, head);
            callee.owner = b->engine->globalBlock;
            callee.index = callee.owner ? callee.owner->find_var_index(head) : -1;
        }
    }
    callee.name = head;

    // A body or a "=" behind the parenthesis makes a declaration.
    const std::vector<std::string> args = split_scoped(right, ',');
    if (has_scoped(left, '=') || has_body)
        return token_function_declaration(b, callee, left, args, in_class, raw_token);
    return emit_call(b, head, in_class, block_index, left, args, callee, negate, by_reference);
}

}  // namespace vrk
