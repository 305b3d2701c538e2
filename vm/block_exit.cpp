// The ways a run ends early, and how the signals of `return`, `break` and
// `continue` travel up through nested bodies (RUN_CHILD).
//
// The body of an `if`, `while` or `for` is a child block run in line. A
// `return` inside it sets `return_signal` and ends the child; each enclosing
// body takes the signal over and ends too, until the function body, which ends
// with the child's result as its own. `break` and `continue` travel the same
// way up to the nearest loop body; the parent of that body sees `break` as its
// own `loop_signal`, which the loop's exit test (JMP_FALSE_LOOP) obeys, while
// `continue` stops at the loop body.
#include "base/log.h"
#include "values/value_context.h"
#include "vm/errors.h"
#include "vm/ops.h"
#include "vm/run.h"

namespace vrk {

namespace {

// `return` ends the function body; a nested body passes the signal up.
Flow finish_return(vrkblock* b) {
    if (!b->is_function) b->return_signal = 1;
    end_in_place(b);
    return Flow::end;
}

}  // namespace

// `this` and `self` are visible in every nested body (called by child_to_run
// for a child that has either).
void share_this_and_self(vrkblock* b, vrkblock* child) {
    vrkvar* outer_this = b->this_var();
    vrkvar* inner_this = child->this_var();
    if (outer_this && inner_this) {
        inner_this->flags |= flag::NO_COUNT;
        assign(inner_this, outer_this, b);
    }
    vrkvar* outer_self = b->self_var();
    vrkvar* inner_self = child->self_var();
    if (outer_self && inner_self) {
        vrkvar* v = deref(outer_self);
        if (v->type == Tag::JSON) {
            set_ref(inner_self, v);
        } else {
            assign(inner_self, v, b);
        }
    }
}

void end_in_place(vrkblock* b) {
    b->resume_at = 0;
    b->suspended = 0;
    run_cleanup(b);
    b->waiting_on = nullptr;
    b->self_cell = nullptr;
}

Flow return_value(run_state& rs) {
    vrkblock* b = rs.b;
    // A return that suspended while storing its value finishes now.
    if (rs.resumed) return finish_return(b);
    b->suspended = 0;
    if (b->stack.size() != 1) {
        runtime_error("STACK_CORRUPT", b);
        log().log("stack size: %i", static_cast<int>(b->stack.size()));
    }
    vrkvar*& slot = top_slot(b);
    vrkvar* value = slot;
    if (is_marker(value, kMarkerLimit)) return finish_return(b);
    // The value of a native call, or one already stored, is in place: the
    // block simply runs on to its end (the compiler puts the end or a jump to
    // it right behind).
    if (value == &b->result || value == &b->native_result) return Flow::next;
    vrkvar& result = b->result;
    if (value_context().call_paths && value->type == result.type &&
        (value->type == Tag::INT || value->type == Tag::FLOAT) && !result.constant &&
        !(result.flags & flag::FIXED_TYPE)) {
        // assign's own path for a number into a result holding a number of
        // the same type; it releases nothing, so nothing can suspend here.
        copy_number(&result, value);
        slot = &result;
        return finish_return(b);
    }
    assign(&result, value, b);
    slot = &b->result;
    if (b->suspended) {
        // Letting go of the old result ran a destructor that sleeps.
        b->resume_at = rs.ip;
        return Flow::suspend;
    }
    return finish_return(b);
}

Flow break_loop(run_state& rs, const vrkinstr& ins) {
    vrkblock* b = rs.b;
    end_in_place(b);
    b->loop_signal = ins.arg == 1 ? 2 : 1;
    return Flow::end;
}

// The rest of child_ended: a suspended child, the signals of `return`, `break`
// and `continue`, and a child that could not be entered.
Flow child_ended_signals(run_state& rs, vrkblock* child, vrkvar* r) {
    vrkblock* b = rs.b;
    if (child->resume_at == 0) b->waiting_on = nullptr;
    if (r == kSuspended) {
        if (b->waiting_on) {
            b->resume_at = rs.ip;
            return Flow::suspend;
        }
        r = void_value();
    }
    top_slot(b) = r;

    if (child->return_signal) {
        b->waiting_on = nullptr;
        b->self_cell = nullptr;
        b->resume_at = 0;
        child->return_signal = 0;
        if (!b->is_function) b->return_signal = 1;
        run_cleanup(b);
        return Flow::end;
    }
    if (child->loop_signal) {
        b->waiting_on = nullptr;
        b->resume_at = 0;
        b->self_cell = nullptr;
        if (!child->is_loop_body) {
            // A body inside the loop body: the signal goes on up.
            if (b->caller != b) {
                run_cleanup(b);
                b->loop_signal = child->loop_signal;
                child->loop_signal = 0;
                return Flow::end;
            }
        } else {
            // The loop body itself: `break` becomes this block's signal, which
            // the loop's exit test obeys; `continue` ends here.
            if (child->loop_signal != 2) b->loop_signal = child->loop_signal;
            child->loop_signal = 0;
        }
    }
    // A child that could not be entered leaves nothing; this run waits for it.
    if (is_marker(top_slot(b), kMarkerLimit) && child->resume_at != 0) {
        top_slot(b) = void_value();
        b->suspended = 1;
    }
    return Flow::next;
}

Flow run_child(run_state& rs, const vrkinstr& ins) {
    vrkblock* child = child_to_run(rs, ins);
    if (!child) return Flow::next;
    return child_ended(rs, child, resume(child, rs.b, rs.b->self_cell));
}

}  // namespace vrk
