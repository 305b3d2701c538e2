// Calling functions: the start of a call (LOAD 4), CALL_PREP and CALL.
//
// A call `f(a, b)` runs: the function expression; LOAD 4, which puts a temp
// copy of the function cell on `callblocks`; CALL_PREP with the argument count,
// which checks the callee and gets an idle block for it; the arguments, each
// wrapped by ARG; CALL_PREP with `ref` -1, which opens parameter binding; for
// each argument from the last, POP and a SET with `ref` -1 that swaps the
// argument cell into the callee's variables; RESET 1; CALL. After the callee
// has run, the caller puts the displaced variable pointers back.
#include "base/log.h"
#include "values/value_context.h"
#include "vm/copies.h"
#include "vm/errors.h"
#include "vm/ops.h"
#include "vm/run.h"
#include "vm/sleep.h"

namespace vrk {

namespace {

// The function cell the top slot stands for, or null.
vrkvar* function_in_top(vrkblock* b) {
    vrkvar* cell = top_slot(b);
    if (is_marker(cell, kMarkerLimit)) return nullptr;
    cell = chain_end(cell);
    if (cell->type != Tag::FUNCTION || !cell->block) return nullptr;
    return cell;
}

// True when `this` of a method already holds `instance` exactly as assigning
// it would leave it: a method called again on the same instance finds its
// `this` as the last call left it (run clean-up resets `self` only). The
// assignment would then take the cell out of the instance's list of holders
// and put it back, count nothing (the cell is uncounted) and leave every field
// as it is. A class blueprint (assigning it makes an instance), a singleton
// (its cells are not listed), a fresh result (whose bit the assignment hands
// over) and any cell whose bits differ from the outcome take the assignment.
bool holds_instance(const vrkvar* this_cell, const vrkvar* instance) {
    const vrkblock* block = instance->block;
    return this_cell != instance && block && this_cell->type == Tag::CLASS &&
           this_cell->block == block && !(block->kind & (kind::CLASS | kind::SINGLETON)) &&
           !this_cell->constant &&
           (this_cell->flags & (flag::NO_COUNT | flag::FIXED_TYPE)) == flag::NO_COUNT &&
           this_cell->value.i == 0 && this_cell->aux == 0 &&
           this_cell->attrs == ((this_cell->attrs & attr::KEEP_MASK) | attr::INSTANCE_CELL) &&
           !(instance->attrs & attr::FRESH_RESULT);
}

// `this` or `self` of the callee, taken from the container or instance the
// function was found in. A captured `this` or `self` is the lambda's own and
// stays.
void bind_owner(vrkblock* b, vrkblock* callee, vrkvar* owner) {
    vrkvar* this_cell = callee->this_var();
    if (owner->type == Tag::CLASS && this_cell) {
        if (!(this_cell->flags & flag::CAPTURED)) {
            this_cell->flags |= flag::NO_COUNT;
            vrkvar* instance = chain_end(owner);
            if (!(value_context().call_paths && holds_instance(this_cell, instance)))
                assign(this_cell, instance, b);
        }
        return;
    }
    vrkvar* self_cell = callee->self_var();
    if (!self_cell || (self_cell->flags & flag::CAPTURED)) return;
    self_cell->flags |= flag::NO_COUNT;
    if (owner->type == Tag::PTR) {
        assign(self_cell, owner, b);
    } else {
        bind_ref(self_cell, owner);
    }
}

// Copies a plain function cell into a temp fresh from the pool, as assign
// would: for a blank INT temp and a function that is no lambda (whose closure
// is captured anew on every copy), has no shared record and is no fresh
// result, assigning comes down to taking the tag, the block and the parameter
// count, with an empty closure (a builtin's cell keeps its native record: the
// copy gets none). False, with `t` untouched, for anything else.
bool copy_plain_function(vrkvar* t, const vrkvar* fn) {
    if (t->type != Tag::INT || t->constant || (t->flags & flag::FIXED_TYPE) || t->attrs != 0)
        return false;
    if (fn->attrs & (attr::SHARED_CLOSURE | attr::FRESH_RESULT)) return false;
    if (fn->block->kind & kind::LAMBDA) return false;
    t->type = Tag::FUNCTION;
    t->value.i = 0;
    t->aux = fn->aux;
    t->block = fn->block;
    return true;
}

// The copy get_instance would choose for the busy function `block` of the
// plain cell `fn`, found by its own search, when that search can start where
// the last one ended: no block has died since the list of copies was checked
// and since that search, so the list and the count of leading running copies
// stand. The count is left as the search leaves it. Null when no copy is idle
// (get_instance then makes one) or for anything else (get_instance decides).
vrkblock* idle_copy_in_line(vrkblock* block, vrkvar* fn) {
    if (block->native || !block->copies) return nullptr;
    const uint64_t destroyed = value_context().blocks_destroyed;
    if (block->copies_checked != destroyed || block->running_copies_destroyed != destroyed)
        return nullptr;
    std::size_t leading = 0;
    vrkblock* copy = first_idle_copy(*block->copies, block->running_copies, leading);
    if (!copy) return nullptr;
    block->running_copies = static_cast<uint32_t>(leading);
    if (fn->value.ptr) load_closure(fn, copy);
    return copy;
}

// Gives the callblocks temp of the finished call back.
[[gnu::always_inline]] inline void drop_callblock(vrkblock* b) {
    free_temp(b, b->callblocks.back());
    b->callblocks.pop_back();
}

// After the callee has run: its displaced variables go back, or for a native
// callee the collected arguments are let go. `callee_alive`: no block has been
// destroyed since the callee was entered, so it still exists.
[[gnu::always_inline]] inline void finish_binding(vrkblock* b, bool callee_alive = false) {
    if (b->params_bound && b->callee) {
        // restore_params, in line for a callee known to exist.
        vrkblock* callee = b->callee;
        const std::size_t n = b->params.size();
        if (callee_alive && callee->vars.size() >= n) {
            for (std::size_t i = 0; i < n; ++i) callee->vars[n - 1 - i] = b->params[i];
            b->params_bound = 0;
            b->params.clear();
        } else {
            restore_params(b, callee_alive);
        }
    } else if (b->callee && b->callee->native) {
        b->params.clear();
    }
}

// A `return`, `break` or `continue` that came up from a callee that is not a
// function body ends this run as well; a loop signal is not carried further.
Flow pass_signal(run_state& rs, vrkblock* callee) {
    vrkblock* b = rs.b;
    b->resume_at = 0;
    if (callee->return_signal) {
        callee->return_signal = 0;
        if (!b->is_function) b->return_signal = 1;
    } else {
        callee->loop_signal = 0;
        // The signal is cleared before it is copied, so what arrives is 0:
        // a break never leaves the function it was written in.
        if (!b->is_loop_body) {
            b->loop_signal = callee->loop_signal;
        } else if (b->caller) {
            b->caller->loop_signal = callee->loop_signal;
        }
    }
    if (!b->callblocks.empty()) drop_callblock(b);
    b->waiting_on = nullptr;
    b->self_cell = nullptr;
    run_cleanup(b);
    return Flow::end;
}

// Construction through a class cell called directly: the constructor keeps
// the argument values in its own parameter cells.
void call_class(vrkblock* b, vrkvar* cell) {
    top_slot(b) = cell;
    if (b->params_bound) {
        vrkvar* ctor = var_at(cell->block, static_cast<int64_t>(ClassSlot::constructor));
        if (!is_marker(ctor, kMarkerLimit)) ctor = deref(ctor);
        if (!is_marker(ctor, kMarkerLimit) && ctor->block) {
            auto& vars = ctor->block->vars;
            const std::size_t n = b->params.size();
            for (std::size_t i = 0; i < n; ++i) {
                const std::size_t j = n - 1 - i;
                if (j >= vars.size() || is_marker(b->params[i], kMarkerLimit)) continue;
                if (!is_marker(vars[j], kMarkerLimit)) assign(b->params[i], vars[j], b);
                vars[j] = b->params[i];
            }
        }
        b->params_bound = 0;
    }
    b->params.clear();
}

}  // namespace

void start_call(vrkblock* b) {
    vrkvar*& slot = top_slot(b);
    if (is_marker(slot, kMarkerLimit)) {
        log().log("stackptr error in return!");
        return;
    }
    vrkvar* cell = chain_end(slot);
    vrkvar* callable = nullptr;
    if (cell->type == Tag::FUNCTION && cell->block) {
        callable = cell;
    } else if (cell->type == Tag::CLASS && cell->block) {
        // Calling a class calls its constructor.
        vrkvar* ctor = var_at(cell->block, static_cast<int64_t>(ClassSlot::constructor));
        if (!is_marker(ctor, kMarkerLimit)) ctor = deref(ctor);
        if (!is_marker(ctor, kMarkerLimit) && ctor->type == Tag::FUNCTION && ctor->block)
            callable = ctor;
    }
    if (!callable) {
        runtime_error("NOT_A_FUNCTION", b);
        slot = nullptr;
        return;
    }
    const bool fast = value_context().call_paths;
    vrkvar* t = fast ? take_temp_fast(b) : take_temp(b);
    if (!(fast && copy_plain_function(t, callable))) assign(t, callable, b);
    b->callblocks.push_back(t);
    slot = t;
}

Flow prepare_call(run_state& rs, const vrkinstr& ins) {
    vrkblock* b = rs.b;
    if (ins.ref == kRefMinusOne) {
        // Binding starts. A native callee collects its arguments in `params`
        // instead: there is nothing of its own to put back afterwards.
        b->params.clear();
        vrkvar* fn = b->callblocks.empty() ? nullptr : b->callblocks.back();
        const bool native = !is_marker(fn, kMarkerLimit) && fn->type == Tag::FUNCTION &&
                            fn->block && fn->block->native;
        b->params_bound = native ? 0 : 1;
        b->bind_order = ++value_context().bindings_started;
        return Flow::next;
    }

    vrkvar* fn = function_in_top(b);
    if (!fn) {
        runtime_error("NOT_A_FUNCTION", b);
        b->member_owner = nullptr;
        return Flow::next;
    }
    vrkblock* block = fn->block;
    if (ins.arg > block->param_count) {
        runtime_error("TOO_MANY_PARAMS", b);
        log().log("%i > %i", static_cast<int>(ins.arg), static_cast<int>(block->param_count));
        b->member_owner = nullptr;
        return Flow::next;
    }
    if (block->native) b->params_bound = 0;

    if (!block->busy()) {
        // A cell without a closure record has nothing to load.
        if (fn->value.closure) load_closure(fn, block, b);
    } else {
        // A busy function runs in a copy. A locked one, or one with no copy
        // to spare, makes this run wait: the chain of callers is handed to the
        // scheduler, which resumes it at this instruction on its next pass, so
        // the calls of a locked function take turns.
        // The function's block has just been looked at (its options, whether
        // it is busy): it exists.
        vrkblock* instance = nullptr;
        if (!(block->options & kLockedOption)) {
            if (value_context().call_paths) instance = idle_copy_in_line(block, fn);
            if (!instance) instance = get_instance(block, fn, false, true);
        }
        if (!instance) {
            if (block->native) runtime_error("EXTERNAL_BUSY", b);
            sleep(b, 0, false, 0);
            b->suspended = 1;
            b->resume_at = rs.ip;
            return Flow::suspend;
        }
        fn->block = instance;
        block = instance;
    }

    if (b->member_owner && !is_marker(b->member_owner, kMarkerLimit))
        bind_owner(b, block, b->member_owner);
    b->member_owner = nullptr;
    if (b->object_stack) b->object_stack->push_back(nullptr);
    return Flow::next;
}

vrkblock* call_enter(run_state& rs, const vrkinstr& ins) {
    vrkblock* b = rs.b;
    if (!rs.resumed) {
        b->callee = nullptr;
        b->bind_source = 1;
    }
    vrkvar* cell = nullptr;
    if (!b->callblocks.empty()) {
        cell = b->callblocks.back();
    } else if (vrkblock* owner = operand_block(ins); has_var(owner, ins.arg)) {
        cell = owner->vars[static_cast<std::size_t>(ins.arg)];
    } else {
        return nullptr;
    }

    if (is_marker(cell, kMarkerLimit)) {
        b->params_bound = 0;
        runtime_error("NOT_A_FUNCTION", b);
        top_slot(b) = &b->scratch;
        set_int(&b->scratch, 0);
        return nullptr;
    }
    cell = chain_end(cell);
    if (cell->type == Tag::CLASS) {
        call_class(b, cell);
        return nullptr;
    }
    if (cell->type != Tag::FUNCTION || !cell->block) {
        runtime_error("NOT_A_FUNCTION", b);
        // Such a cell names no block the displaced parameters could go back to.
        b->params_bound = 0;
        b->params.clear();
        return nullptr;
    }

    vrkblock* callee = cell->block;
    b->callee = callee;
    if (!rs.resumed) b->waiting_on = callee;
    return callee;
}

Flow call_returned(run_state& rs, vrkblock* callee, vrkvar* r, bool callee_alive) {
    vrkblock* b = rs.b;
    top_slot(b) = r;
    if (callee->resume_at == 0) b->waiting_on = nullptr;

    if ((callee->return_signal || callee->loop_signal) && !callee->is_function)
        return pass_signal(rs, callee);

    if (r == kSuspended) {
        b->suspended = callee->native ? 2 : 1;
        top_slot(b) = callee->stack.empty() ? nullptr : callee->stack.back();
    }
    if (b->suspended == 1) {
        // The callee keeps the arguments bound while it waits; this CALL
        // resumes it and finishes the call later.
        b->resume_at = rs.ip;
        return Flow::suspend;
    }
    if (b->suspended == 2) {
        b->resume_at = rs.ip + 1;
        finish_binding(b);
        if (!b->callblocks.empty()) drop_callblock(b);
        return Flow::suspend;
    }
    if (b->callblocks.empty()) {
        runtime_error("CALLBLOCK_FAILURE", b);
    } else {
        drop_callblock(b);
    }
    finish_binding(b, callee_alive);
    return Flow::next;
}

}  // namespace vrk
