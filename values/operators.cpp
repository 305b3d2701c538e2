// The binary operators + - * / ^: choice of the rule by the pair of tags, the
// scalar rules (integer, floating, text), native object operators and the
// reports for pairs that have no meaning.
//
// Containers have their own file (operators_container.cpp); the order tests
// live in compare.cpp.
#include "values/operators.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string>

#include "values/cell.h"
#include "values/error_report.h"
#include "values/object.h"

namespace vrk {

namespace {

// What decides an operation: the "high" tag of the pair.
enum class Route : uint8_t {
    integer,    // both INT
    floating,   // FLOAT with INT or FLOAT
    text,       // STRING: concatenation for +, a report for the others
    invalid,    // tags without arithmetic: a report
    object,     // PTR: the native object's operator
    container,  // JSON, DATA and the sets
};

// Route by high tag, indexed by tag number.
constexpr std::array<Route, 16> kRouteByTag = {
    Route::integer,    // INT
    Route::floating,   // FLOAT
    Route::text,       // STRING
    Route::invalid,    // FUNCTION
    Route::invalid,    // CLASS
    Route::invalid,    // EXT
    Route::invalid,    // VOID
    Route::object,     // PTR
    Route::invalid,    // REF
    Route::container,  // JSON
    Route::container,  // DATA
    Route::container,  // FLOATSET
    Route::container,  // DOUBLESET
    Route::container,  // INTSET
    Route::container,  // BIGINTSET
    Route::invalid,    // ERR
};

// Report of a pair without arithmetic, by operator (add, sub, mult, div, exp).
constexpr std::array<const char*, 5> kInvalidReport = {
    "ADD_ERROR", "SUB_INVALID_TYPE", "MULT_INVALID_TYPE", "DIV_INVALID_TYPE", "EXP_INVALID_TYPE",
};

// Native object operators: tried first on a PTR lhs, then on the rhs object
// with the lhs as the other operand. Only the reverse subtraction is called
// without the running block.
using ObjectSlot = bool (vrkobject::*)(vrkblock*, vrkvar*, vrkvar*);
struct ObjectRoute {
    ObjectSlot on_lhs;    // object is the left operand
    ObjectSlot on_rhs;    // object is the right operand
    bool rhs_gets_block;  // the second call receives the running block
};
constexpr std::array<ObjectRoute, 5> kObjectRoutes = {{
    {&vrkobject::add, &vrkobject::add, true},
    {&vrkobject::sub, &vrkobject::sub_reverse, false},
    {&vrkobject::mult, &vrkobject::mult, true},
    {&vrkobject::div, &vrkobject::div_reverse, true},
    {&vrkobject::exp, &vrkobject::exp, true},
}};

constexpr std::size_t index_of(BinOp op) { return static_cast<std::size_t>(op); }

Route route_of(Tag high) {
    const auto t = static_cast<std::size_t>(high);
    return t < kRouteByTag.size() ? kRouteByTag[t] : Route::invalid;
}

// Text of lhs followed by text of rhs. The result cell is reset to STRING and
// the two texts are appended to it; when it is one of the operands the text is
// built first, since the reset would empty it before it is read. A left
// operand that expires with the operation hands its text over instead of
// having it copied, when that is the same as appending it: the result is empty
// (a constant result keeps its text, the reset does not touch it), and the
// emptied result buffer goes to the operand in exchange.
void concatenate(vrkvar* lhs, vrkvar* rhs, vrkvar* res, bool lhs_expires) {
    if (res != lhs && res != rhs) {
        reset(res, Tag::STRING);
        if (res->is(Tag::STRING) && res->value.str) {
            if (lhs_expires && lhs != rhs && lhs->is(Tag::STRING) && lhs->value.str &&
                res->value.str->empty()) {
                res->value.str->swap(*lhs->value.str);
            } else {
                append_string(lhs, *res->value.str);
            }
            append_string(rhs, *res->value.str);
            return;
        }
    }
    // Aliased operand, or a cell that refused the reset (set_string reports it).
    std::string text;
    append_string(lhs, text);
    append_string(rhs, text);
    set_string(res, text);
}

void object_op(vrkblock* block, BinOp op, vrkvar* lhs, vrkvar* rhs, vrkvar* res) {
    const ObjectRoute& route = kObjectRoutes[index_of(op)];
    if (vrkobject* obj = object_of(lhs)) {
        if ((obj->*route.on_lhs)(block, rhs, res)) return;
    }
    if (vrkobject* obj = object_of(rhs)) {
        (obj->*route.on_rhs)(route.rhs_gets_block ? block : nullptr, lhs, res);
        return;
    }
    set_int(res, 0);
}

}  // namespace

int64_t pow_to_int(double x) {
    // [-2^63, 2^63) converts exactly by truncation; NaN fails both tests.
    constexpr double kLimit = 9223372036854775808.0;
    if (!(x >= -kLimit && x < kLimit)) return INT64_MIN;
    return static_cast<int64_t>(x);
}

int64_t int_arith(BinOp op, int64_t a, int64_t b) {
    // Going through uint64_t keeps overflow defined: the conversion back to
    // int64_t is modular.
    const auto ua = static_cast<uint64_t>(a);
    const auto ub = static_cast<uint64_t>(b);
    switch (op) {
        case BinOp::add: return static_cast<int64_t>(ua + ub);
        case BinOp::sub: return static_cast<int64_t>(ua - ub);
        case BinOp::mult: return static_cast<int64_t>(ua * ub);
        case BinOp::div:
            if (b == 0) return 0;
            if (b == -1) return static_cast<int64_t>(uint64_t{0} - ua);  // INT64_MIN stays
            return a / b;
        case BinOp::exp:
            return pow_to_int(std::pow(static_cast<double>(a), static_cast<double>(b)));
    }
    return 0;
}

double float_arith(BinOp op, double a, double b) {
    switch (op) {
        case BinOp::add: return a + b;
        case BinOp::sub: return a - b;
        case BinOp::mult: return a * b;
        case BinOp::div: return b == 0.0 ? 0.0 : a / b;
        case BinOp::exp: return std::pow(a, b);
    }
    return 0.0;
}

void binary_op(vrkblock* block, BinOp op, vrkvar* lhs, vrkvar* rhs, vrkvar** res_slot,
               bool lhs_expires) {
    if (op == BinOp::div && (is_marker(lhs) || is_marker(rhs))) {
        report_error(block, "div", "division error");
        return;
    }
    // Null operands and result slots are the run loop's to report.
    if (is_marker(lhs) || is_marker(rhs) || !res_slot || is_marker(*res_slot)) return;
    vrkvar* res = *res_slot;

    Tag high = std::max(lhs->type, rhs->type);
    if (op == BinOp::add && (lhs->is(Tag::STRING) || rhs->is(Tag::STRING))) high = Tag::STRING;

    switch (route_of(high)) {
        case Route::integer: set_int(res, int_arith(op, lhs->value.i, rhs->value.i)); return;
        case Route::floating: set_float(res, float_arith(op, to_float(lhs), to_float(rhs))); return;
        case Route::text:
            if (op == BinOp::add) {
                concatenate(lhs, rhs, res, lhs_expires);
                return;
            }
            break;
        case Route::invalid: break;
        case Route::object: object_op(block, op, lhs, rhs, res); return;
        case Route::container: container_op(block, op, lhs, rhs, res_slot); return;
    }
    runtime_error(kInvalidReport[index_of(op)], block);
}

}  // namespace vrk
