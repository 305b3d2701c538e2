// Control statements: `if` with its inline and following `else` branches,
// `else if`, and the `while` and `for` loops (counted, and over a collection by
// rewriting into a counted loop).
//
// A body is a child block run in line by RUN_CHILD. Conditionals jump over it
// with JMP_FALSE, and every branch of an if/else chain ends with a JMP that is
// patched to leave the chain. A loop tests with JMP_FALSE_LOOP, which also
// leaves on `break`, and jumps back to its test after the step.
#include <algorithm>
#include <string>
#include <vector>

#include "base/context.h"
#include "base/log.h"
#include "frontend/compile_context.h"
#include "frontend/compiler.h"
#include "frontend/emit.h"
#include "frontend/syntax_error.h"
#include "frontend/text.h"
#include "values/pools.h"

namespace vrk {

namespace {

int64_t non_negative(int64_t v) { return std::max<int64_t>(v, 0); }

// Sets the distance of the jump at `at`, unless a dry run emitted nothing.
void patch(vrkblock* b, std::size_t at, int64_t distance) {
    if (b->compile_state_ptr->dry_run || at >= b->code.size()) return;
    b->code[at].arg = distance;
}

bool starts_else_branch(const std::string& entry) {
    const std::size_t w = leading_blanks(entry);
    return entry.compare(w, 5, "else ") == 0 || entry.compare(w, 5, "else\n") == 0 ||
           entry.compare(w, 5, "else{") == 0 || entry.compare(w, 5, "else(") == 0;
}

// `else` statements that follow the `if` as tokens of their own (past markers
// and empty tokens) belong to it; they are taken out of the token list.
std::vector<std::string> take_following_else(compile_state& state) {
    std::vector<std::string> branches;
    if (!state.token_list || state.token_index < 0) return branches;
    std::vector<std::string>& list = *state.token_list;
    for (std::size_t i = static_cast<std::size_t>(state.token_index) + 1; i < list.size(); ++i) {
        std::string& entry = list[i];
        if (starts_with(entry, "##") || all_blanks(entry)) continue;
        if (!starts_else_branch(entry)) break;
        branches.push_back(entry);
        entry.clear();
    }
    return branches;
}

// `else` branches written in the same token as the `if`; `body` keeps what
// stands before the first of them.
std::vector<std::string> cut_inline_else(std::string& body) {
    std::vector<std::string> branches;
    const std::size_t e = find_scoped_text(body, "else", 0);
    if (e == npos || e >= body.size()) return branches;
    std::string tail = body.substr(e);
    body.resize(e);
    while (tail.size() > 4) {
        const std::size_t p = find_scoped_text(tail, "else", 4);
        if (p == npos || p >= tail.size()) break;
        branches.push_back(tail.substr(0, p));
        tail.erase(0, p);
    }
    branches.push_back(tail);
    return branches;
}

// The whole chain: the `if` and then each branch; each branch's final JMP is
// patched to land behind the last one.
void compile_chain(vrkblock* b, const std::string& condition, const std::string& body,
                   const std::vector<std::string>& branches) {
    compile_text(b, "if(" + condition + ")" + body);
    std::vector<std::size_t> ends{b->code.size()};
    for (const std::string& branch : branches) {
        compile_text(b, branch);
        ends.push_back(b->code.size());
    }
    const std::size_t end = b->code.size();
    for (const std::size_t r : ends) {
        if (r >= 1)
            patch(b, r - 1, non_negative(static_cast<int64_t>(end) - static_cast<int64_t>(r)));
    }
}

// condition; JMP_FALSE; body; RUN_CHILD; JMP — the shape of `if` and `else if`.
void conditional_body(vrkblock* b, const std::string& condition, const std::string& body) {
    compile_text(b, condition);
    emit(b, Op::JMP_FALSE, 0, ref_of(b));
    const std::size_t f = b->code.size();
    int32_t index = 0;
    compile_text(b, body, &index);
    emit(b, Op::RUN_CHILD, index, ref_of(b));
    emit(b, Op::JMP, 0, ref_of(b));
    if (f >= 1)
        patch(b, f - 1,
              non_negative(static_cast<int64_t>(b->code.size()) - static_cast<int64_t>(f) - 1));
}

vrkvar* statement_if(vrkblock* b, const std::string& condition, std::string body) {
    compile_state& state = *b->compile_state_ptr;
    const std::vector<std::string> next_else = take_following_else(state);
    std::vector<std::string> inline_else = cut_inline_else(body);
    if (!inline_else.empty()) {
        inline_else.insert(inline_else.begin(), next_else.begin(), next_else.end());
        compile_chain(b, condition, body, inline_else);
    } else if (next_else.empty()) {
        conditional_body(b, condition, body);
    }
    // With both inline and following branches the chain is compiled twice.
    if (!next_else.empty()) compile_chain(b, condition, body, next_else);
    return nullptr;
}

// The loop body: compiled for its child index only (the LOAD of its function
// cell is taken back). False when it is no child block, which discards all the
// block has compiled.
bool loop_body(vrkblock* b, const std::string& body, int32_t& index) {
    index = -1;
    const std::size_t before = b->code.size();
    compile_text(b, body, &index);
    if (b->code.size() > before) {
        std::vector<vrkinstr> added(b->code.begin() + static_cast<std::ptrdiff_t>(before),
                                    b->code.end());
        free_code_operands(added);
        b->code.resize(before);
    }
    if (index < 0 || !b->children || static_cast<std::size_t>(index) >= b->children->size()) {
        syntaxError("internal error", b);
        discard_block(b);
        return false;
    }
    return true;
}

void prepend_text(std::string*& slot, uint8_t& shared, const std::string& text) {
    if (!slot || shared) {
        std::string* own = string_new();
        if (slot) *own = *slot;
        slot = own;
        shared = 0;
    }
    slot->insert(0, text);
}

// `for(x::coll)` and `for(x,i::coll)`: the body starts by taking element `i`
// of the collection into `x`, and the loop counts `i` up to the size.
// False when the form is incomplete and the counted loop takes over.
bool collection_loop(vrkblock* b, bool in_class, int32_t* block_index, const std::string& test,
                     const std::string& body, vrkvar*& result) {
    result = nullptr;
    const std::size_t colons = find_scoped_text(test, "::", 0);
    std::string x = test.substr(0, colons);
    std::string coll = test.substr(colons + 2);
    uint32_t& counter = compile_context().iterative_loop_counter;
    std::string iter;
    if (const std::size_t comma = find_scoped(x, ',', 0); comma != npos && comma < x.size()) {
        const std::vector<std::string> pieces = split_scoped(x, ',');
        x = pieces.empty() ? std::string() : pieces[0];
        iter = pieces.size() > 1 ? pieces[1] : std::string();
    } else {
        iter = "ITERATIVE_LOOPER_" + std::to_string(counter) + "I";
    }
    strip_blanks(coll);
    if (x.empty() || coll.empty()) return false;
    ++counter;

    bool by_reference = false;
    if (const std::size_t hash = find_scoped(x, '#', 0); hash != npos && hash < x.size()) {
        x.erase(hash, 1);
        by_reference = true;
    }

    int32_t index = -1;
    if (!loop_body(b, body, index)) return true;
    vrkblock* child = (*b->children)[static_cast<std::size_t>(index)];
    if (child->compiled) {
        syntaxError("already precompiled!", b);
    } else {
        const std::string fetch = x + (by_reference ? "=#" : "=") + coll + "[" + iter + "];";
        prepend_text(child->full_source, child->source_shared, fetch);
        prepend_text(child->code_text, child->text_shared, fetch);
    }
    const std::string counted = "for(" + iter + "=0;" + iter + "<" + coll + ":count();" + iter +
                                "++)" + body;
    result = compile_token(b, counted, in_class, block_index, false);
    return true;
}

vrkvar* statement_loop(vrkblock* b, bool is_for, bool in_class, int32_t* block_index,
                       std::string condition, std::string body) {
    trim_blanks(condition);
    trim_blanks(body);

    std::string init;
    std::string test;
    std::string step;
    bool collection_allowed = true;
    const std::size_t first = find_scoped(condition, ';', 0);
    if (first == npos || first >= condition.size()) {
        test = condition;
    } else {
        const std::size_t second = first + 1 <= condition.size()
                                       ? find_scoped(condition, ';', first + 1)
                                       : npos;
        if (second == npos || second >= condition.size()) {
            test = condition.substr(first + 1);
            if (is_for) {
                syntaxError("syntax error in for loop", b);
                init = condition.substr(0, first);
                collection_allowed = false;
            }
        } else {
            init = condition.substr(0, first);
            test = condition.substr(first + 1, second - first - 1);
            step = condition.substr(second + 1);
        }
    }

    if (collection_allowed && test.size() >= 3 && find_scoped_text(test, "::", 0) != npos) {
        vrkvar* result = nullptr;
        if (collection_loop(b, in_class, block_index, test, body, result)) return result;
    }

    compile_text(b, init);
    const std::size_t top = b->code.size();
    compile_text(b, test);
    const std::size_t t = b->code.size();
    emit(b, Op::JMP_FALSE_LOOP, 0, ref_of(b));

    int32_t index = -1;
    if (!loop_body(b, body, index)) return nullptr;
    (*b->children)[static_cast<std::size_t>(index)]->is_loop_body = 1;
    emit(b, Op::RUN_CHILD, index, ref_of(b));

    compile_text(b, step);
    emit(b, Op::JMP, static_cast<int64_t>(top) - static_cast<int64_t>(b->code.size()) - 1,
         ref_of(b));
    patch(b, t, static_cast<int64_t>(b->code.size()) - 1 - static_cast<int64_t>(t));
    emit(b, Op::NOP, 0, ref_of(b));
    return nullptr;
}

}  // namespace

bool is_statement_head(const std::string& head) {
    return head == "while" || head == "for" || head == "if" || head == "else" || head == "else if";
}

vrkvar* token_statement(vrkblock* b, const std::string& head, bool in_class, int32_t* block_index,
                        std::string& condition, std::string& body) {
    if (head == "if") return statement_if(b, condition, body);
    if (head == "else" || head == "else if") {
        // `else(c){...}` means the same as `else if(c){...}`.
        conditional_body(b, condition, body);
        return nullptr;
    }
    return statement_loop(b, head == "for", in_class, block_index, condition, body);
}

}  // namespace vrk
