// The run loop: entry into a block, the one dispatch loop over its instructions,
// suspension and the normal end of a run.
#include "vm/run.h"

#include <new>
#include <stdexcept>
#include <string>

#include "base/context.h"
#include "base/log.h"
#include "values/value_context.h"
#include "vm/block.h"
#include "vm/debug_runs.h"
#include "vm/errors.h"
#include "vm/fused_paths.h"
#include "vm/ops.h"

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

[[gnu::always_inline]] inline void fresh_start(vrkblock* b) {
    b->waiting_on = nullptr;
    b->self_cell = nullptr;
    // The stack keeps its memory: one slot, the scratch cell.
    if (b->stack.empty()) {
        b->stack.push_back(&b->scratch);
    } else {
        b->stack.erase(b->stack.begin() + 1, b->stack.end());
        b->stack.front() = &b->scratch;
    }
    b->params.clear();
    b->pending_index = -1;
    if (!b->callblocks.empty()) {
        log().log("callblocks is not zero!");
        b->callblocks.clear();
    }
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

// True when run_cleanup would find nothing to do, as at the end of most runs.
[[gnu::always_inline]] inline bool nothing_to_clean(const vrkblock* b) {
    return b->self_index < 0 && !(b->scratch.attrs & attr::RESULT_BITS) &&
           !(b->params_bound && !b->params.empty() && b->callee) &&
           !(b->temp_pool && b->temp_pool->in_use != 0) && !b->scoped;
}

vrkvar* normal_end(vrkblock* b) {
    b->resume_at = 0;
    b->suspended = 0;
    if (!nothing_to_clean(b)) run_cleanup(b);
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

// Keeps the depth budget: one nested run taken on entry, given back at every
// end of the run.
struct depth_guard {
    uint32_t& left;
    explicit depth_guard(uint32_t& budget) : left(budget) { --left; }
    ~depth_guard() { ++left; }
    depth_guard(const depth_guard&) = delete;
    depth_guard& operator=(const depth_guard&) = delete;
};

// The fast paths a run takes, read from the value context once per run and
// handed down to the bodies it runs (the tests switch each off to compare).
struct loop_switches {
    bool fused;  // fused number sequences (vm/fused_paths.h)
    bool light;  // the light entry of if/loop bodies (run_body)
};

vrkvar* run_body(vrkcontext& ctx, vrkblock* child, vrkblock* parent, loop_switches switches);

// RUN_CHILD with the light entry (run_body) for its body.
[[gnu::always_inline]] inline Flow run_child_light(vrkcontext& ctx, run_state& rs,
                                                   const vrkinstr& ins, loop_switches switches) {
    vrkblock* child = child_to_run(rs, ins);
    if (!child) return Flow::next;
    vrkblock* parent = rs.b;
    vrkvar* r = ctx.debug_info ? resume(child, parent, parent->self_cell)
                               : run_body(ctx, child, parent, switches);
    return child_ended(rs, child, r);
}

// Executes one instruction, or with `fused` set a whole fused sequence that
// starts at it (vm/fused_paths.h). Kept in line in the loop: as a call of its
// own its entry and exit cost as much as a simple instruction.
[[gnu::always_inline]] inline Flow dispatch(vrkcontext& ctx, run_state& rs, vrkinstr& ins,
                                            const vrkinstr* code, std::size_t count,
                                            uint64_t& steps, loop_switches switches) {
    const bool fused = switches.fused;
    vrkblock* b = rs.b;
    Flow flow = Flow::next;
    switch (ins.opcode()) {
        case Op::SET: flow = store(rs, ins, false); break;
        case Op::SET_DEREF: flow = store(rs, ins, true); break;
        case Op::MAKE_REF: rebind(b, ins); break;
        case Op::DEREF: deref_top(b); break;
        case Op::ADD_TMP:
        case Op::SUB_TMP:
        case Op::MULT_TMP:
        case Op::DIV_TMP:
        case Op::EXP_TMP:
        case Op::BIT_TMP:
        case Op::TMP:
            if (fused && fused::arithmetic_step(rs, code, count, steps)) break;
            operand_step(rs, ins);
            break;
        case Op::ADD: add_values(rs); break;
        case Op::SUB: arithmetic(b, BinOp::sub); break;
        case Op::MULT: arithmetic(b, BinOp::mult); break;
        case Op::DIV: arithmetic(b, BinOp::div); break;
        case Op::EXP: arithmetic(b, BinOp::exp); break;
        case Op::INC: step_in_place(b, true); break;
        case Op::DEC: step_in_place(b, false); break;
        case Op::CALL: flow = call(rs, ins); break;
        case Op::CALL_PREP: flow = prepare_call(rs, ins); break;
        case Op::RUN_CHILD:
            flow = switches.light ? run_child_light(ctx, rs, ins, switches) : run_child(rs, ins);
            break;
        case Op::EXTERNAL: flow = external(rs, ins); break;
        case Op::PUSH: push_slots(b, ins); break;
        case Op::ARG: wrap_argument(b, ins); break;
        case Op::POP: pop_slots(b, ins); break;
        case Op::FREE_TOP: free_top(b); break;
        case Op::JMP: flow = jump(rs, ins); break;
        case Op::JMP_FALSE:
            if (fused && fused::jump_not_taken(b, false)) break;
            flow = jump_if_false(rs, ins, false);
            break;
        case Op::JMP_FALSE_LOOP:
            if (fused && fused::jump_not_taken(b, true)) break;
            flow = jump_if_false(rs, ins, true);
            break;
        case Op::NOP: break;
        case Op::LOAD:
            if (ins.ref != 0) {
                if (fused && fused::load_step(rs, code, count, steps)) break;
                slot_load(b, ins);
            } else if (ins.arg == load_code::RETURN) {
                flow = return_value(rs);
            } else if (ins.arg == load_code::CALL_START) {
                start_call(b);
            } else {
                load_constant(b, ins);
            }
            break;
        case Op::BREAK: flow = break_loop(rs, ins); break;
        case Op::CMP: compare(b, ins); break;
        case Op::INDEX: flow = index_value(rs, ins); break;
        case Op::SWAP: swap_slots(b, ins); break;
        case Op::BIT_OR:
        case Op::BIT_XOR:
        case Op::BIT_AND: bit_operation(b, ins); break;
        case Op::NOT: logical_not(b); break;
        case Op::INVERT: invert_bits(b); break;
        case Op::RESET: reset_state(b, ins); break;
        case Op::CLASS_ACCESS: class_access(b, ins); break;
        // The never-emitted aliases and every number without a case load
        // the named variable.
        case Op::LOAD_ALIAS:
        case Op::LOAD_ALIAS2:
        default: slot_load(b, ins); break;
    }
    return flow;
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

// The one dispatch loop: runs the block of `rs` from rs.ip to the end of its
// run, answering what the run answers.
[[gnu::always_inline]] inline vrkvar* run_loop(vrkcontext& ctx, run_state& rs,
                                               loop_switches switches) {
    vrkblock* const b = rs.b;
    // A block's code does not change while the block runs.
    vrkinstr* const code = b->code.data();
    const std::size_t count = b->code.size();
    uint64_t& steps = ctx.step_budget;
    while (rs.ip < count) {
        if (--steps == 0) [[unlikely]] {
            if (budget_stop(ctx, b, rs)) return forced_end(b);
        }
        vrkinstr& ins = code[rs.ip];
        rs.next = rs.ip + 1;
        Flow flow = Flow::next;
        // Running out of memory is a run-time error of the script, not of the
        // host: the run that met it ends, and everything else goes on.
        try {
            flow = dispatch(ctx, rs, ins, code, count, steps, switches);
        } catch (const std::bad_alloc&) {
            return out_of_memory_end(b);
        } catch (const std::length_error&) {
            return out_of_memory_end(b);
        }
        if (flow != Flow::next) return early_end(b, flow);
        if (b->suspended) {
            // 1: stopped before this instruction, which runs again; 2: after it.
            b->resume_at = b->suspended == 1 ? rs.ip : rs.ip + 1;
            end_running(b);
            return kSuspended;
        }
        rs.resumed = false;
        rs.ip = rs.next;
    }
    return normal_end(b);
}

// The light entry of an if/loop body: resume(child, parent, parent->self_cell)
// without what a body can do without. The process context and the switches
// come from the parent's run instead of being looked up again, and there is no
// debug record to keep (with debug tables bodies take the full entry). The
// depth budget, the entry checks, the fresh start, `this` and every end are
// those of any run.
[[gnu::noinline]] vrkvar* run_body(vrkcontext& ctx, vrkblock* child, vrkblock* parent,
                                   loop_switches switches) {
    depth_guard depth(ctx.depth_budget);
    if (ctx.depth_budget == 0) [[unlikely]] {
        report_depth(ctx);
        return nullptr;
    }
    const uint32_t start = child->resume_at;
    if (!enter(child, parent, start, parent->self_cell)) return nullptr;
    run_state rs{child, start, start, start != 0};
    return run_loop(ctx, rs, switches);
}

}  // namespace

vrkvar* run(vrkblock* b, vrkblock* caller, uint32_t start, vrkvar* self) {
    vrkcontext& ctx = context();
    depth_guard depth(ctx.depth_budget);
    if (ctx.depth_budget == 0) [[unlikely]] {
        report_depth(ctx);
        return nullptr;
    }
    if (!enter(b, caller, start, self)) return nullptr;
    const vrkvalue_context& values = value_context();
    const loop_switches switches{values.fused_paths, values.light_entry};
    run_state rs{b, start, start, start != 0};
    // With debug tables the run is recorded with its position, so that a
    // trace names the statement being run rather than the one it resumes at.
    const debug_run_scope recorded(ctx.debug_info ? b : nullptr, &rs.ip);
    return run_loop(ctx, rs, switches);
}

vrkvar* resume(vrkblock* block, vrkblock* caller, vrkvar* self) {
    return run(block, caller, block->resume_at, self);
}

}  // namespace vrk
