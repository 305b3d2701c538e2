// The binary operators of the language, by pair of type tags.
//
// The run loop hands over the two operand cells and the result slot; which
// routine applies depends on the "high" tag of the pair (the greater tag number,
// except that for + a STRING on either side wins). Scalars compute in place in
// the result cell, containers work element by element with the element on the
// left, PTR operands ask their native object, and everything else is reported.
// Operands are taken as they are: a REF is seen as REF, never followed here.
#pragma once

#include <cstdint>

namespace vrk {

struct vrkvar;
struct vrkblock;

enum class BinOp : uint8_t { add, sub, mult, div, exp };

// Computes lhs op rhs into *res_slot. `res_slot` points at the stack slot of the
// result: when a container pairing is invalid the slot is replaced by the void
// constant after the report. The caller frees lhs as a temp afterwards; with
// `lhs_expires` it says that nothing reads lhs again before it is reset, so a
// concatenation may take lhs's text instead of copying it.
void binary_op(vrkblock* block, BinOp op, vrkvar* lhs, vrkvar* rhs, vrkvar** res_slot,
               bool lhs_expires = false);

// The order tests as the run loop calls them (a = rhs, b = lhs):
// code 2 `>=` is a <= b, 3 `<=` is a >= b, 4 `>` is a < b, 5 `<` is a > b.
bool order_test(int code, vrkvar* a, vrkvar* b);

// ---- pieces shared by the operator files ---------------------------------------

// One operator on 64-bit integers as the language defines it: two's complement
// wrapping for + - * (INT64_MIN / -1 wraps to INT64_MIN too), a zero divisor
// gives 0, ^ is pow on doubles truncated (see pow_to_int).
int64_t int_arith(BinOp op, int64_t a, int64_t b);
// One operator on doubles: a divisor of 0.0 gives 0.0, ^ is pow.
double float_arith(BinOp op, double a, double b);
// A pow result as an integer: truncated towards zero. NaN and values outside
// the i64 range give INT64_MIN, the "integer indefinite" answer of the x86-64
// truncating conversion, so every platform gives the same number.
int64_t pow_to_int(double x);
// The rules for a pair whose high tag is JSON, DATA or one of the four sets.
void container_op(vrkblock* block, BinOp op, vrkvar* lhs, vrkvar* rhs, vrkvar** res_slot);

}  // namespace vrk
