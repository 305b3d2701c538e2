// Fused number paths of the run loop (private to vm/).
//
// Most instructions of a counting loop come in two fixed sequences that the
// compiler lays out for every comparison and every arithmetic operator:
//
//   LOAD a; ARG 0 m; LOAD b; CMP code      the test `a < b` (and its kin)
//   X_TMP 0; LOAD y; X                     `v op= y`, `h = a op y` (h holds a)
//   LOAD v; INC                            `v++`
//
// (the LOAD of the left operand in front of an operand step joins it too).
// Run one at a time they take a temp, copy the left operand into it, push and
// pop slots and give the temp back: several hundred machine instructions for
// one comparison of two integers. When both operands are plain numbers, none
// of that can be seen from the script, and the dispatch runs the whole
// sequence in one step: the loop checks the sequence and its operands, and
// only then does the work that leaves exactly the state the single
// instructions leave (the same top slot, the same cells written, the same
// fields cleared, the member owner forgotten where a freed temp forgets it).
//
// A fused step counts every instruction it replaces against the step budget;
// when the budget would run out inside the sequence, the single instructions
// run instead, so that the budget stops the run at the same instruction.
// Nothing in these sequences can suspend the block or report an error when the
// operands qualify; anything else (strings other than the left side of an
// append, objects, null slots, constants as results, fresh native results, a
// by-reference argument) takes the single instructions. The exit test of a
// loop whose condition holds is decided in line too.
// `vrkvalue_context::fused_paths` switches the fused steps off, which the tests
// use to compare both ways on the same code.
#pragma once

#include <cstdint>

#include "vm/ops.h"

namespace vrk {

namespace fused {

// A plain number cell: INT or FLOAT, not a marker.
[[gnu::always_inline]] inline bool is_number(const vrkvar* c) {
    return !is_marker(c, kMarkerLimit) && (c->type == Tag::INT || c->type == Tag::FLOAT);
}

// The cell a LOAD of a named variable puts into the top slot, or null when the
// instruction is anything else (a sub-code, a bad index).
[[gnu::always_inline]] inline vrkvar* loaded_var(const vrkinstr& ins) {
    if (ins.opcode() != Op::LOAD || ins.ref == 0) return nullptr;
    vrkblock* owner = operand_block(ins);
    if (!has_var(owner, ins.arg)) return nullptr;
    return owner->vars[static_cast<std::size_t>(ins.arg)];
}

// loaded_var of a LOAD whose shape (below) says that its `ref` names a block.
[[gnu::always_inline]] inline vrkvar* named_var(const vrkinstr& ins) {
    const vrkblock* owner = ins.ref_block();
    if (static_cast<uint64_t>(ins.arg) >= owner->vars.size()) return nullptr;
    return owner->vars[static_cast<std::size_t>(ins.arg)];
}

// The answer of CMP `code` for two numbers, right operand first, as the
// comparison routines give it.
[[gnu::always_inline]] inline bool number_test(int64_t code, const vrkvar* rhs, const vrkvar* lhs,
                                               bool& known) {
    known = true;
    const bool floating = rhs->type == Tag::FLOAT || lhs->type == Tag::FLOAT;
    if (floating) {
        const double r = rhs->type == Tag::FLOAT ? rhs->value.f : static_cast<double>(rhs->value.i);
        const double l = lhs->type == Tag::FLOAT ? lhs->value.f : static_cast<double>(lhs->value.i);
        switch (code) {
            case cmp_code::STRICT_EQUAL: return rhs->type == lhs->type && r == l;
            case cmp_code::EQUAL: return r == l;
            case cmp_code::NOT_EQUAL: return r != l;
            case cmp_code::GREATER_EQUAL: return r <= l;
            case cmp_code::LESS_EQUAL: return r >= l;
            case cmp_code::GREATER: return r < l;
            case cmp_code::LESS: return r > l;
            case cmp_code::OR: return r != 0.0 || l != 0.0;
            case cmp_code::AND: return r != 0.0 && l != 0.0;
            default: known = false; return false;
        }
    }
    const int64_t r = rhs->value.i;
    const int64_t l = lhs->value.i;
    switch (code) {
        case cmp_code::STRICT_EQUAL:
        case cmp_code::EQUAL: return r == l;
        case cmp_code::NOT_EQUAL: return r != l;
        case cmp_code::GREATER_EQUAL: return r <= l;
        case cmp_code::LESS_EQUAL: return r >= l;
        case cmp_code::GREATER: return r < l;
        case cmp_code::LESS: return r > l;
        case cmp_code::OR: return r != 0 || l != 0;
        case cmp_code::AND: return r != 0 && l != 0;
        default: known = false; return false;
    }
}

// `LOAD a; ARG 0 m; LOAD b; CMP code` at rs.ip (its shape says so), `lhs`
// the variable of the first LOAD, both variables numbers. Answers true when it
// ran the four instructions.
[[gnu::always_inline]] inline bool compare_step(run_state& rs, vrkvar* lhs, const vrkinstr* code,
                                                uint64_t& steps) {
    constexpr uint32_t kLength = 4;
    if (steps < kLength) return false;
    const vrkinstr& cmp = code[rs.ip + 3];
    if (!is_number(lhs) || (lhs->attrs & attr::FRESH_RESULT)) return false;
    vrkvar* rhs = named_var(code[rs.ip + 2]);
    if (!rhs || !is_number(rhs)) return false;
    bool known = false;
    const bool answer = number_test(cmp.arg, rhs, lhs, known);
    if (!known) return false;
    vrkblock* b = rs.b;
    // What the argument step and the freed temp leave behind.
    b->transient_element = nullptr;
    forget_transient_owner(b);
    top_slot(b) = answer ? true_value() : false_value();
    steps -= kLength - 1;
    rs.next = rs.ip + kLength;
    return true;
}

// True when `op` is the operator whose operand step is `step`.
inline bool completes(Op step, Op op) {
    switch (step) {
        case Op::ADD_TMP: return op == Op::ADD;
        case Op::SUB_TMP: return op == Op::SUB;
        case Op::MULT_TMP: return op == Op::MULT;
        case Op::DIV_TMP: return op == Op::DIV;
        default: return false;
    }
}

// set_int / set_float on a non-constant cell, with the same-type case in line.
[[gnu::always_inline]] inline void store_int(vrkvar* res, int64_t v) {
    if (res->type == Tag::INT) {
        res->block = nullptr;
        res->aux = 0;
        res->attrs &= attr::KEEP_MASK;
        res->value.i = v;
    } else {
        set_int(res, v);
    }
}

[[gnu::always_inline]] inline void store_float(vrkvar* res, double v) {
    if (res->type == Tag::FLOAT) {
        res->block = nullptr;
        res->aux = 0;
        res->attrs &= attr::KEEP_MASK;
        res->value.f = v;
    } else {
        set_float(res, v);
    }
}

// res := lhs op rhs for numbers, as binary_op writes it: integers wrap
// around, a mixed pair is computed in floating point.
[[gnu::always_inline]] inline void apply_numbers(vrkvar* res, const vrkvar* lhs, const vrkvar* rhs,
                                                 Op op) {
    if (lhs->type == Tag::INT && rhs->type == Tag::INT) {
        const auto l = static_cast<uint64_t>(lhs->value.i);
        const auto r = static_cast<uint64_t>(rhs->value.i);
        switch (op) {
            // Modular, as the integer rule of the operators.
            case Op::ADD: store_int(res, static_cast<int64_t>(l + r)); break;
            case Op::SUB: store_int(res, static_cast<int64_t>(l - r)); break;
            case Op::MULT: store_int(res, static_cast<int64_t>(l * r)); break;
            default: store_int(res, int_arith(BinOp::div, lhs->value.i, rhs->value.i)); break;
        }
    } else {
        const double l = lhs->type == Tag::FLOAT ? lhs->value.f : static_cast<double>(lhs->value.i);
        const double r = rhs->type == Tag::FLOAT ? rhs->value.f : static_cast<double>(rhs->value.i);
        switch (op) {
            case Op::ADD: store_float(res, l + r); break;
            case Op::SUB: store_float(res, l - r); break;
            case Op::MULT: store_float(res, l * r); break;
            default: store_float(res, r == 0.0 ? 0.0 : l / r); break;
        }
    }
}

// `X_TMP 0; LOAD y; X` at index `at`, the top cell and y numbers: the top cell
// receives top op y, as the operator writes its result into the slot under the
// operand pair. `before`: instructions of this step already run in front of
// it (the LOAD of the top cell). The shape of the LOAD or of the operand step
// has found the three instructions there (is_arithmetic). Answers true when it
// ran the three.
[[gnu::always_inline]] inline bool arithmetic_at(run_state& rs, uint32_t at, uint32_t before,
                                                 const vrkinstr* code, uint64_t& steps) {
    constexpr uint32_t kLength = 3;
    if (steps < before + kLength) return false;
    const Op op = code[at + 2].opcode();
    vrkblock* b = rs.b;
    vrkvar* res = top_slot(b);
    if (!is_number(res) || res->constant || (res->attrs & attr::FRESH_RESULT)) return false;
    vrkvar* rhs = named_var(code[at + 1]);
    if (!rhs || !is_number(rhs)) return false;
    apply_numbers(res, res, rhs, op);
    // The `+` forgets a string kept in place by an earlier operand step.
    if (op == Op::ADD) rs.kept_left = nullptr;
    steps -= before + kLength - 1;
    rs.next = at + kLength;
    return true;
}

// `ADD_TMP 0; LOAD piece; ADD` at index `at` where the operand step would
// keep the string in the top slot in place (piece_appended_in_place): `s +=
// piece` and `s = s + piece`. Run one at a time, the operand step takes a temp
// (blanking it), the `+` appends the piece to the string and gives the temp
// back (vm/stack_ops.cpp, vm/arith.cpp); in one step the top free temp is
// blanked where it lies and the piece appended, with the fields the `+`
// clears cleared. Only when the temp needs no general reset. `before`:
// instructions of this step already run in front of it (the LOAD of the
// string). Answers true when it ran the three.
[[gnu::always_inline]] inline bool append_at(run_state& rs, uint32_t at, uint32_t before,
                                             const vrkinstr* code, std::size_t count,
                                             uint64_t& steps) {
    constexpr uint32_t kLength = 3;
    if (steps < before + kLength) return false;
    vrkblock* b = rs.b;
    vrkvar* kept = top_slot(b);
    const vrkvar* piece = piece_appended_in_place(code, count, at, kept);
    if (!piece) return false;
    vrktemp_pool* pool = &b->temp_pool;
    vrkvar* temp = take_blank_temp(pool);
    if (!temp) return false;
    --pool->in_use;
    pool->free.push_back(temp);
    kept->block = nullptr;
    kept->aux = 0;
    kept->attrs &= attr::KEEP_MASK;
    append_string(piece, *kept->value.str);
    rs.kept_left = nullptr;
    steps -= before + kLength - 1;
    rs.next = at + kLength;
    return true;
}

// ADD, SUB, MULT or DIV (`op`) on [.. res t rhs], where the operand step left
// the copy t of a number and something other than a LOAD of a variable (a
// subscript, a call) put the number rhs: res receives t op rhs, the two
// slots go and the temp goes back to the pool, as the operator does. Answers
// false, having done nothing, for anything else. (ADD leaves a string kept in
// place by its operand step to add_values.)
[[gnu::always_inline]] inline bool operator_step(vrkblock* b, Op op) {
    const std::size_t size = b->stack.size();
    if (size < 3) return false;
    vrkvar* rhs = b->stack[size - 1];
    vrkvar* lhs = b->stack[size - 2];
    vrkvar* res = b->stack[size - 3];
    if (is_marker(res, kMarkerLimit) || !is_number(res) || res->constant ||
        (res->attrs & attr::FRESH_RESULT))
        return false;
    if (!is_pooled_temp(b, lhs) || !is_number(lhs) || !is_number(rhs)) return false;
    apply_numbers(res, lhs, rhs, op);
    b->stack.pop_back();
    b->stack.pop_back();
    return_temp_fast(b, lhs);
    return true;
}

// The operand step (vm/stack_ops.cpp) of an operator whose left operand is a
// plain number: the copy into a fresh temp is assign's own path for a number
// into a cell holding a number of the same type, in line. Anything else takes
// the operand step itself.
[[gnu::always_inline]] inline void number_operand_step(run_state& rs, const vrkinstr& ins) {
    vrkblock* b = rs.b;
    vrkvar* v = top_slot(b);
    if (!is_number(v) || (v->attrs & attr::FRESH_RESULT)) {
        operand_step(rs, ins);
        return;
    }
    vrkvar* t = take_temp_fast(b);
    if (t->type == v->type && !t->constant && !(t->flags & flag::FIXED_TYPE)) {
        t->attrs &= attr::KEEP_MASK;
        t->aux = 0;
        t->block = nullptr;
        t->value = v->value;
    } else {
        assign(t, v, b);
    }
    b->stack.push_back(t);
    b->stack.push_back(nullptr);
    slot_load(b, ins);
}

// The operand step at rs.ip with its arithmetic (the operand step's shape is
// arithmetic).
[[gnu::always_inline]] inline bool arithmetic_step(run_state& rs, const vrkinstr* code,
                                                   uint64_t& steps) {
    return arithmetic_at(rs, rs.ip, 0, code, steps);
}

// True when a store of `src` into a cell `dst` (no marker) comes down to
// copy_number: both plain numbers of the same type (with `kRetag` the
// destination may also hold the other number type or VOID), the destination
// neither constant, typed nor a by-reference parameter, the source no bound
// object and not the destination itself, and no index pending.
template <bool kRetag = false>
[[gnu::always_inline]] inline bool number_store_applies(const vrkblock* b, const vrkvar* dst,
                                                        const vrkvar* src) {
    if (!is_number(src) || src == dst) return false;
    if (kRetag ? !(dst->type == Tag::INT || dst->type == Tag::FLOAT || dst->type == Tag::VOID)
               : src->type != dst->type)
        return false;
    return !dst->constant && !(dst->flags & flag::FIXED_TYPE) &&
           !(dst->attrs & attr::BY_REF_PARAM) && !(src->flags & flag::BOUND_OBJECT) &&
           b->pending_index == -1;
}

// SET of a number into a number variable (`ref` a block, `arg` its variable),
// as store and its checked copy do it: the owner of a member call is
// forgotten, assign's number path copies the value (handing a fresh result's
// bit over), the variable goes into the top slot. Answers false, having done
// nothing, for anything else (number_store_applies). The dispatch takes it for
// a variable of the same number type; the store itself (vm/store.cpp) with
// `kRetag` for the rest.
template <bool kRetag = false>
[[gnu::always_inline]] inline bool store_number(vrkblock* b, const vrkinstr& ins) {
    vrkvar* dst = var_at(operand_block(ins), ins.arg);
    vrkvar* src = top_slot(b);
    if ((kRetag ? is_marker(dst, kMarkerLimit) : !dst) ||
        !number_store_applies<kRetag>(b, dst, src))
        return false;
    b->member_owner = nullptr;
    b->owner_transient = 0;
    copy_number<kRetag>(dst, src);
    top_slot(b) = dst;
    return true;
}

// SET -1 or -2 (the store into the cell on top of the one below it, which
// with -2 is a temp given back afterwards, `frees`) of a number into a number,
// as store does it: the owner of a member call is forgotten, the top slot
// goes, the value is copied, the destination takes the slot and the source
// temp goes back to the pool. False, having done nothing, for anything else.
template <bool kRetag = false>
[[gnu::always_inline]] inline bool store_number_below(vrkblock* b, bool frees = true) {
    const std::size_t size = b->stack.size();
    if (size < 2) return false;
    vrkvar* dst = b->stack[size - 1];
    vrkvar* src = b->stack[size - 2];
    if (is_marker(dst, kMarkerLimit) || !number_store_applies<kRetag>(b, dst, src)) return false;
    b->member_owner = nullptr;
    b->owner_transient = 0;
    b->stack.pop_back();
    copy_number<kRetag>(dst, src);
    top_slot(b) = dst;
    if (frees) free_temp(b, src);
    return true;
}

// PUSH 0 on a plain number (the first half of a store into a member or an
// element, `this.v = ...`): the number goes into a movable temp that takes
// its slot, and a slot is opened on top (with a temp in it when `ref` asks),
// as push_slots does. False, having done nothing, for anything else.
[[gnu::always_inline]] inline bool push_number(vrkblock* b, const vrkinstr& ins) {
    vrkvar*& slot = top_slot(b);
    vrkvar* v = slot;
    if (!is_number(v) || v == erase_value()) return false;
    vrkvar* t = take_temp_fast(b);
    t->flags |= flag::MOVABLE;
    if (t != v && t->type == v->type && !t->constant && !(t->flags & flag::FIXED_TYPE)) {
        copy_number<false, true>(t, v);
    } else {
        assign(t, v, b);
    }
    slot = t;
    b->stack.push_back(ins.ref != 0 ? take_temp(b) : nullptr);
    return true;
}

// ---- shapes ----------------------------------------------------------------------
// Whether a fused sequence starts at an instruction, and which, depends on the
// instructions alone (opcodes, modes and sub-codes), never on the values they
// meet. The run loop works it out the first time it takes the instruction and
// notes it in the record (`vrkinstr::shape`), so that later passes test only
// the values. Once a block has run, its code changes only past the end it had
// then (the prompt appends each line it compiles; a recompiled block gets new
// records), and a shape is noted only for a sequence whose instructions are
// all there: a noted shape stays true. A sequence cut off by the end of the
// code is noted as none, which leaves it to the single instructions.
namespace shape {
inline constexpr uint8_t unknown = 0;        // not worked out yet
inline constexpr uint8_t none = 1;           // nothing is fused from here
inline constexpr uint8_t not_named = 2;      // a LOAD whose `ref` names no block
inline constexpr uint8_t compare = 3;        // LOAD a; ARG 0 m; LOAD b; CMP code
inline constexpr uint8_t step = 4;           // LOAD v; INC or DEC
inline constexpr uint8_t store = 5;          // LOAD v; SET
inline constexpr uint8_t arithmetic = 6;     // LOAD v; X_TMP 0; LOAD y; X
inline constexpr uint8_t add_other = 7;      // LOAD v; ADD_TMP of another form (an append may be)
inline constexpr uint8_t member = 8;         // LOAD obj; CLASS_ACCESS k
inline constexpr uint8_t element = 9;        // a PUSH that may start an element step
inline constexpr uint8_t member_store = 10;  // PUSH 0; LOAD obj; CLASS_ACCESS k; SET -2; RESET 0
inline constexpr uint8_t compare_jump = 11;  // compare, then JMP_FALSE or JMP_FALSE_LOOP
inline constexpr uint8_t step_jump = 12;     // LOAD v; INC or DEC; JMP back
// CALL_PREP -1 binding n arguments: bind_base + n, n from 1 to bind_most.
inline constexpr uint8_t bind_base = 2;
inline constexpr std::size_t bind_most = 253;
}  // namespace shape

// A LOAD whose `ref` names a block (operand_block is not null).
inline bool is_named_load(const vrkinstr& ins) {
    return ins.opcode() == Op::LOAD && ins.ref >= kFirstBlockRef && ins.ref != kRefMinusOne;
}

// True when `X_TMP 0; LOAD y; X` starts at `at`: an operand step of the four
// arithmetic operators, its LOAD naming a variable, its operator matching.
inline bool is_arithmetic(const vrkinstr* code, std::size_t count, std::size_t at) {
    if (at + 3 > count) return false;
    const vrkinstr& step = code[at];
    return step.ref == 0 && step.arg != -2 && is_named_load(code[at + 1]) &&
           completes(step.opcode(), code[at + 2].opcode());
}

// The shape of the LOAD at `at`, worked out and noted (load_step).
[[gnu::noinline]] inline uint8_t note_load_shape(const vrkinstr* code, std::size_t count,
                                                 std::size_t at) {
    const vrkinstr& ins = code[at];
    uint8_t s = shape::none;
    if (!is_named_load(ins)) {
        s = shape::not_named;
    } else if (at + 1 < count) {
        const vrkinstr& next = code[at + 1];
        const bool four = at + 4 <= count && is_named_load(code[at + 2]);
        switch (next.opcode()) {
            case Op::ARG:
                if (four && next.arg == 0 && next.ref != 0 && code[at + 3].opcode() == Op::CMP) {
                    const Op jump = at + 5 <= count ? code[at + 4].opcode() : Op::NOP;
                    s = jump == Op::JMP_FALSE || jump == Op::JMP_FALSE_LOOP ? shape::compare_jump
                                                                            : shape::compare;
                }
                break;
            case Op::INC:
            case Op::DEC:
                s = at + 2 < count && code[at + 2].opcode() == Op::JMP ? shape::step_jump
                                                                       : shape::step;
                break;
            case Op::SET: s = shape::store; break;
            case Op::ADD_TMP:
            case Op::SUB_TMP:
            case Op::MULT_TMP:
            case Op::DIV_TMP:
                if (is_arithmetic(code, count, at + 1))
                    s = shape::arithmetic;
                else if (next.opcode() == Op::ADD_TMP)
                    s = shape::add_other;
                break;
            case Op::CLASS_ACCESS: s = shape::member; break;
            default: break;
        }
    }
    ins.shape = s;
    return s;
}

// The shape of the CALL_PREP -1 at `at` (binding_step), worked out and noted:
// the argument count when the binding sequence follows it whole.
[[gnu::noinline]] inline uint8_t note_binding_shape(const vrkinstr* code, std::size_t count,
                                                    std::size_t at) {
    std::size_t pos = at + 1;
    std::size_t args = 0;
    bool whole = true;
    while (pos + 1 < count) {
        const vrkinstr& pop = code[pos];
        if (pop.opcode() != Op::POP || pop.arg != 1 || pop.ref != (args == 0 ? 3U : 1U)) break;
        const vrkinstr& set = code[pos + 1];
        if (set.opcode() != Op::SET || set.ref != kRefMinusOne) {
            whole = false;
            break;
        }
        pos += 2;
        ++args;
    }
    if (!whole || args == 0 || args > shape::bind_most || pos >= count ||
        code[pos].opcode() != Op::RESET || code[pos].arg != 1)
        code[at].shape = shape::none;
    else
        code[at].shape = static_cast<uint8_t>(shape::bind_base + args);
    return code[at].shape;
}

// The binding of a call's arguments as the compiler lays it out:
//
//   CALL_PREP 0 -1; POP 1 3; SET k -1; (POP 1 1; SET k -1)...; RESET 1
//
// (the start of binding, then from the last argument to the first the slot of
// the wrapped argument given back to the pool, last one without a pop, and
// the argument swapped into the callee's variable k), run in one step when
// the call's function is a plain function cell and every index is one of its
// variables (the CALL_PREP's shape holds the number of arguments once the
// sequence has been checked). It writes what the single instructions write, in their order:
// `params` and `params_bound`, the temps given back, the owner of a member
// call forgotten, the variables swapped, the object stack's top dropped. None
// of them can suspend or report an error then. It counts every instruction
// against the step budget and is skipped when the budget could run out
// inside it. Answers false, having done nothing, for anything else.
[[gnu::always_inline]] inline bool binding_step(run_state& rs, const vrkinstr* code,
                                                std::size_t count, uint64_t& steps) {
    uint8_t s = code[rs.ip].shape;
    if (s == shape::unknown) [[unlikely]]
        s = note_binding_shape(code, count, rs.ip);
    if (s <= shape::bind_base) return false;
    const std::size_t args = s - shape::bind_base;
    vrkblock* b = rs.b;
    if (b->callblocks.empty()) return false;
    vrkvar* fn = b->callblocks.back();
    if (is_marker(fn, kMarkerLimit) || fn->type != Tag::FUNCTION || !fn->block) return false;
    vrkblock* callee = fn->block;
    for (std::size_t i = 0, pos = std::size_t{rs.ip} + 2; i < args; ++i, pos += 2)
        if (!has_var(callee, code[pos].arg)) return false;
    const std::size_t at = std::size_t{rs.ip} + 1 + 2 * args;
    const std::size_t length = at + 1 - rs.ip;
    // Each POP after the first takes a slot and may not take the last one.
    if (steps < length || b->stack.size() < args) return false;

    b->params.clear();
    b->params_bound = callee->native ? 0 : 1;
    b->bind_order = ++value_context().bindings_started;
    for (std::size_t i = 0, pos = std::size_t{rs.ip} + 1; i < args; ++i, pos += 2) {
        if (i != 0) b->stack.pop_back();
        free_temp(b, top_slot(b));
        b->member_owner = nullptr;
        b->owner_transient = 0;
        bind_parameter(b, callee, code[pos + 1].arg, top_slot(b));
    }
    if (b->object_stack && b->object_stack->size() > 1) b->object_stack->pop_back();
    steps -= length - 1;
    rs.next = static_cast<uint32_t>(at + 1);
    return true;
}

// ARG of a plain integer into a parameter not declared by reference (or of a
// comparison, `arg` 0), as wrap_argument does it on the call paths: the
// integer is copied into a blank temp from the pool, which takes its slot; the
// element last read is forgotten; a slot is opened on top when `ref` asks.
// Nothing here reaches a script's code. False, having done nothing, for
// anything else (a by-reference argument or parameter, another value, no
// blank untyped temp at hand), which wrap_argument handles.
[[gnu::always_inline]] inline bool wrap_int_argument(vrkblock* b, const vrkinstr& ins) {
    if (ins.arg < 0) return false;
    vrkvar*& slot = top_slot(b);
    vrkvar* v = slot;
    if (is_marker(v, kMarkerLimit) || v->type != Tag::INT) return false;
    if (ins.arg >= 1 && !b->callblocks.empty()) {
        vrkvar* fn = b->callblocks.back();
        if (!is_marker(fn, kMarkerLimit)) {
            fn = chain_end(fn);
            if (fn->type == Tag::FUNCTION) {
                const vrkvar* param = var_at(fn->block, ins.arg - 1);
                if (param && (param->attrs & attr::BY_REF_PARAM)) return false;
            }
        }
    }
    // A typed temp converts what it is given (assign): the general wrapping.
    vrktemp_pool* pool = &b->temp_pool;
    if (!pool || pool->free.empty() || !pool->free.back() ||
        (pool->free.back()->flags & flag::FIXED_TYPE))
        return false;
    vrkvar* t = take_blank_temp(pool);
    if (!t) return false;
    slot = t;
    copy_number<false, true>(t, v);
    b->transient_element = nullptr;
    if (ins.ref != 0) b->stack.push_back(nullptr);
    return true;
}

// INC or DEC right behind the LOAD of a number, as step_in_place does it: a
// constant stays as it is, an integer wraps around.
[[gnu::always_inline]] inline void step_number(vrkvar* v, bool up) {
    if (v->constant) return;
    if (v->type == Tag::INT) {
        const auto i = static_cast<uint64_t>(v->value.i);
        v->value.i = static_cast<int64_t>(up ? i + 1 : i - 1);
    } else {
        v->value.f += up ? 1.0 : -1.0;
    }
}

// `obj.member` reads as LOAD obj; CLASS_ACCESS k; RESET 0 (the RESET forgets a
// pending subscript). The LOAD has put `obj` into the top slot; the member
// read and the RESET follow in the same step, as far as the step budget lets
// them. Neither can end or suspend the run, so nothing is checked between them
// that the loop would check. A top slot that holds no instance with such a
// member is left to the single CLASS_ACCESS, which reports it.
[[gnu::always_inline]] inline void member_step(run_state& rs, uint32_t at, const vrkinstr* code,
                                               std::size_t count, uint64_t& steps) {
    if (steps < 2 || !class_access(rs.b, code[at])) return;
    steps -= 1;
    rs.next = at + 1;
    const uint32_t reset = at + 1;
    if (reset < count && steps >= 2 && code[reset].opcode() == Op::RESET && code[reset].arg == 0) {
        rs.b->pending_index = -1;
        steps -= 1;
        rs.next = reset + 1;
    }
}

// `obj.member = number` stores as PUSH 0; LOAD obj; CLASS_ACCESS k; SET -2;
// RESET 0 (the number is in the top slot; the PUSH moves it into a temp and
// opens a slot for the member, which the SET fills and the RESET closes with
// a pending subscript forgotten). With the PUSH at rs.ip, the five run here
// one after the other, each as its single instruction would run it, for as
// far as each one's fast path takes it and the step budget lets it; the next
// instruction not run is left in rs.next for the dispatch (an instance without
// that member for CLASS_ACCESS, which reports it; a member of another type, a
// constant or a typed member for SET). None of them can end or suspend the
// run. The PUSH's shape has found the sequence there (is_member_store); false,
// having done nothing, when the PUSH takes its single path. (The step starts
// at the PUSH only: joined to the LOAD in front of it, it made every load of
// the run loop slower than it made the stores faster.)

// True when the member store sequence starts at `at` (the shape member_store).
inline bool is_member_store(const vrkinstr* code, std::size_t count, std::size_t at) {
    if (at + std::size_t{5} > count) return false;
    const vrkinstr& push = code[at];
    const vrkinstr& set = code[at + 3];
    const vrkinstr& reset = code[at + 4];
    return push.opcode() == Op::PUSH && push.arg == 0 && push.ref == 0 &&
           is_named_load(code[at + 1]) && code[at + 2].opcode() == Op::CLASS_ACCESS &&
           set.opcode() == Op::SET && set.ref != kRefMinusOne && set.arg == -2 &&
           reset.opcode() == Op::RESET && reset.arg == 0;
}

[[gnu::always_inline]] inline bool member_store_step(run_state& rs, const vrkinstr* code,
                                                     uint64_t& steps) {
    constexpr uint32_t kLength = 5;
    const uint32_t at = rs.ip;
    const vrkinstr& push = code[at];
    const vrkinstr& access = code[at + 2];
    vrkvar* obj = named_var(code[at + 1]);
    vrkblock* b = rs.b;
    if (!obj || !push_number(b, push)) return false;
    if (steps < 2) return true;
    top_slot(b) = obj;
    steps -= 1;
    rs.next = at + 2;
    if (steps < 2 || !class_access(b, access)) return true;
    steps -= 1;
    rs.next = at + 3;
    if (steps < 2 || !store_number_below(b)) return true;
    steps -= 1;
    rs.next = at + 4;
    if (steps < 2) return true;
    b->pending_index = -1;
    steps -= 1;
    rs.next = at + kLength;
    return true;
}

// JMP_FALSE (or with `loop` JMP_FALSE_LOOP) on an INT, decided in line: the
// loop's exit test obeys and clears a pending loop signal, and a taken jump
// forwards inside the code goes to index + arg + 2. Answers false, having done
// nothing, for everything else (other values, a distance the jump routine must
// check or report), which the jump routine decides.
[[gnu::always_inline]] inline bool jump_on_int(run_state& rs, const vrkinstr& ins,
                                               std::size_t count, bool loop) {
    vrkblock* b = rs.b;
    if (b->stack.empty()) return false;
    const vrkvar* v = b->stack.back();
    if (is_marker(v, kMarkerLimit) || v->type != Tag::INT) return false;
    // Not taken, with no loop signal pending (which the exit test would clear).
    if (v->value.i != 0 && (!loop || b->loop_signal == 0)) return true;
    if (ins.arg < 0 || static_cast<uint64_t>(ins.arg) + rs.ip > count) return false;
    if (loop) b->loop_signal = 0;
    if (ins.arg != 0) rs.next = rs.ip + static_cast<uint32_t>(ins.arg) + 2;
    return true;
}

// LOAD of a named variable at rs.ip, together with what follows it where that
// can be fused: the comparison sequence, an operand step with its operator
// (or the append of a piece to a string), INC / DEC, a SET of a number into
// a variable, or the read of a member. The LOAD's shape decides which one is
// tried, so a LOAD that starts none is not checked against the others, and the
// sequence it starts is not checked again. Answers false, having done
// nothing, when the LOAD names no variable; otherwise the LOAD has run, and
// what followed it if rs.next says so.
[[gnu::always_inline]] inline bool load_step(run_state& rs, const vrkinstr* code, std::size_t count,
                                             uint64_t& steps) {
    const vrkinstr& ins = code[rs.ip];
    uint8_t s = ins.shape;
    if (s == shape::unknown) [[unlikely]]
        s = note_load_shape(code, count, rs.ip);
    if (s == shape::not_named) return false;
    vrkvar* v = named_var(ins);
    if (!v) return false;
    const uint32_t at = rs.ip + 1;
    switch (s) {
        case shape::compare:
            if (compare_step(rs, v, code, steps)) return true;
            top_slot(rs.b) = v;
            return true;
        case shape::compare_jump:
            if (compare_step(rs, v, code, steps)) {
                // The jump on the answer, as its own step would decide it in
                // line, when the budget has a step for it.
                const uint32_t jump = rs.ip + 4;
                if (steps >= 2) {
                    const uint32_t from = rs.ip;
                    rs.ip = jump;
                    rs.next = jump + 1;
                    if (jump_on_int(rs, code[jump], count,
                                    code[jump].opcode() == Op::JMP_FALSE_LOOP)) {
                        steps -= 1;
                    } else {
                        rs.ip = from;
                        rs.next = jump;
                    }
                }
                return true;
            }
            top_slot(rs.b) = v;
            return true;
        case shape::step:
        case shape::step_jump:
            top_slot(rs.b) = v;
            if (steps >= 2 && is_number(v)) {
                step_number(v, code[at].opcode() == Op::INC);
                steps -= 1;
                rs.next = at + 1;
                // The jump behind it, as its own step makes a jump inside
                // the code, when the budget has a step for it.
                if (s == shape::step_jump && steps >= 2) {
                    const uint32_t jump = at + 1;
                    const int64_t distance = code[jump].arg;
                    if (distance >= -static_cast<int64_t>(jump) - 1 &&
                        distance < static_cast<int64_t>(count - jump)) {
                        steps -= 1;
                        rs.next = static_cast<uint32_t>(static_cast<int64_t>(jump) + 1 + distance);
                    }
                }
            }
            return true;
        case shape::store:
            top_slot(rs.b) = v;
            if (steps >= 2 && store_number(rs.b, code[at])) {
                steps -= 1;
                rs.next = at + 1;
            }
            return true;
        case shape::arithmetic:
            top_slot(rs.b) = v;
            if (!arithmetic_at(rs, at, 1, code, steps) && v->type == Tag::STRING)
                append_at(rs, at, 1, code, count, steps);
            return true;
        case shape::add_other:
            top_slot(rs.b) = v;
            if (v->type == Tag::STRING) append_at(rs, at, 1, code, count, steps);
            return true;
        case shape::member:
            top_slot(rs.b) = v;
            member_step(rs, at, code, count, steps);
            return true;
        default:
            // No fused sequence starts with this pair: the LOAD alone.
            top_slot(rs.b) = v;
            return true;
    }
}

}  // namespace fused

}  // namespace vrk
