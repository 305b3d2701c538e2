// token_call: parentheses, the command form with a call, the dispatch to the
// control statements, and the call of an existing function.
//
// A call `f(a, b)` compiles to: the callee; LOAD 4 (a copy of the function
// cell goes on `callblocks`); CALL_PREP with the argument count (checks the
// callee, makes an instance of a busy one); each argument and its ARG;
// CALL_PREP -1 (start binding); then from the last argument to the first a POP
// and a SET into the callee's parameter (ref -1: the callee's variable pointer is
// swapped for the argument cell); RESET 1; CALL. The arguments are thus bound
// without a copy, and the caller puts the displaced pointers back afterwards.
#include <string>
#include <vector>

#include "frontend/compiler.h"
#include "frontend/text.h"
#include "host/log.h"

namespace vrk {

namespace {

void collapse_double_blanks(std::string& text) {
    std::size_t p = text.find("  ");
    while (p != std::string::npos) {
        text.erase(p, 1);
        p = text.find("  ", p);
    }
}

bool has_scoped(const std::string& text, char ch) {
    const std::size_t hit = find_scoped(text, ch, 0);
    return hit != npos && hit < text.size();
}

// The forms of a call that this compiler does not build yet are reported and
// compile to nothing.
vrkvar* not_supported(const char* what, const std::string& token) {
    log().error("%s are not supported yet: %s", what, token.c_str());
    return nullptr;
}

// `~f(x)` starts `f` on a thread.
bool is_thread_sugar(const std::string& token) {
    const std::size_t tilde = find_scoped(token, '~', 0);
    if (tilde == npos || tilde >= token.size() || has_scoped(token, '=') || has_scoped(token, '{')) return false;
    const std::string rest = token.substr(tilde + 1);
    const std::size_t o = rest.find('(');
    return o != std::string::npos && rest.find('=') == std::string::npos &&
           rest.find(')', o) != std::string::npos;
}

// The functions of a class that live in its reserved slots: the constructor
// (also the class's own name), the destructor (also "~" and the name) and
// the operators.
bool is_reserved_function(vrkblock* b, const std::string& head) {
    for (const char* name : kClassSlotNames)
        if (head == name) return true;
    if (b->class_data && b->class_data->name) {
        const std::string& own = *b->class_data->name;
        if (head == own || head == "~" + own) return true;
    }
    return false;
}

// The call proper: callee, preparation, arguments, binding, CALL, and what
// follows the parenthesis.
vrkvar* emit_call(vrkblock* b, std::string& head, int32_t* block_index, std::string& left,
                  std::vector<std::string> args, vrkvar* target, int64_t index, vrkblock* owner, bool negate,
                  bool by_reference) {
    if (target && target->type == Tag::CLASS && target->block)
        return not_supported("constructor calls", head);
    trim_leading_blanks(left);

    compile_text(b, head, block_index);
    emit(b, Op::LOAD, 4, 0);
    // The count is taken before empty arguments are dropped.
    emit(b, Op::CALL_PREP, static_cast<int64_t>(args.size()), 0);
    for (std::size_t i = 0; i < args.size();) {
        if (args[i].empty()) {
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
        const bool plain_args = target && target->type == Tag::FUNCTION && target->block && target->block->plain_args;
        for (std::size_t i = 0; i < n; ++i) {
            std::string arg = args[i];
            strip_blanks(arg);
            bool by_ref = plain_args;
            if (const std::size_t hash = find_scoped(arg, '#', 0); hash != npos && hash < arg.size()) {
                by_ref = true;
                arg = arg.substr(hash + 1);
            }
            compile_text(b, arg);
            emit(b, Op::ARG, by_ref ? -1 : static_cast<int64_t>(i) + 1, i + 1 < n ? 1 : 0);
        }
        // An argument that could not be compiled may have emptied this block,
        // and the callee's cell with it.
        if (owner == b && (index < 0 || static_cast<uint64_t>(index) >= b->vars->size() ||
                           (*b->vars)[static_cast<std::size_t>(index)] != target))
            target = nullptr;
        emit(b, Op::CALL_PREP, 0, kRefMinusOne);
        for (std::size_t j = n; j-- > 0;) {
            emit(b, Op::POP, 1, j == n - 1 ? 3 : 1);
            emit(b, Op::SET, static_cast<int64_t>(j), kRefMinusOne);
        }
    }
    emit(b, Op::RESET, 1, 0);
    emit(b, Op::CALL, index, ref_of(owner));

    if (has_scoped(left, '.')) return not_supported("calls on the result of a call", left);
    const std::size_t open = find_scoped(left, '[', 0);
    if (!left.empty() && (open == npos || open >= left.size())) {
        syntaxError("internal error", b);
        log().log("junk data after function call %s", left.c_str());
    }
    std::vector<std::string> list;
    if (open != npos && open < left.size() && !collect_subscripts(left, open, list)) {
        syntaxError("json syntax error", b);
        return nullptr;
    }
    if (!list.empty()) token_index_chain(b, target, list, false);
    if (negate) emit(b, Op::NOT, 0, 0);
    if (by_reference) emit(b, Op::MAKE_REF, 0, 0);
    return target;
}

}  // namespace

vrkvar* token_call(vrkblock* b, std::size_t s, bool in_class, std::string& token, std::string& raw_token,
                   int32_t* block_index, std::string& left, std::string& right) {
    std::string head;
    if (token == "else") {
        s = npos;
        head = token;
    } else {
        head = token.substr(0, s);
    }

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
        return not_supported("function declarations with attributes", raw_token);
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
    if (is_statement_head(head)) return token_statement(b, head, in_class, block_index, right, left);

    // Thread sugar and colon calls.
    if (is_thread_sugar(token)) return not_supported("thread calls", raw_token);
    if (const std::size_t colon = find_scoped(token, ':', 0, true);
        colon != npos && colon < token.size() && !has_scoped(left, '='))
        return not_supported("colon calls", raw_token);

    // Prefixes of the name.
    bool negate = false;
    bool by_reference = false;
    if (const std::size_t bang = find_scoped(head, '!', 0); bang != npos && bang < head.size()) {
        negate = true;
        head = head.substr(bang + 1);
    }
    if (const std::size_t hash = find_scoped(token, '#', 0); hash != npos && hash < token.size()) {
        by_reference = true;
        token = token.substr(hash + 1);
        if (const std::size_t h = head.find('#'); h != std::string::npos) head = head.substr(h + 1);
    }
    trim_leading_blanks(head);

    // Members.
    if (needs_this(b, head)) {
        log().warn("added missing 'this' for class function %s", head.c_str());
        head = "this." + head;
    }
    if (has_scoped(head, '.')) return not_supported("member calls", raw_token);
    compile_state& state = *b->compile_state_ptr;
    vrkvar* target = state.call_context;

    // Lambdas and the reserved functions of a class.
    if (!state.call_context && starts_with(head, "[")) return not_supported("lambdas", raw_token);
    if (b->is_class_or_instance() && is_reserved_function(b, head))
        return not_supported("class functions", raw_token);

    // The callee: found, or a function cell that a later declaration
    // in this block fills (a forward call).
    int64_t index = -1;
    vrkblock* owner = nullptr;
    if (!state.call_context) target = find_variable(b, head, &index, &owner);
    if (!target) {
        if (has_scoped(head, '[')) {
            owner = b;
        } else if (!head.empty()) {
            index = append_cell(b, Tag::FUNCTION);
            b->get_names()[head] = static_cast<uint32_t>(index);
            owner = b;
            target = (*b->vars)[static_cast<std::size_t>(index)];
        }
    }

    // A body or a "=" behind the parenthesis makes a declaration.
    const std::vector<std::string> args = split_scoped(right, ',');
    if (has_scoped(left, '=') || has_body) return not_supported("function declarations", raw_token);
    return emit_call(b, head, block_index, left, args, target, index, owner, negate, by_reference);
}

}  // namespace vrk
