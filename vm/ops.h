// The instruction effects the run loop dispatches to (private to vm/).
//
// `run` (vm/run.cpp) owns the one dispatch loop; each case hands the work to a
// helper declared here, grouped by concern in its own file: stack handling,
// arithmetic, comparison, jumps, stores, subscripts and member access, calls,
// and the ways a run ends early. A helper that can end the run answers with a
// `Flow`; all others simply let the loop go on. Helpers that change where the
// loop goes next write `run_state::next`.
//
// The stack of a running block is never empty: a fresh run pushes the address
// of `scratch`, and every pop below refuses to take the last slot. So the top
// slot may always be read; it may hold null, which means "nothing yet".
// Temporaries come from the block's own temp pool and go back to it; the
// shared constants and the block's embedded cells are never handed back.
#pragma once

#include <cstdint>

#include "values/cell.h"
#include "values/operators.h"
#include "values/pools.h"
#include "vm/block.h"
#include "vm/instruction.h"
#include "vm/run.h"

namespace vrk {

// What an instruction asks of the loop.
enum class Flow : uint8_t {
    next,     // go on at run_state::next (after the suspension check)
    end,      // the run ends now with the top slot as its result
    suspend,  // the run ends suspended; resume_at has been set
};

// The loop's view of one run in progress.
struct run_state {
    vrkblock* b;    // the running block
    uint32_t ip;    // index of the instruction being executed
    uint32_t next;  // index of the instruction to execute after it
    bool resumed;   // this is the first instruction of a resumed run
    // A string left in place by the operand step of a `+` two instructions on
    // (operand_step), the temp that stands for it, and where that step ran.
    vrkvar* kept_left = nullptr;
    vrkvar* kept_temp = nullptr;
    uint32_t kept_at = 0;
};

// Pointer values of cells below this are no-value markers wherever a store or a
// native result is involved.
inline constexpr uintptr_t kMarkerLimit = 11;

// ---- small helpers of the hot path -------------------------------------------------

[[gnu::always_inline]] inline vrkvar*& top_slot(vrkblock* b) { return b->stack.back(); }

// The block an instruction names in `ref`, or null when `ref` is a mode number,
// zero or all ones.
[[gnu::always_inline]] inline vrkblock* operand_block(const vrkinstr& ins) {
    if (ins.ref < kFirstBlockRef || ins.ref == kRefMinusOne) return nullptr;
    return ins.ref_block();
}

// Variable `index` of `block`, or null when the block has no such index. (A
// negative index converts to a number past every size: one comparison tests
// both ends.)
[[gnu::always_inline]] inline vrkvar* var_at(const vrkblock* block, int64_t index) {
    if (!block || static_cast<uint64_t>(index) >= block->vars.size()) return nullptr;
    return block->vars[static_cast<std::size_t>(index)];
}

// True when `index` is a valid variable index of `block`.
[[gnu::always_inline]] inline bool has_var(const vrkblock* block, int64_t index) {
    return block && static_cast<uint64_t>(index) < block->vars.size();
}

// The slot-load that LOAD with a block, the aliases and the operand steps share:
// a named variable goes into the top slot, sub-code -2 puts the void constant.
[[gnu::always_inline]] inline void slot_load(vrkblock* b, const vrkinstr& ins) {
    if (vrkblock* owner = operand_block(ins); has_var(owner, ins.arg)) {
        top_slot(b) = owner->vars[static_cast<std::size_t>(ins.arg)];
    } else if (ins.arg == -2) {
        top_slot(b) = void_value();
    }
}

// `s += piece` and `a + piece` copy the left string into the temp of the
// operand step and then copy it again into the result: twice the whole text for
// every append. When the right operand is a single LOAD and the `+` follows it
// at once, nothing that runs between this step and the `+` can read or change
// the left cell, and the `+` writes its result into that very cell, which would
// end up as its own text followed by the piece. The step then copies nothing:
// the string stays where it is, the temp is taken (and given back by the `+`)
// as usual, and the `+` appends the piece in place (add_values, vm/arith.cpp;
// the whole sequence in one step, vm/fused_paths.h). Should the run end in
// between, the string has not been touched. Only plain string cells qualify,
// and only pieces whose text runs no script or object code.
//
// The operand step at index `at` of `code` on the cell `v`: the piece the `+`
// appends to `v` in place, or null when `v` is copied as usual.
[[gnu::always_inline]] inline const vrkvar* piece_appended_in_place(const vrkinstr* code,
                                                                    std::size_t count, uint32_t at,
                                                                    const vrkvar* v) {
    if (code[at].opcode() != Op::ADD_TMP || code[at].ref != 0) return nullptr;
    if (is_marker(v, kMarkerLimit) || v->type != Tag::STRING || !v->value.str || v->constant)
        return nullptr;
    // A movable cell gives its text to the temp instead; a fresh result would
    // hand its ownership bit over.
    if ((v->flags & flag::MOVABLE) || (v->attrs & attr::FRESH_RESULT)) return nullptr;
    if (std::size_t{at} + 2 >= count) return nullptr;
    const vrkinstr& load = code[at + 1];
    if (load.opcode() != Op::LOAD || code[at + 2].opcode() != Op::ADD) return nullptr;
    // A LOAD naming a variable only puts that cell into the top slot.
    const vrkvar* piece = var_at(operand_block(load), load.arg);
    if (is_marker(piece, kMarkerLimit) || piece == v) return nullptr;
    if (piece->type != Tag::STRING && piece->type != Tag::INT && piece->type != Tag::FLOAT)
        return nullptr;
    return piece;
}

// True when free_temp hands `cell` back to the pool. Markers, constants (the
// shared cells and hidden literals, including the erase constant a store keeps
// in place of a copy) and the embedded cells are not temporaries and stay out.
[[gnu::always_inline]] inline bool is_pooled_temp(const vrkblock* b, const vrkvar* cell) {
    if (is_marker(cell, kMarkerLimit) || cell->constant) return false;
    return !b->is_embedded(cell);
}

// ---- transient values ---------------------------------------------------------------
// A call's result cell (`result`, `native_result`) and a temp hold a value only
// until the next call of that kind or the next free: the next builtin called
// from a block empties its `native_result`, a script function's next run
// overwrites its `result`, a temp goes back to the pool. Whatever lies inside
// such a value (the element a subscript read, the member of an instance) goes
// with it. So a pointer to it must not outlive the expression that made it:
// - an argument that is such an element is passed as a copy, never by
//   reference (as the result cells and temps themselves already are);
// - the owner of a member call reached through one (`f()[k].g()`) is forgotten
//   as soon as a temp is given back, so that no later call binds `this` or
//   `self` to a value that is gone. (Any owner is forgotten at a store and when
//   a builtin is entered, which may free any value: the owner is for the call
//   right behind the subscript.)
// The block remembers the last element read out of a transient value
// (`transient_element`) and whether `member_owner` is transient.

// True for a cell that lives only until the next call or free (above).
[[gnu::always_inline]] inline bool is_transient(const vrkblock* b, const vrkvar* c) {
    return (c->attrs & attr::NO_REF_WRAP) || (c->flags & flag::MOVABLE) ||
           (b->transient_element && c == b->transient_element);
}

// Forgets a transient owner of the next member call.
[[gnu::always_inline]] inline void forget_transient_owner(vrkblock* b) {
    if (b->owner_transient) {
        b->member_owner = nullptr;
        b->owner_transient = 0;
    }
}

// return_temp (vm/temps.h) in line: the pool counts one temp less in use and
// has `cell` on its free list.
[[gnu::always_inline]] inline void return_temp_fast(vrkblock* b, vrkvar* cell) {
    vrktemp_pool& pool = b->temp_pool;
    --pool.in_use;
    pool.free.push_back(cell);
}

// Hands a temporary back to the block's pool. A member owner that may lie in it
// is forgotten first.
[[gnu::always_inline]] inline void free_temp(vrkblock* b, vrkvar* cell) {
    if (is_pooled_temp(b, cell)) {
        forget_transient_owner(b);
        return_temp_fast(b, cell);
    }
}

// take_temp (vm/temps.h) with the blanking in line (take_blank_temp), for the
// temps of the call paths; any temp that needs the general reset, a constant,
// or an empty pool takes take_temp.
[[gnu::always_inline]] inline vrkvar* take_temp_fast(vrkblock* b) {
    if (vrkvar* cell = take_blank_temp(&b->temp_pool)) return cell;
    return take_temp(b);
}

// assign's path for a number into a cell holding a number of the same type
// (neither constant nor typed), in line: the attribute mask, the hand-over of
// a fresh result's bit, `aux` and `block` cleared, the value word copied. With
// `kRetag` the destination may hold the other number type or VOID, whose
// change of tag releases nothing and leaves the block word as it was. The
// caller has checked the cells. With `kBlank` the destination is a blank temp
// (take_temp: `attrs` and `aux` zero), whose mask and `aux` stay as they are.
template <bool kRetag = false, bool kBlank = false>
[[gnu::always_inline]] inline void copy_number(vrkvar* dst, vrkvar* src) {
    if (!kBlank) dst->attrs &= attr::KEEP_MASK;
    if (src->attrs & attr::FRESH_RESULT) [[unlikely]] {
        src->attrs &= static_cast<uint16_t>(~attr::FRESH_RESULT);
        dst->attrs |= attr::OWNS_RESULT;
    }
    if (!kBlank) dst->aux = 0;
    if (!kRetag || dst->type == src->type)
        dst->block = nullptr;
    else
        dst->type = src->type;
    dst->value = src->value;
}

// ---- stack handling (vm/stack_ops.cpp) --------------------------------------------------
// Pops one slot unless it is the last one; false (and a log line) when refused.
bool pop_slot(vrkblock* b);
// The left-operand step of the binary operators: [.. v] -> [.. v t null].
void operand_step(run_state& rs, const vrkinstr& ins);
// PUSH: copy top into a movable temp and open a slot, or push `arg` slots.
void push_slots(vrkblock* b, const vrkinstr& ins);
// ARG: wrap the top value as an argument (copy or REF) in a fresh temp.
void wrap_argument(vrkblock* b, const vrkinstr& ins);
// POP in its four modes.
void pop_slots(vrkblock* b, const vrkinstr& ins);
// FREE_TOP: give the top temp back and empty the slot.
void free_top(vrkblock* b);
// SWAP two slots counted from the top.
void swap_slots(vrkblock* b, const vrkinstr& ins);
// RESET: forget the pending index, or drop the top of the object stack.
inline void reset_state(vrkblock* b, const vrkinstr& ins) {
    if (ins.arg == 0) {
        b->pending_index = -1;
    } else if (ins.arg == 1 && b->object_stack && b->object_stack->size() > 1) {
        b->object_stack->pop_back();
    }
}
// LOAD with `ref` 0 and a sub-code other than the call start and `return`.
void load_constant(vrkblock* b, const vrkinstr& ins);
// DEREF: one step along a REF in the top slot.
void deref_top(vrkblock* b);

// ---- arithmetic (vm/arith.cpp) ------------------------------------------------------------
// ADD, SUB, MULT, DIV, EXP: [.. res t rhs] -> [.. res], res := t op rhs.
void arithmetic(vrkblock* b, BinOp op);
// ADD: arithmetic, or the append in place of a string the operand step kept.
void add_values(run_state& rs);
// BIT_OR, BIT_XOR, BIT_AND on the integer values of both operands.
void bit_operation(vrkblock* b, const vrkinstr& ins);
// INC and DEC in place on the top cell.
void step_in_place(vrkblock* b, bool up);
// NOT and INVERT, answering in `scratch`.
void logical_not(vrkblock* b);
void invert_bits(vrkblock* b);

// ---- comparison (vm/compare.cpp) ----------------------------------------------------------
void compare(vrkblock* b, const vrkinstr& ins);

// ---- jumps (vm/jumps.cpp) -------------------------------------------------------------------
Flow jump(run_state& rs, const vrkinstr& ins);
// JMP_FALSE, and with `loop` set JMP_FALSE_LOOP.
Flow jump_if_false(run_state& rs, const vrkinstr& ins, bool loop);

// ---- stores (vm/store.cpp) ------------------------------------------------------------------
// SET, and with `through_ref` set SET_DEREF.
Flow store(run_state& rs, const vrkinstr& ins, bool through_ref);
// MAKE_REF, which is also where a store into a by-reference parameter goes.
void rebind(vrkblock* b, const vrkinstr& ins);

// ---- subscripts and members (vm/index.cpp, vm/member.cpp) ---------------------------------
Flow index_value(run_state& rs, vrkinstr& ins);
// Member of an instance by key: the variable, the answer of `oparray`, the
// instance itself, kSuspended, or a marker.
vrkvar* class_member(vrkblock* b, vrkinstr& ins, vrkvar* instance, vrkvar* key);
// CLASS_ACCESS: member `arg` of the instance in the top slot takes the slot,
// and the instance becomes the owner of a call right behind it. False, having
// done nothing, when the top slot holds no instance with such a member: the
// instruction is then class_access_error.
void class_access_error(vrkblock* b);
[[gnu::always_inline]] inline bool class_access(vrkblock* b, const vrkinstr& ins) {
    vrkvar*& slot = top_slot(b);
    vrkvar* owner = is_marker(slot, kMarkerLimit) ? nullptr : chain_end(slot);
    if (owner && owner->type == Tag::CLASS && has_var(owner->block, ins.arg)) {
        const bool transient = is_transient(b, owner);
        slot = owner->block->vars[static_cast<std::size_t>(ins.arg)];
        b->member_owner = owner;
        b->owner_transient = transient ? 1 : 0;
        b->transient_element = transient ? slot : nullptr;
        return true;
    }
    return false;
}

// ---- calls (vm/calls.cpp, vm/native_call.cpp) ----------------------------------------------
// LOAD sub-code 4: put a temp copy of the function cell on `callblocks`.
void start_call(vrkblock* b);
// CALL_PREP with a count, or with `ref` -1 the start of parameter binding.
Flow prepare_call(run_state& rs, const vrkinstr& ins);
// CALL in two halves, the run loop running the callee between them: the
// block to run (the caller's `callee` and `waiting_on` set), or null when the
// instruction has done all it does (no function, a class constructed
// directly, an error reported); then, once the callee's run has answered `r`,
// what the instruction makes of it. `callee_alive`: no block has been
// destroyed since the callee's run began.
vrkblock* call_enter(run_state& rs, const vrkinstr& ins);
Flow call_returned(run_state& rs, vrkblock* callee, vrkvar* r, bool callee_alive);
// EXTERNAL, the one instruction of a native block.
Flow external(run_state& rs, const vrkinstr& ins);

// Binds `arg` as the variable `index` (which exists) of `callee`: a native
// callee collects it in the caller's `params`; a script callee's variable is
// swapped for it, and the displaced pointer kept in `params` goes back after
// the call.
[[gnu::always_inline]] inline void bind_parameter(vrkblock* b, vrkblock* callee, int64_t index,
                                                  vrkvar* arg) {
    if (callee->native) {
        b->params.push_back(arg);
        return;
    }
    vrkvar*& slot = callee->vars[static_cast<std::size_t>(index)];
    b->params.push_back(slot);
    slot = arg;
}

// SET with `ref` -1 and a variable index: the binding of one argument into the
// function of the call being prepared, as store does it for a plain function
// cell in `callblocks` (a native callee collects the argument, a script callee
// swaps it into its variable and keeps the displaced pointer). False, having
// done nothing, for anything else (a class, a reference, a bad index), which
// store handles.
[[gnu::always_inline]] inline bool bind_argument(vrkblock* b, const vrkinstr& ins) {
    if (b->callblocks.empty()) return false;
    vrkvar* fn = b->callblocks.back();
    if (is_marker(fn, kMarkerLimit) || fn->type != Tag::FUNCTION) return false;
    vrkblock* callee = fn->block;
    if (!has_var(callee, ins.arg)) return false;
    b->member_owner = nullptr;
    b->owner_transient = 0;
    bind_parameter(b, callee, ins.arg, top_slot(b));
    return true;
}

// restore_params (vm/run.h), skipping the look-up in the live blocks when the
// caller knows the callee still exists (no block destroyed since it was entered).
void restore_params(vrkblock* block, bool callee_alive);

// ---- ends of a run and signals (vm/block_exit.cpp) --------------------------------------------
// LOAD sub-code -1.
Flow return_value(run_state& rs);
Flow break_loop(run_state& rs, const vrkinstr& ins);
// RUN_CHILD: the child named by `arg` runs as a nested run of this block.
Flow run_child(run_state& rs, const vrkinstr& ins);
// Its two halves, for a run loop with its own way of running the body: the
// child to run (with `waiting_on` set and `this` and `self` shared), or null
// when the instruction names none and does nothing; then, once the child's run
// has ended with `r` (kSuspended, or null when it could not be entered), what
// the instruction makes of it.
// Both are in line for the common case (no `this` or `self` to share, an
// ordinary end of the child) and leave the rest to the out-of-line parts.
void share_this_and_self(vrkblock* b, vrkblock* child);
Flow child_ended_signals(run_state& rs, vrkblock* child, vrkvar* r);

[[gnu::always_inline]] inline vrkblock* child_to_run(run_state& rs, const vrkinstr& ins) {
    vrkblock* b = rs.b;
    if (!b->children || static_cast<uint64_t>(ins.arg) >= b->children->size()) return nullptr;
    vrkblock* child = (*b->children)[static_cast<std::size_t>(ins.arg)];
    if (!child) return nullptr;
    b->waiting_on = child;
    if (child->this_index >= 0 || child->self_index >= 0) share_this_and_self(b, child);
    return child;
}

[[gnu::always_inline]] inline Flow child_ended(run_state& rs, vrkblock* child, vrkvar* r) {
    // Neither suspended nor a signal to pass on, and a value, or none from a
    // child that is not waiting: the child's answer goes into the top slot.
    if (r == kSuspended || child->return_signal || child->loop_signal ||
        (child->resume_at != 0 && is_marker(r, kMarkerLimit)))
        return child_ended_signals(rs, child, r);
    vrkblock* b = rs.b;
    if (child->resume_at == 0) b->waiting_on = nullptr;
    top_slot(b) = r;
    return Flow::next;
}
// What every early end of a run clears before the run ends.
void end_in_place(vrkblock* b);

}  // namespace vrk
