// CMP: equality, order and the logical `||` and `&&`.
//
// The left operand was kept by an ARG step ([.. lhs rhs]); both sides are
// always evaluated, there is no short circuit. The slot of `lhs` receives the
// shared true or false constant.
#include <algorithm>
#include <cstring>

#include "values/value_context.h"
#include "vm/errors.h"
#include "vm/ops.h"

namespace vrk {

namespace {

// `||` and `&&` look at floating values when the greater tag of the pair is
// FLOAT, at integer values otherwise.
bool truth(const vrkvar* v, bool floating) {
    return floating ? to_float(v) != 0.0 : to_int(v) != 0;
}

bool test(int64_t code, vrkvar* rhs, vrkvar* lhs) {
    switch (code) {
        case cmp_code::STRICT_EQUAL: return rhs->type == lhs->type && equals(rhs, lhs);
        case cmp_code::EQUAL: return equals(rhs, lhs);
        case cmp_code::NOT_EQUAL: return !equals(rhs, lhs);
        case cmp_code::GREATER_EQUAL:
        case cmp_code::LESS_EQUAL:
        case cmp_code::GREATER:
        case cmp_code::LESS: return order_test(static_cast<int>(code), rhs, lhs);
        case cmp_code::OR:
        case cmp_code::AND: {
            const bool floating = std::max(rhs->type, lhs->type) == Tag::FLOAT;
            const bool r = truth(rhs, floating);
            const bool l = truth(lhs, floating);
            return code == cmp_code::OR ? (r || l) : (r && l);
        }
        default: return false;
    }
}

// Two STRING cells hold the same text (a missing text is the empty one).
[[gnu::always_inline]] inline bool same_text(const vrkvar* a, const vrkvar* b) {
    const std::size_t na = a->value.str ? a->value.str->size() : 0;
    const std::size_t nb = b->value.str ? b->value.str->size() : 0;
    if (na != nb) return false;
    if (na == 0) return true;
    const char* pa = a->value.str->data();
    const char* pb = b->value.str->data();
    return pa[0] == pb[0] && (na == 1 || std::memcmp(pa + 1, pb + 1, na - 1) == 0);
}

}  // namespace

void compare(vrkblock* b, const vrkinstr& ins) {
    if (b->stack.size() < 2) {
        runtime_error("RUNTIME_ERROR", b);
        return;
    }
    vrkvar* rhs = b->stack.back();
    vrkvar* lhs = b->stack[b->stack.size() - 2];
    if (is_marker(rhs) || is_marker(lhs)) {
        report_error(b, "cmp", "invalid value!");
        return;
    }
    const int64_t code = ins.arg;
    bool answer = false;
    if (rhs->type == Tag::STRING && lhs->type == Tag::STRING &&
        (code == cmp_code::EQUAL || code == cmp_code::NOT_EQUAL ||
         code == cmp_code::STRICT_EQUAL) &&
        value_context().data_paths) {
        // Two texts (`s[i] == "b"`): equals' rule for them, in line.
        answer = same_text(rhs, lhs) != (code == cmp_code::NOT_EQUAL);
    } else {
        answer = test(code, rhs, lhs);
    }
    b->stack.pop_back();
    free_temp(b, lhs);
    top_slot(b) = answer ? true_value() : false_value();
}

}  // namespace vrk
