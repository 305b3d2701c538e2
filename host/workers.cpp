// `vrkscript::returnThread` and the hooks through which lower layers reach it.
#include "host/workers.h"

#include <exception>
#include <memory>
#include <utility>

#include "base/context.h"
#include "base/log.h"
#include "base/script_lock.h"
#include "host/engine.h"
#include "host/host_state.h"
#include "values/value_context.h"
#include "vm/block.h"
#include "vm/sleep.h"

namespace vrk {

vrkvar* vrkscript::returnThread(std::function<void(vrkvar*)> function, vrkblock* block,
                                vrkvar* returnCell) {
    ScriptLock lock;
    if (block && sleep(block, kSleepUntilWoken, false, 1) == 1) block->suspended = 2;
    if (!function) return returnCell;

    auto record = std::make_unique<vrkthread_record>();
    record->id = host_state().nextThreadId.fetch_add(1);
    record->block = block;
    vrkthread_record* self = record.get();
    // The record outlives its thread: reaping joins the thread before the
    // record goes, so the body may still raise the flag and wake the loop.
    record->body = [function = std::move(function), self, returnCell] {
        if (function) {
            try {
                function(returnCell);
            } catch (const std::exception&) {
                // Dropped without a report: the block resumes as after any end.
            }
        } else {
            log().error("empty thread function?");
        }
        self->finished.exchange(1);
        vrkcontext& c = context();
        if (c.wakeCallback) c.wakeCallback();
    };

    if (activeThreadCount >= kImmediateStartLimit) {
        log().error("thread system overload!");
        pendingThreads.push_back(std::move(record));
        return returnCell;
    }
    thread_start(*record);
    activeThreads.push_back(std::move(record));
    ++activeThreadCount;
    return returnCell;
}

void install_engine_hooks(vrkscript* engine) {
    if (host_state().firstEngine != engine) return;
    vrkvalue_context& ctx = value_context();
    ctx.startWorker = [engine](std::function<void(vrkvar*)> function, vrkblock* block,
                               vrkvar* returnCell) {
        return engine->returnThread(std::move(function), block, returnCell);
    };
    ctx.deferDeletion = [](vrkengine* owner, vrkobject* object) {
        // Every engine of the process is a vrkscript.
        vrkscript* target = owner ? static_cast<vrkscript*>(owner) : host_state().firstEngine;
        if (!target) {
            delete object;
            return;
        }
        target->deletedObjects.emplace_back(object);
    };
}

}  // namespace vrk
