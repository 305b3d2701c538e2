// Arithmetic on the stack: the binary operators, the bit operators, INC and
// DEC in place, NOT and INVERT.
//
// A binary operator finds [.. res t rhs]: `t` is the temp copy of the left
// operand made by the operand step, `res` the slot the result goes into (the
// hidden variable of the expression). Both operands come off, `t` goes back to
// the pool, and `res` is left on top holding the result.
#include "vm/errors.h"
#include "vm/ops.h"

namespace vrk {

namespace {

// Takes the operands off the stack; false when there are not enough slots for
// an operand pair and a result slot.
bool take_operands(vrkblock* b, vrkvar*& lhs, vrkvar*& rhs) {
    if (b->stack.size() < 3) {
        runtime_error("STACK_CORRUPTION", b);
        return false;
    }
    rhs = b->stack.back();
    b->stack.pop_back();
    lhs = b->stack.back();
    b->stack.pop_back();
    return true;
}

bool is_null_operand(const vrkvar* cell) { return is_marker(cell); }

int64_t wrapping_add(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

}  // namespace

void arithmetic(vrkblock* b, BinOp op) {
    vrkvar* lhs = nullptr;
    vrkvar* rhs = nullptr;
    if (!take_operands(b, lhs, rhs)) return;
    vrkvar*& res = top_slot(b);
    if (!res) {
        if (op == BinOp::add) {
            runtime_error("INVALID_STACK", b);
            res = &b->result;
        } else {
            res = &b->scratch;
        }
    }
    // The left operand is the temp of the operand step, given back below: its
    // payload may go into the result.
    const bool lhs_is_temp = is_pooled_temp(b, lhs);
    // Division has a guard of its own for null operands.
    if (op != BinOp::div && (is_null_operand(lhs) || is_null_operand(rhs))) {
        runtime_error("NULLPTR", b);
    } else {
        binary_op(b, op, lhs, rhs, &res, lhs_is_temp);
    }
    if (lhs_is_temp) return_temp(b, lhs);
}

void add_values(run_state& rs) {
    vrkblock* b = rs.b;
    vrkvar* kept = rs.kept_left;
    rs.kept_left = nullptr;
    const std::size_t size = b->stack.size();
    if (kept && rs.kept_at + 2 == rs.ip && size >= 3 && b->stack[size - 2] == rs.kept_temp &&
        b->stack[size - 3] == kept) {
        // Only the LOAD of the piece ran since the operand step, which left
        // the string in place: what the concatenation would build from a copy
        // of it is the string followed by the piece, in the same cell, with
        // the fields a reset clears cleared.
        vrkvar* piece = b->stack.back();
        b->stack.pop_back();
        b->stack.pop_back();
        if (is_null_operand(piece)) {
            runtime_error("NULLPTR", b);
        } else {
            kept->block = nullptr;
            kept->aux = 0;
            kept->attrs &= attr::KEEP_MASK;
            append_string(piece, *kept->value.str);
        }
        return_temp(b, rs.kept_temp);
        return;
    }
    arithmetic(b, BinOp::add);
}

void bit_operation(vrkblock* b, const vrkinstr& ins) {
    vrkvar* lhs = nullptr;
    vrkvar* rhs = nullptr;
    if (!take_operands(b, lhs, rhs)) return;
    const Op op = ins.opcode();
    if (is_null_operand(lhs) || is_null_operand(rhs)) {
        // The report of `&` has always been spelled this way.
        runtime_error(op == Op::BIT_AND ? "NULLTPR" : "NULLPTR", b);
        slot_load(b, ins);
        free_temp(b, lhs);
        return;
    }
    const int64_t r = to_int(rhs);
    const int64_t l = to_int(lhs);
    int64_t value = 0;
    if (op == Op::BIT_OR) {
        value = r | l;
    } else if (op == Op::BIT_XOR) {
        value = r ^ l;
    } else {
        value = r & l;
    }
    vrkvar*& res = top_slot(b);
    if (!res) res = &b->scratch;
    set_int(res, value);
    free_temp(b, lhs);
}

void step_in_place(vrkblock* b, bool up) {
    vrkvar* v = top_slot(b);
    if (is_marker(v, kMarkerLimit)) {
        runtime_error(up ? "STACK_ERROR_INC" : "INC_STACK_ERROR", b);
        return;
    }
    // The shared constants (true, false, ...) and literals must never change.
    if (v->constant) return;
    if (v->type == Tag::INT) {
        v->value.i = wrapping_add(v->value.i, up ? 1 : -1);
    } else if (v->type == Tag::FLOAT) {
        v->value.f += up ? 1.0 : -1.0;
    } else {
        runtime_error(up ? "ADD_INVALID_TYPE" : "INC_INVALID_TYPE", b);
    }
}

void logical_not(vrkblock* b) {
    vrkvar* v = top_slot(b);
    int64_t answer = 0;
    // INT, FLOAT and STRING answer by their integer value; everything else
    // (and an empty slot) is "not" nothing: 0.
    if (!is_marker(v, kMarkerLimit) && v->type <= Tag::STRING) answer = to_int(v) == 0 ? 1 : 0;
    top_slot(b) = &b->scratch;
    set_int(&b->scratch, answer);
}

void invert_bits(vrkblock* b) {
    vrkvar* v = top_slot(b);
    const int64_t n = is_marker(v, kMarkerLimit) ? 0 : to_int(v);
    top_slot(b) = &b->scratch;
    set_int(&b->scratch, ~n);
}

}  // namespace vrk
