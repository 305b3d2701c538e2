// The script thread builtins.
#include "builtins/threads.h"

#include <cstdio>
#include <memory>
#include <string>

#include "base/script_lock.h"
#include "values/cell.h"
#include "values/pools.h"
#include "vm/block.h"
#include "vm/copies.h"
#include "vm/engine.h"
#include "vm/errors.h"
#include "vm/sleep.h"

namespace vrk::lib {

namespace {

// Callback-queue handles of join clean-ups: a bit of their own keeps them
// apart from object ids and object associations.
constexpr uint64_t kJoinHandleBit = uint64_t{1} << 61;

vrkvar* answer_int(vrkvar& result, int64_t value) {
    set_int(&result, value);
    return &result;
}

void needs_function(vrkblock* block) {
    report_error(block, "external_function", "needs function parameter");
}

// The FUNCTION cell at the end of a REF chain, when it names a live script
// block; else the report "not a func!" and null.
vrkvar* function_or_report(vrkblock* block, vrkvar* cell) {
    vrkvar* fn = cell ? deref(cell) : nullptr;
    if (!fn || fn->type != Tag::FUNCTION || !fn->block || !block_alive(fn->block)) {
        report_error(block, "external_function", "not a func!");
        return nullptr;
    }
    return fn;
}

vrkvar* answer_thread_handle(vrkvar& result, vrkblock* copy) {
    reset(&result, Tag::PTR);
    // The value word stays 0: releasing the handle fires nothing.
    result.value.i = 0;
    result.aux = kThreadHandleAux;
    result.block = copy;
    return &result;
}

// The block a thread handle names, while it exists; null for anything else.
vrkblock* thread_of(const vrkvar* cell) {
    if (!cell || cell->type != Tag::PTR || cell->aux != kThreadHandleAux) return nullptr;
    return block_alive(cell->block) ? cell->block : nullptr;
}

// Starts `fn` as a script thread with the arguments from `first` on; `owner`
// (a class value, or null) becomes its `this`.
vrkvar* start_thread(vrkblock* block, vrkvar* fn, std::vector<vrkvar*>& args, std::size_t first,
                     vrkvar* owner, vrkvar& result) {
    vrkblock* source = fn->block;
    const auto given = static_cast<int64_t>(args.size() - first);
    if (given != source->param_count) {
        char text[96];
        std::snprintf(text, sizeof text, "callback needs %i parameters! (%i)",
                      static_cast<int>(source->param_count), static_cast<int>(given));
        runtime_error(text, block);
        return &result;
    }
    ScriptLock lock;
    vrkblock* copy = get_instance(source, fn, false);
    if (!copy) return answer_int(result, 0);
    vrk::sleep(copy, 0, true, 0);
    copy->kind |= kind::THREAD;
    for (int64_t i = 0; i < given; ++i) {
        if (static_cast<std::size_t>(i) >= copy->vars.size()) break;
        vrkvar* param = copy->vars[static_cast<std::size_t>(i)];
        assign(param, args[first + static_cast<std::size_t>(i)], block);
        param->flags &= static_cast<uint16_t>(~kParameterFlag);
    }
    if (owner && owner->type == Tag::CLASS) {
        if (vrkvar* this_cell = copy->this_var()) {
            this_cell->flags |= flag::NO_COUNT;
            assign(this_cell, owner, block);
        }
    }
    return answer_thread_handle(result, copy);
}

// What a join leaves behind: the parked caller, and whether it was woken.
struct join_state {
    vrkblock_handle caller;  // the block parked in join
    bool woken = false;      // the caller has been woken (by the end or by the clean-up)
    uint64_t cleanup = 0;    // callback-queue handle of the clean-up on the awaited block
};

void wake(join_state& state) {
    if (state.woken) return;
    state.woken = true;
    if (vrkblock* caller = state.caller.get()) vrk::sleep(caller, 0, false, 0);
}

}  // namespace

VRK_BUILTIN(thread) {
    if (args.empty()) {
        needs_function(block);
        return &result;
    }
    vrkvar* fn = function_or_report(block, args[0]);
    if (!fn) return &result;
    return start_thread(block, fn, args, 1, nullptr, result);
}

VRK_BUILTIN(thread_class) {
    if (args.size() < 2) {
        needs_function(block);
        return &result;
    }
    vrkvar* fn = function_or_report(block, args[0]);
    if (!fn) return &result;
    return start_thread(block, fn, args, 2, deref(args[1]), result);
}

VRK_BUILTIN(terminate) {
    if (args.empty()) return &result;
    vrkvar* cell = args.size() == 1 ? deref(args[0]) : args[0];
    vrkblock* target = nullptr;
    if (vrkblock* thread = thread_of(cell))
        target = thread;
    else if (cell->type == Tag::FUNCTION && cell->block && block_alive(cell->block))
        target = cell->block;
    if (target) engine->stop_thread(target);
    return &result;
}

VRK_BUILTIN(timedexec) {
    if (args.size() != 2) {
        needs_function(block);
        return &result;
    }
    vrkvar* fn = function_or_report(block, args[0]);
    if (!fn) return &result;
    ScriptLock lock;
    // The function's own block when it is idle; a function that already waits
    // or runs (one that schedules itself again) runs in a copy.
    if (vrkblock* target = get_instance(fn->block, fn, false))
        vrk::sleep(target, to_int(args[1]), true, 0);
    return answer_int(result, 0);
}

VRK_BUILTIN(joinable) {
    if (args.size() != 1) {
        needs_function(block);
        return answer_int(result, 1);
    }
    vrkvar* cell = deref(args[0]);
    if (cell->type != Tag::PTR) return answer_int(result, 1);
    vrkblock* thread = thread_of(cell);
    return answer_int(result, thread && engine->is_scheduled(thread) ? 0 : 1);
}

VRK_BUILTIN(join) {
    if (args.size() != 1) {
        needs_function(block);
        return &result;
    }
    vrkvar* cell = deref(args[0]);
    if (cell->type != Tag::PTR) {
        report_error(block, "external_function", "not a ptr!");
        return &result;
    }
    vrkblock* awaited = thread_of(cell);
    if (!awaited || !engine->is_scheduled(awaited) || !block) return &result;
    ScriptLock lock;
    if (vrk::sleep(block, kSleepUntilWoken, false, 1) != 1) return &result;
    block->suspended = 2;

    static uint64_t next_cleanup = 0;
    auto state = std::make_shared<join_state>();
    state->caller = vrkblock_handle::of(block);
    state->cleanup = kJoinHandleBit | ++next_cleanup;

    // The end of the awaited run hands its value to the parked join and wakes
    // it. Earlier waiters on the same run (another join, a worker's count)
    // are told as well.
    vrkcompletion& completion = awaited->get_completion();
    auto earlier = std::move(completion.on_finish);
    completion.on_finish = [state, earlier](vrkblock* ended, vrkvar* value) {
        if (!state->woken) {
            if (vrkblock* caller = state->caller.get()) {
                if (value && !is_marker(value))
                    assign(&caller->native_result, value, caller);
                else
                    set_int(&caller->native_result, 0);
            }
            wake(*state);
            callback_fire(state->cleanup, true);
        }
        if (earlier) earlier(ended, value);
    };
    // Should the awaited block be destroyed before its run ends, the join
    // returns all the same.
    callback_add([state](uint64_t) { wake(*state); }, state->cleanup, awaited, 1);
    return &result;
}

}  // namespace vrk::lib
