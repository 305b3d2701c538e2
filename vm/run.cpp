// The run loop: entry into a block, the one dispatch loop over its instructions,
// suspension and the normal end of a run.
#include "vm/run.h"

#include <new>
#include <optional>
#include <stdexcept>
#include <string>

#include "base/context.h"
#include "base/log.h"
#include "values/value_context.h"
#include "vm/block.h"
#include "vm/debug_runs.h"
#include "vm/element_paths.h"
#include "vm/errors.h"
#include "vm/fused_paths.h"
#include "vm/native_call.h"
#include "vm/ops.h"
#include "vm/run_start.h"

namespace vrk {

namespace {

// A block that is running or sleeping cannot be entered again (a native block
// can: it keeps nothing between calls). The refusal clears `running` even of a
// block whose own run loop is still going on; that loop carries on regardless.
[[gnu::always_inline]] inline bool may_enter(vrkblock* b, vrkblock* caller, uint32_t start) {
    if (b->native) return true;
    const bool was_running = b->running != 0;
    const bool was_sleeping = b->sleeping != 0;
    if (!was_running && !was_sleeping) b->running = 1;
    if ((start == 0 && b->resume_at != 0) || was_running || was_sleeping) {
        const std::string* text = b->full_source ? b->full_source : b->code_text;
        log().log("Script already running! %s", text ? text->c_str() : "");
        if (caller) caller->suspended = 1;
        end_running(b);
        return false;
    }
    return true;
}

// `self` 0 keeps the saved self cell, all ones binds nothing; anything else is
// the `this` of this run.
[[gnu::always_inline]] inline void bind_self(vrkblock* b, vrkvar* self) {
    if (self == nullptr || self == kSelfUnchanged) return;
    b->self_cell = self;
    if (vrkvar* this_cell = b->this_var()) {
        this_cell->flags |= flag::NO_COUNT;
        assign(this_cell, deref(self), b);
    }
}

[[gnu::always_inline]] inline vrkvar* top_or_null(vrkblock* b) {
    return b->stack.empty() ? nullptr : b->stack.back();
}

vrkvar* normal_end(vrkblock* b) {
    b->resume_at = 0;
    b->suspended = 0;
    run_cleanup(b);
    if (b->stack.size() != 1) log().log("\nstack size: %i\n", static_cast<int>(b->stack.size()));
    b->waiting_on = nullptr;
    b->self_cell = nullptr;
    vrkvar* result = top_or_null(b);
    end_running(b);
    return result;
}

// An end asked for by an instruction, which has done its own clearing.
vrkvar* early_end(vrkblock* b, Flow flow) {
    end_running(b);
    return flow == Flow::suspend ? kSuspended : top_or_null(b);
}

// The step budget has run out. It stays spent (at 1, so that every further
// instruction of every run comes here again) until the host sets a new one;
// only the first time is reported. A run ends at its next instruction, except
// where ending it would leave something half done: on the first instruction of
// a resumed run, while it waits for a callee, and while arguments are being
// bound (the parameters go back only once all of them are). There it goes on
// for a few instructions: the waiting chain resumes down to its innermost
// block, a call being bound is made, and the callee ends at once.
bool budget_stop(vrkcontext& ctx, const vrkblock* b, const run_state& rs) {
    ctx.step_budget = 1;
    if (!ctx.step_budget_spent) {
        ctx.step_budget_spent = true;
        log().error("step budget used up: script runs stopped");
    }
    return !rs.resumed && !b->waiting_on && !(b->params_bound && !b->params.empty());
}

// The end of a run stopped by the step budget. What the next instructions
// would have taken up (the owner of a member call, the objects being indexed)
// is forgotten; then the run ends as a normal end does, whose clean-up gives
// back the temporaries still in use.
vrkvar* forced_end(vrkblock* b) {
    b->member_owner = nullptr;
    if (b->object_stack) b->object_stack->clear();
    return normal_end(b);
}

// The fast paths a run takes, read from the value context once per run and
// handed down to the bodies it runs (the tests switch each off to compare).
// They travel as one word of bits, which a call passes in a register, rather
// than as three flags put together byte by byte on the stack for every nested
// run.
struct loop_switches {
    static constexpr uint32_t kFused = 1;  // fused number sequences (vm/fused_paths.h)
    static constexpr uint32_t kLight = 2;  // the light entry of if/loop bodies (run_body)
    static constexpr uint32_t kCalls = 4;  // the in-line steps of calls (call_paths)
    uint32_t bits;                         // the switches that are on
    bool fused() const { return (bits & kFused) != 0; }
    bool light() const { return (bits & kLight) != 0; }
    bool calls() const { return (bits & kCalls) != 0; }
};

// How a run of the dispatch loop begins: the full entry of `run` (with the
// debug record), the light entry of an if/loop body, or the rest of a body
// whose entry and first step the flat entry (run_flat_body) has already done.
enum class Entry : uint8_t { full, body, continued };

template <Entry kEntry>
vrkvar* run_block(vrkcontext& ctx, vrkblock* b, vrkblock* caller, uint32_t start, vrkvar* self,
                  loop_switches switches);

// The light entry of an if/loop body: resume(child, parent, parent->self_cell)
// without what a body can do without. The process context and the switches
// come from the parent's run instead of being looked up again, and there is no
// debug record to keep (with debug tables bodies take the full entry). The
// depth budget, the entry checks, the fresh start, `this` and every end are
// those of any run.
[[gnu::always_inline]] inline vrkvar* run_body(vrkcontext& ctx, vrkblock* child, vrkblock* parent,
                                               loop_switches switches) {
    return run_block<Entry::body>(ctx, child, parent, child->resume_at, parent->self_cell,
                                  switches);
}

// A body of a few instructions that begins with the load of a named variable
// is, most of the time, one fused sequence: `total += i;`, `i++;`, `x = y;`.
// Such a body can run without a nested run of the loop: what matters of a run
// is what it leaves in the block, not the host frame it used. The flat entry
// takes a body only when entering it could not be refused or stopped (not
// running, sleeping or suspended, depth budget and step budget to spare), so
// that the entry comes down to its effects on the block.
constexpr std::size_t kFlatBodyLimit = 4;

[[gnu::always_inline]] inline bool flat_entry_applies(const vrkcontext& ctx, const vrkblock* child,
                                                      loop_switches switches) {
    const std::size_t count = child->code.size();
    if (!switches.fused() || count == 0 || count > kFlatBodyLimit) return false;
    const vrkinstr& first = child->code.front();
    return first.opcode() == Op::LOAD && first.ref != 0 && !child->native && !child->running &&
           !child->sleeping && child->resume_at == 0 && ctx.depth_budget > 1 && ctx.step_budget > 1;
}

vrkvar* out_of_memory_end(vrkblock* b);

// `{ return v; }` once its load has run: the return at `at`, the end of the
// code, as the dispatch loop runs it, with the depth budget held as the
// nested run would hold it (letting go of the old result or of scoped
// variables may run a destructor). Out of line and with a run state of its
// own, so that the body's first step keeps its state in registers.
[[gnu::noinline]] vrkvar* flat_return(vrkcontext& ctx, vrkblock* b, uint32_t at) {
    depth_guard depth(ctx.depth_budget);
    --ctx.step_budget;
    run_state rs{b, at, at + 1, false};
    const Flow flow = return_value(rs);
    if (flow != Flow::next) return early_end(b, flow);
    if (b->suspended) {
        b->resume_at = b->suspended == 1 ? rs.ip : rs.ip + 1;
        end_running(b);
        return kSuspended;
    }
    return normal_end(b);
}

// True for `LOAD -1`, the return of the value in the top slot.
[[gnu::always_inline]] inline bool is_return(const vrkinstr& ins) {
    return ins.opcode() == Op::LOAD && ins.ref == 0 && ins.arg == load_code::RETURN;
}

// The body `child` of `parent` by the flat entry: the entry's effects on the
// block (as `enter` has them for a fresh run that may go in), the budget step
// of its first instruction, and the fused step that starts with the load.
// When that step ran the whole code, the run ends here as any run ends at the
// end of its code (`whole` is set: no signal can have been raised and nothing
// waits); when only a `return` is left, it runs here too; otherwise the
// dispatch loop goes on with the instruction after the step, as it would have
// after an in-line step. The first step reaches no script code, so nothing
// nests while the depth budget is not held.
struct flat_run {
    vrkvar* result;  // what the run answered
    bool whole;      // the fused step ran the whole code and the run has ended
};

flat_run run_flat_body(vrkcontext& ctx, vrkblock* child, vrkblock* parent, loop_switches switches) {
    child->running = 1;
    fresh_start(child);
    bind_self(child, parent->self_cell);
    child->caller = parent;
    child->loop_signal = 0;
    child->return_signal = 0;
    child->suspended = 0;
    const vrkinstr* const code = child->code.data();
    const std::size_t count = child->code.size();
    uint64_t& steps = ctx.step_budget;
    --steps;
    run_state rs{child, 0, 1, false};
    if (!fused::load_step(rs, code, count, steps)) {
        // Not a variable the load can name: the loop runs it from the start,
        // and counts it there.
        ++steps;
        return {run_block<Entry::continued>(ctx, child, parent, 0, nullptr, switches), false};
    }
    if (rs.next >= count) return {normal_end(child), true};
    if (rs.next + 1 == count && steps >= 2 && is_return(code[rs.next]))
        return {flat_return(ctx, child, rs.next), false};
    return {run_block<Entry::continued>(ctx, child, parent, rs.next, nullptr, switches), false};
}

// A body whose first step by the flat entry ran out of memory (an append
// can) ends as a nested run of it ends on that fault: the body's run, not its
// parent's, with the depth budget held as that run would hold it. The steps
// the nested runs after it take have handlers of their own.
[[gnu::noinline, gnu::cold]] vrkvar* flat_out_of_memory(vrkcontext& ctx, vrkblock* child) {
    depth_guard depth(ctx.depth_budget);
    return out_of_memory_end(child);
}

// RUN_CHILD with the light entry (run_body) for its body.
[[gnu::always_inline]] inline Flow run_child_light(vrkcontext& ctx, run_state& rs,
                                                   const vrkinstr& ins, loop_switches switches) {
    vrkblock* child = child_to_run(rs, ins);
    if (!child) return Flow::next;
    vrkblock* parent = rs.b;
    if (ctx.debug_info) return child_ended(rs, child, resume(child, parent, parent->self_cell));
    if (flat_entry_applies(ctx, child, switches)) {
        flat_run flat;
        try {
            flat = run_flat_body(ctx, child, parent, switches);
        } catch (const std::bad_alloc&) {
            flat = {flat_out_of_memory(ctx, child), false};
        } catch (const std::length_error&) {
            flat = {flat_out_of_memory(ctx, child), false};
        }
        if (flat.whole) {
            // child_ended for a run that ended at the end of its code.
            parent->waiting_on = nullptr;
            top_slot(parent) = flat.result;
            return Flow::next;
        }
        return child_ended(rs, child, flat.result);
    }
    return child_ended(rs, child, run_body(ctx, child, parent, switches));
}

// The end of a run whose instruction could not get the memory it needed. The
// instruction is abandoned half done, so nothing of the run's working state can
// be trusted: the displaced parameters go back, every temp is given back, the
// pending owner and objects are forgotten, and the run ends as a normal end
// does, answering the void value. The caller goes on.
vrkvar* out_of_memory_end(vrkblock* b) {
    b->member_owner = nullptr;
    b->pending_index = -1;
    if (b->object_stack) b->object_stack->clear();
    if (b->params_bound && !b->params.empty() && b->callee) restore_params(b);
    b->params_bound = 0;
    b->params.clear();
    release_temps(b);
    top_slot(b) = void_value();
    // The report comes once the run's memory is back; should even it find
    // none, the run still ends.
    try {
        runtime_error("ALLOCATION_FAILURE", b);
    } catch (const std::bad_alloc&) {}
    return normal_end(b);
}

// The report of a run refused for want of depth budget.
void report_depth(const vrkcontext& ctx) {
    // Too deep for the host stack: the block is not entered and the call
    // answers nothing; the caller's run goes on, as after any runtime error.
    if (ctx.depth_limit)
        log().error(
            "\nRuntime error: run depth budget used up: the limit is %u nested runs "
            "(calls and block bodies), block not entered\n",
            ctx.depth_limit);
    else
        log().error("run depth budget used up: block not entered");
}

// Everything the start of a run does to its block once the depth budget has
// let it in; false when the block may not be entered.
[[gnu::always_inline]] inline bool enter(vrkblock* b, vrkblock* caller, uint32_t start,
                                         vrkvar* self) {
    if (!may_enter(b, caller, start)) return false;
    if (start == 0) {
        fresh_start(b);
    } else if (b->stack.empty()) {
        b->stack.push_back(&b->scratch);
    }
    bind_self(b, self);
    b->caller = caller ? caller : b;
    b->loop_signal = 0;
    b->return_signal = 0;
    b->suspended = 0;
    return true;
}

// The opcode numbers run from 0 without a gap, so that the label table of the
// dispatch loop, generated from the opcode table in its order, is indexed by
// the number itself.
constexpr bool opcodes_dense() {
    int position = 0;
    bool dense = true;
#define VRK_OP_POSITION(name, number, effect, arg, ref) dense = dense && (number) == position++;
    VRK_OPCODES(VRK_OP_POSITION)
#undef VRK_OP_POSITION
    return dense && position == kOpcodeCount;
}
static_assert(opcodes_dense(), "opcode numbers must run from 0 without a gap");

// Every value an instruction's opcode byte can take.
static_assert(sizeof(vrkinstr::op) == 1, "the label table covers one byte of opcode");
constexpr std::size_t kOpcodeSpace = 256;

// The load of a named variable 16 and 256 times, for the entries of the label
// table past the opcodes.
#define VRK_OTHER16                                                                         \
    &&op_other, &&op_other, &&op_other, &&op_other, &&op_other, &&op_other, &&op_other,     \
        &&op_other, &&op_other, &&op_other, &&op_other, &&op_other, &&op_other, &&op_other, \
        &&op_other, &&op_other,
#define VRK_OTHER256                                                                        \
    VRK_OTHER16 VRK_OTHER16 VRK_OTHER16 VRK_OTHER16 VRK_OTHER16 VRK_OTHER16 VRK_OTHER16     \
        VRK_OTHER16 VRK_OTHER16 VRK_OTHER16 VRK_OTHER16 VRK_OTHER16 VRK_OTHER16 VRK_OTHER16 \
            VRK_OTHER16 VRK_OTHER16

// A run of block `b` from instruction `start`, as `run` describes it, with the
// one dispatch loop; `kEntry` says how it begins (Entry): a body keeps no debug
// record, and a continued body has been entered already.
//
// Dispatch is threaded: every instruction's code ends with its own copy of the
// step between instructions (the flow and suspension checks, the step budget)
// and jumps straight to the code of the next instruction through a table of
// label addresses. The table is generated from the opcode table, one label per
// opcode, so an opcode without code here does not compile. A number past the
// table (and the never-emitted aliases) loads the named variable.
//
// With `fused` set an instruction may run a whole fused sequence that starts
// at it (vm/fused_paths.h). A function with a label table is never inlined:
// the entry of a run is done here, in the same frame.
template <Entry kEntry>
[[gnu::noinline]] vrkvar* run_block(vrkcontext& ctx, vrkblock* const b, vrkblock* caller,
                                    uint32_t start, vrkvar* self, loop_switches switches) {
    depth_guard depth(ctx.depth_budget);
    if (ctx.depth_budget == 0) [[unlikely]] {
        report_depth(ctx);
        return nullptr;
    }
    if constexpr (kEntry != Entry::continued) {
        if (!enter(b, caller, start, self)) return nullptr;
    }
    run_state rs{b, start, start, kEntry != Entry::continued && start != 0};
    // With debug tables the run is recorded with its position, so that a
    // trace names the statement being run rather than the one it resumes at.
    std::optional<debug_run_scope> recorded;
    if constexpr (kEntry == Entry::full) {
        if (ctx.debug_info) recorded.emplace(b, &rs.ip);
    }
    // A block's code does not change while the block runs.
    vrkinstr* const code = b->code.data();
    const std::size_t count = b->code.size();
    uint64_t& steps = ctx.step_budget;
    const bool fused = switches.fused();
    // An entry for every value of the opcode byte, so that dispatch needs no
    // range test: the opcodes, then the load of a named variable for every
    // number past them (the table has room to spare at the end).
    static const void* const labels[kOpcodeCount + kOpcodeSpace] = {
#define VRK_OP_LABEL(name, number, effect, arg, ref) &&op_##name,
        VRK_OPCODES(VRK_OP_LABEL)
#undef VRK_OP_LABEL
            VRK_OTHER256};
    Flow flow = Flow::next;

// Starts the instruction at rs.ip, or ends the run at the end of the code.
#define VRK_DISPATCH()                                         \
    do {                                                       \
        if (rs.ip >= count) return normal_end(b);              \
        if (--steps == 0) [[unlikely]] {                       \
            if (budget_stop(ctx, b, rs)) return forced_end(b); \
        }                                                      \
        rs.next = rs.ip + 1;                                   \
        goto* labels[code[rs.ip].op];                          \
    } while (0)
// The step between two instructions, `f` what the one just run answered.
#define VRK_NEXT(f)                                                                  \
    do {                                                                             \
        flow = (f);                                                                  \
        if (flow != Flow::next) return early_end(b, flow);                           \
        if (b->suspended) {                                                          \
            /* 1: stopped before this instruction, which runs again; 2: after it. */ \
            b->resume_at = b->suspended == 1 ? rs.ip : rs.ip + 1;                    \
            end_running(b);                                                          \
            return kSuspended;                                                       \
        }                                                                            \
        rs.resumed = false;                                                          \
        rs.ip = rs.next;                                                             \
        VRK_DISPATCH();                                                              \
    } while (0)
// The step after an instruction whose code ran in line and can neither end
// nor suspend the run (nothing it does reaches a script's code or the block's
// `suspended`): the suspension test, which found nothing before it, is left
// out.
#define VRK_NEXT_INLINE()   \
    do {                    \
        rs.resumed = false; \
        rs.ip = rs.next;    \
        VRK_DISPATCH();     \
    } while (0)
#define VRK_INS code[rs.ip]

    // Running out of memory is a run-time error of the script, not of the
    // host: the run that met it ends, and everything else goes on.
    try {
        VRK_DISPATCH();
    op_SET : {
        const vrkinstr& ins = VRK_INS;
        if (ins.ref == kRefMinusOne) {
            if (ins.arg >= 0 && switches.calls() && bind_argument(b, ins)) VRK_NEXT_INLINE();
        } else if (fused &&
                   (ins.arg == -2 ? fused::store_number_below(b) : fused::store_number(b, ins))) {
            VRK_NEXT_INLINE();
        }
        VRK_NEXT(store(rs, ins, false));
    }
    op_SET_DEREF:
        VRK_NEXT(store(rs, VRK_INS, true));
    op_MAKE_REF:
        rebind(b, VRK_INS);
        VRK_NEXT(Flow::next);
    op_DEREF:
        deref_top(b);
        VRK_NEXT(Flow::next);
    op_ADD_TMP:
    op_SUB_TMP:
    op_MULT_TMP:
    op_DIV_TMP:
    op_EXP_TMP:
    op_BIT_TMP:
    op_TMP:
        if (!fused) {
            operand_step(rs, VRK_INS);
        } else {
            const uint8_t shape = element_paths::operand_shape(code, count, rs.ip);
            if (shape == fused::shape::arithmetic && fused::arithmetic_step(rs, code, steps))
                VRK_NEXT_INLINE();
            if (!(shape == fused::shape::element &&
                  element_paths::arithmetic_step(rs, code, count, steps)))
                fused::number_operand_step(rs, VRK_INS);
        }
        VRK_NEXT(Flow::next);
    op_ADD:
        if (!(fused && rs.kept_left == nullptr && fused::operator_step(b, Op::ADD))) add_values(rs);
        VRK_NEXT(Flow::next);
    op_SUB:
        if (!(fused && fused::operator_step(b, Op::SUB))) arithmetic(b, BinOp::sub);
        VRK_NEXT(Flow::next);
    op_MULT:
        if (!(fused && fused::operator_step(b, Op::MULT))) arithmetic(b, BinOp::mult);
        VRK_NEXT(Flow::next);
    op_DIV:
        if (!(fused && fused::operator_step(b, Op::DIV))) arithmetic(b, BinOp::div);
        VRK_NEXT(Flow::next);
    op_EXP:
        arithmetic(b, BinOp::exp);
        VRK_NEXT(Flow::next);
    op_INC:
        step_in_place(b, true);
        VRK_NEXT(Flow::next);
    op_DEC:
        step_in_place(b, false);
        VRK_NEXT(Flow::next);
    op_CALL : {
        // The callee runs in a run of this loop, with this run's context and
        // switches, as `resume` would run it; a builtin's one-instruction
        // block is entered directly.
        vrkblock* callee = call_enter(rs, VRK_INS);
        if (!callee) VRK_NEXT(Flow::next);
        const uint64_t destroyed = value_context().blocks_destroyed;
        vrkvar* r = callee->native ? enter_native(callee, b)
                                   : run_block<Entry::full>(ctx, callee, b, callee->resume_at,
                                                            nullptr, switches);
        VRK_NEXT(call_returned(rs, callee, r, value_context().blocks_destroyed == destroyed));
    }
    op_CALL_PREP:
        if (VRK_INS.ref == kRefMinusOne && switches.calls() &&
            fused::binding_step(rs, code, count, steps))
            VRK_NEXT_INLINE();
        VRK_NEXT(prepare_call(rs, VRK_INS));
    op_RUN_CHILD:
        VRK_NEXT(switches.light() ? run_child_light(ctx, rs, VRK_INS, switches)
                                  : run_child(rs, VRK_INS));
    op_EXTERNAL:
        VRK_NEXT(external(rs, VRK_INS));
    op_PUSH:
        if (fused) {
            const uint8_t shape = element_paths::push_shape(code, count, rs.ip);
            if (shape == fused::shape::element && element_paths::push_step(rs, code, count, steps))
                VRK_NEXT(Flow::next);
            if (shape == fused::shape::member_store && fused::member_store_step(rs, code, steps))
                VRK_NEXT_INLINE();
        }
        if (!(fused && VRK_INS.arg == 0 && fused::push_number(b, VRK_INS))) push_slots(b, VRK_INS);
        VRK_NEXT(Flow::next);
    op_ARG:
        if (switches.calls() && fused::wrap_int_argument(b, VRK_INS)) VRK_NEXT_INLINE();
        wrap_argument(b, VRK_INS);
        VRK_NEXT(Flow::next);
    op_POP:
        pop_slots(b, VRK_INS);
        VRK_NEXT(Flow::next);
    op_FREE_TOP:
        free_top(b);
        VRK_NEXT(Flow::next);
    op_JMP : {
        // A jump inside the code, or to its end, in line; the jump routine
        // decides the rest (and reports what lies outside).
        const int64_t distance = VRK_INS.arg;
        if (distance >= -static_cast<int64_t>(rs.ip) - 1 &&
            distance < static_cast<int64_t>(count - rs.ip)) {
            rs.next = static_cast<uint32_t>(static_cast<int64_t>(rs.ip) + 1 + distance);
            VRK_NEXT_INLINE();
        }
        VRK_NEXT(jump(rs, VRK_INS));
    }
    op_JMP_FALSE:
        if (fused && fused::jump_on_int(rs, VRK_INS, count, false)) VRK_NEXT_INLINE();
        VRK_NEXT(jump_if_false(rs, VRK_INS, false));
    op_JMP_FALSE_LOOP:
        if (fused && fused::jump_on_int(rs, VRK_INS, count, true)) VRK_NEXT_INLINE();
        VRK_NEXT(jump_if_false(rs, VRK_INS, true));
    op_NOP:
        VRK_NEXT_INLINE();
    op_LOAD : {
        const vrkinstr& ins = VRK_INS;
        if (ins.ref != 0) {
            if (!fused || !fused::load_step(rs, code, count, steps)) slot_load(b, ins);
            VRK_NEXT_INLINE();
        }
        if (ins.arg == load_code::RETURN) VRK_NEXT(return_value(rs));
        if (ins.arg == load_code::CALL_START) {
            start_call(b);
        } else {
            load_constant(b, ins);
        }
        VRK_NEXT(Flow::next);
    }
    op_BREAK:
        VRK_NEXT(break_loop(rs, VRK_INS));
    op_CMP:
        compare(b, VRK_INS);
        VRK_NEXT(Flow::next);
    op_INDEX:
        VRK_NEXT(index_value(rs, VRK_INS));
    op_SWAP:
        swap_slots(b, VRK_INS);
        VRK_NEXT(Flow::next);
    op_BIT_OR:
    op_BIT_XOR:
    op_BIT_AND:
        bit_operation(b, VRK_INS);
        VRK_NEXT(Flow::next);
    op_NOT:
        logical_not(b);
        VRK_NEXT(Flow::next);
    op_INVERT:
        invert_bits(b);
        VRK_NEXT(Flow::next);
    op_RESET:
        reset_state(b, VRK_INS);
        VRK_NEXT_INLINE();
    op_CLASS_ACCESS:
        if (class_access(b, VRK_INS)) VRK_NEXT_INLINE();
        class_access_error(b);
        VRK_NEXT(Flow::next);
    // The never-emitted aliases and every number without a row load the
    // named variable.
    op_LOAD_ALIAS:
    op_LOAD_ALIAS2:
    op_other:
        slot_load(b, VRK_INS);
        VRK_NEXT(Flow::next);
    } catch (const std::bad_alloc&) {
        return out_of_memory_end(b);
    } catch (const std::length_error&) {
        return out_of_memory_end(b);
    }
#undef VRK_INS
#undef VRK_OTHER256
#undef VRK_OTHER16
#undef VRK_NEXT_INLINE
#undef VRK_NEXT
#undef VRK_DISPATCH
}

}  // namespace

vrkvar* run(vrkblock* b, vrkblock* caller, uint32_t start, vrkvar* self) {
    const vrkvalue_context& values = value_context();
    return run_block<Entry::full>(context(), b, caller, start, self,
                                  loop_switches{(values.fused_paths ? loop_switches::kFused : 0U) |
                                                (values.light_entry ? loop_switches::kLight : 0U) |
                                                (values.call_paths ? loop_switches::kCalls : 0U)});
}

vrkvar* resume(vrkblock* block, vrkblock* caller, vrkvar* self) {
    return run(block, caller, block->resume_at, self);
}

vrkvar* end_out_of_memory(vrkblock* block) { return out_of_memory_end(block); }

}  // namespace vrk
