// EXTERNAL: the one instruction of a native block, which calls the builtin.
//
// A native block is entered like any function, but its arguments never become
// its variables: parameter binding collected them in the calling block's
// `params`, last argument first. The builtin receives them in declared order,
// together with the calling block and that block's `native_result` cell to
// answer in.
#include "vm/native_call.h"

#include <algorithm>
#include <new>
#include <stdexcept>

#include "base/context.h"
#include "values/object.h"
#include "values/value_context.h"
#include "vm/ops.h"
#include "vm/run.h"
#include "vm/run_start.h"

namespace vrk {

vrkvar* enter_native(vrkblock* b, vrkblock* caller) {
    vrkcontext& ctx = context();
    if (!value_context().call_paths || !b->native || !caller || ctx.debug_info ||
        b->resume_at != 0 || ctx.step_budget == 1 || ctx.depth_budget == 1 || b->code.size() != 1 ||
        b->code[0].opcode() != Op::EXTERNAL || !b->callblocks.empty())
        return resume(b, caller, nullptr);
    depth_guard depth(ctx.depth_budget);
    // The fresh start of a run from instruction 0 (a native block is entered
    // even while it runs: it keeps nothing between calls).
    fresh_start(b);
    b->caller = caller;
    b->loop_signal = 0;
    b->return_signal = 0;
    b->suspended = 0;
    --ctx.step_budget;
    run_state rs{b, 0, 1, false};
    try {
        // EXTERNAL always ends the run, with its answer in the top slot.
        external(rs, b->code[0]);
    } catch (const std::bad_alloc&) {
        return end_out_of_memory(b);
    } catch (const std::length_error&) {
        return end_out_of_memory(b);
    }
    end_running(b);
    return b->stack.empty() ? nullptr : b->stack.back();
}

Flow external(run_state& rs, const vrkinstr& ins) {
    vrkblock* b = rs.b;
    vrkblock* caller = b->caller ? b->caller : b;
    auto& args = caller->params;
    std::reverse(args.begin(), args.end());

    auto* record = reinterpret_cast<vrknative*>(ins.ref);
    vrkvar* answer = nullptr;
    if (!is_marker(record, kMarkerLimit) && record->fn) {
        // An argument slot that holds no cell (a damaged call sequence) reaches
        // the builtin as the void value, so that no builtin reads through it.
        for (vrkvar*& arg : args) {
            if (is_marker(arg, kMarkerLimit))
                arg = void_value();
            else if (record->deref_args)
                arg = deref(arg);
        }
        // Builtins receive their result cell empty: one that leaves it alone must
        // not hand back what an earlier call left there (a reference into a
        // container that may be gone by now). What lay inside the earlier value
        // goes with it (ops.h, transient values), and as a builtin may free
        // any value, no owner of a member call is kept past it.
        caller->member_owner = nullptr;
        caller->owner_transient = 0;
        caller->transient_element = nullptr;
        // A member called on an object whose only handle is this very cell
        // (`vec(3, 4).normalize()`) keeps the object for the length of the call.
        // The call may free the object itself (`free(q)` right after a member
        // call on `q`), so the pin is let go through its registry handle: an
        // object deleted meanwhile is not touched again.
        vrkobject_handle pin;
        if (caller->object_stack && !caller->object_stack->empty()) {
            vrkobject* top = caller->object_stack->back();
            if (top && top == object_of(&caller->native_result)) {
                pin = {top->registry_index, top->registry_id};
                top->addRef();
            }
        }
        reset(&caller->native_result, Tag::INT);
        {
            // The builtin gets the arguments as a vector; what it leaves there
            // is what `params` holds afterwards, even when it throws.
            struct entries_back {
                vrkptr_stack<vrkvar>& stack;
                ~entries_back() { stack.take_back_entries(); }
            } back{args};
            answer = record->fn(caller, args.entries_as_vector(), record->user,
                                caller->native_result);
        }
        if (pin.id != 0) {
            if (vrkobject* still = pin.get()) still->release();
        }
    }
    // Null and 1 both mean "no value".
    top_slot(b) = is_marker(answer, 2) ? void_value() : answer;
    b->resume_at = 0;
    return Flow::end;
}

}  // namespace vrk
