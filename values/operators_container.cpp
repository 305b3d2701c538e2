// Arithmetic on containers: JSON values, DATA buffers and the four number sets.
//
// With a scalar (INT or FLOAT, on either side) the result is a copy of the
// container with the scalar applied to every element, the element always on the
// left: `2 - v` is `v - 2`. With a container of the same tag the result is a copy
// of the left one, combined element by element (or, for JSON and +, extended by
// the right one's elements). Every other pairing is reported and gives the void
// constant.
#include <array>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <vector>

#include "base/log.h"
#include "values/cell.h"
#include "values/error_report.h"
#include "values/json.h"
#include "values/operators.h"

namespace vrk {

namespace {

// Report of a container paired with something it cannot combine with, by
// operator (add, sub, mult, div, exp).
constexpr std::array<const char*, 5> kMismatchReport = {
    "JSON_ADD_ERROR", "JSON_SUB", "MULT_INVALID_TYPE", "DIV_INVALID_TYPE", "EXP_INVALID_TYPE",
};

// Narrowing a double to a set's float relies on IEEE rounding (out of range
// becomes an infinity).
static_assert(std::numeric_limits<float>::is_iec559);

// A cell that lives for one operation: a copy of an operand the result would
// otherwise overwrite.
class held_copy {
public:
    held_copy(vrkvar* src, vrkblock* block) : cell(cell_new(Tag::INT)) { assign(cell, src, block); }
    ~held_copy() { cell_free(cell); }
    held_copy(const held_copy&) = delete;
    held_copy& operator=(const held_copy&) = delete;

    vrkvar* get() const { return cell; }

private:
    vrkvar* cell;
};

// The vector payload of a container cell of element type E.
template <class E>
std::vector<E>* payload(vrkvar* c);
template <>
std::vector<uint8_t>* payload(vrkvar* c) {
    return c->value.data;
}
template <>
std::vector<float>* payload(vrkvar* c) {
    return c->value.floatset;
}
template <>
std::vector<double>* payload(vrkvar* c) {
    return c->value.doubleset;
}
template <>
std::vector<int32_t>* payload(vrkvar* c) {
    return c->value.intset;
}
template <>
std::vector<int64_t>* payload(vrkvar* c) {
    return c->value.bigintset;
}

// Applies the scalar to every element. Integer elements take the scalar
// truncated to their own width and wrap at it (going through int_arith and
// truncating the result is the same as wrapping arithmetic of that width); a
// divisor that is 0 at that width gives the element 0. Floating elements compute
// in double with plain IEEE division: a zero scalar is not guarded there.
template <class E>
void apply_scalar(std::vector<E>* v, BinOp op, int64_t si, double sf) {
    if (!v) return;
    if constexpr (std::is_integral_v<E>) {
        const auto s = static_cast<E>(si);
        for (E& e : *v) e = static_cast<E>(int_arith(op, e, s));
    } else {
        for (E& e : *v) {
            const double x = static_cast<double>(e);
            e = static_cast<E>(op == BinOp::div ? x / sf : float_arith(op, x, sf));
        }
    }
}

// lhs op rhs element by element into `res`, which holds the copy of lhs. A zero
// element of rhs makes the element 0 for / (int_arith and float_arith both do).
template <class E>
void apply_each(vrkvar* res, vrkvar* rhs, BinOp op) {
    std::vector<E>* v = payload<E>(res);
    const std::vector<E>* r = payload<E>(rhs);
    const std::size_t n = v ? v->size() : 0;
    const std::size_t m = r ? r->size() : 0;
    if (n != m) {
        log().log("cannot operate on vectors with different size! (%i : %i)", static_cast<int>(n),
                  static_cast<int>(m));
        return;
    }
    for (std::size_t i = 0; i < n; ++i) {
        E& e = (*v)[i];
        if constexpr (std::is_integral_v<E>)
            e = static_cast<E>(int_arith(op, e, (*r)[i]));
        else
            e = static_cast<E>(float_arith(op, e, (*r)[i]));
    }
}

// JSON with a scalar: INT elements take the scalar as an integer, FLOAT elements
// as a double, all others stay; no recursion. A zero divisor leaves 0 / 0.0.
void json_scalar(vrkjson* json, BinOp op, int64_t si, double sf) {
    if (!json) return;
    for (vrkelement* e : json->elements) {
        if (e->is(Tag::INT))
            e->value.i = int_arith(op, e->value.i, si);
        else if (e->is(Tag::FLOAT))
            e->value.f = float_arith(op, e->value.f, sf);
    }
}

// res := copy of the container, then the scalar applied to each element.
void with_scalar(vrkblock* block, BinOp op, vrkvar* container, vrkvar* scalar, vrkvar* res) {
    // Converted before the copy: the result cell may be the scalar itself.
    const int64_t si = to_int(scalar);
    const double sf = to_float(scalar);
    assign(res, container, block);
    switch (res->type) {
        case Tag::JSON: json_scalar(res->value.json, op, si, sf); break;
        case Tag::DATA: apply_scalar(res->value.data, op, si, sf); break;
        case Tag::FLOATSET: apply_scalar(res->value.floatset, op, si, sf); break;
        case Tag::DOUBLESET: apply_scalar(res->value.doubleset, op, si, sf); break;
        case Tag::INTSET: apply_scalar(res->value.intset, op, si, sf); break;
        case Tag::BIGINTSET: apply_scalar(res->value.bigintset, op, si, sf); break;
        default: break;  // the result cell did not take the copy (constant or typed)
    }
}

// JSON + JSON: every element of rhs appended to res, with its key if it has one.
void json_concat(vrkjson* into, vrkvar* rhs, vrkblock* block) {
    const vrkjson* from = rhs->value.json;
    if (!into || !from) return;
    // By position and with the count taken first: `from` may be `into` itself.
    const std::size_t n = from->elements.size();
    for (std::size_t i = 0; i < n; ++i) {
        vrkelement* e = from->elements[i];
        if (e->key && !e->key->empty())  // an emptied key is a positional element
            json_append_keyed(into, e, *e->key, block);
        else
            json_append(into, e, block);
    }
}

// res := copy of lhs, then combined with rhs of the same tag.
void with_same(vrkblock* block, BinOp op, vrkvar* lhs, vrkvar* rhs, vrkvar* res) {
    const Tag tag = lhs->type;
    assign(res, lhs, block);
    if (!res->is(tag)) return;  // the result cell did not take the copy
    switch (tag) {
        case Tag::JSON:
            if (op == BinOp::add)
                json_concat(res->value.json, rhs, block);
            else
                log().log("cannot operate on json!");
            break;
        case Tag::DATA: apply_each<uint8_t>(res, rhs, op); break;
        case Tag::FLOATSET: apply_each<float>(res, rhs, op); break;
        case Tag::DOUBLESET: apply_each<double>(res, rhs, op); break;
        case Tag::INTSET: apply_each<int32_t>(res, rhs, op); break;
        case Tag::BIGINTSET: apply_each<int64_t>(res, rhs, op); break;
        default: break;
    }
}

bool is_scalar(Tag t) { return t == Tag::INT || t == Tag::FLOAT; }

}  // namespace

void container_op(vrkblock* block, BinOp op, vrkvar* lhs, vrkvar* rhs, vrkvar** res_slot) {
    vrkvar* res = *res_slot;
    if (is_scalar(lhs->type) || is_scalar(rhs->type)) {
        const bool scalar_left = is_scalar(lhs->type);
        with_scalar(block, op, scalar_left ? rhs : lhs, scalar_left ? lhs : rhs, res);
        return;
    }
    if (lhs->type == rhs->type) {
        if (res == rhs && res != lhs) {
            // Copying lhs into the result would destroy rhs before it is read.
            held_copy right(rhs, block);
            with_same(block, op, lhs, right.get(), res);
        } else {
            with_same(block, op, lhs, rhs, res);
        }
        return;
    }
    runtime_error(kMismatchReport[static_cast<std::size_t>(op)], block);
    *res_slot = void_value();
}

}  // namespace vrk
