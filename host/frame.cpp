// `vrkscript::frame`: one pass of the engine's housekeeping and scheduling.
//
// The host calls frame about a thousand times a second, mostly with nothing to
// do, so each step starts with a test for emptiness and costs next to nothing
// when there is no work. The steps run in a fixed order that other parts rely
// on: retired scripts go before anything runs; worker threads are reaped, so
// their blocks wake in this very frame; scripts asked to stop go before the
// sleepers are resumed; blocks that end are swept only after every step that
// may still look at them; the free queues are drained last, once no step frees
// cells any more.
#include <algorithm>
#include <mutex>
#include <utility>

#include "base/context.h"
#include "base/log.h"
#include "base/script_lock.h"
#include "frontend/compile.h"
#include "frontend/parser.h"
#include "host/engine.h"
#include "host/workers.h"
#include "platform/system.h"
#include "values/pools.h"
#include "vm/block.h"
#include "vm/run.h"
#include "vm/sleep.h"

namespace vrk {

namespace {

// Runs a block from its first instruction, on this thread, with no time limit.
vrkvar* run_from_start(vrkblock* b) { return run(b, nullptr, 0, kSelfUnchanged); }

// Retired scripts whose blocks have all finished are destroyed; when none is
// left, the callbacks waiting for that run.
void sweep_retired_parsers(vrkscript& engine) {
    if (engine.retiredParsers.empty()) {
        if (engine.afterRetireCallbacks.empty()) return;
        auto callbacks = std::move(engine.afterRetireCallbacks);
        engine.afterRetireCallbacks.clear();
        for (const auto& callback : callbacks) {
            auto copy = callback;
            if (copy) copy();
        }
        return;
    }
    auto& retired = engine.retiredParsers;
    for (std::size_t i = 0; i < retired.size();) {
        const auto& blocks = retired[i].active_blocks;
        if (std::none_of(blocks.begin(), blocks.end(), block_active))
            retired.erase(retired.begin() + static_cast<std::ptrdiff_t>(i));
        else
            ++i;
    }
}

// Calls `notify` on every object whose handle still resolves, and drops the
// handles that do not, keeping the order of the rest.
template <class Notify>
void notify_objects(std::vector<vrkobject_handle>& handles, Notify notify) {
    for (std::size_t i = 0; i < handles.size();) {
        if (vrkobject* object = handles[i].get()) {
            notify(object);
            ++i;
        } else {
            handles.erase(handles.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }
}

// Finished worker threads: their blocks wake, their records go.
void reap_threads(vrkscript& engine) {
    auto& active = engine.activeThreads;
    for (std::size_t i = 0; i < active.size();) {
        vrkthread_record& record = *active[i];
        if (!record.finished.load()) {
            ++i;
            continue;
        }
        if (record.resumeBlock.load() && block_alive(record.block))
            sleep(record.block, 0, false, 0);
        --engine.activeThreadCount;
        active.erase(active.begin() + static_cast<std::ptrdiff_t>(i));
    }
}

// Scripts that asked to stop (`exit`) leave now.
void remove_parsers(vrkscript& engine) {
    if (engine.parsersToRemove.empty()) return;
    // reloadParser may run a frame of its own; it must not see these again.
    auto leaving = std::move(engine.parsersToRemove);
    engine.parsersToRemove.clear();
    for (vrkparser* parser : leaving) {
        log().log("remove parser...\n");
        engine.reloadParser(parser, false);
    }
}

// One schedule record per frame, in turn.
void run_one_schedule(vrkscript& engine) {
    if (engine.schedules.empty()) return;
    if (engine.nextScheduleIndex >= engine.schedules.size()) engine.nextScheduleIndex = 0;
    vrkschedule& record = *engine.schedules[engine.nextScheduleIndex];
    const int64_t now = platform::unix_time();
    if (schedule_due(record, now) && record.task && record.task()) schedule_mark_run(record, now);
    ++engine.nextScheduleIndex;
}

void run_frame_blocks(vrkscript& engine) {
    // By index: a block that dies while another runs leaves the list.
    for (std::size_t i = 0; i < engine.frame_blocks.size(); ++i)
        run_from_start(engine.frame_blocks[i]);
}

// Takes the callback out of its slot before calling it: the call may end the
// block, and with it the completion record.
void call_on_finish(vrkblock* b, vrkvar* result) {
    if (!b->completion || !b->completion->on_finish) return;
    auto on_finish = std::move(b->completion->on_finish);
    b->completion->on_finish = nullptr;
    on_finish(b, result);
}

void call_on_tick(vrkblock* b) {
    if (b->completion && b->completion->on_tick) b->completion->on_tick(b);
}

// What happens to a sleeping block whose run has just ended.
void finish_sleeper(vrkscript& engine, vrkblock* b, vrkvar* result) {
    engine.removedSleepers.push_back(b);
    end_running(b);
    // A held run (a script thread, a delayed call) is over: the block may be
    // entered again, or reused as a copy.
    b->hold = 0;
    if (b->completion) b->completion->on_tick = nullptr;

    if (b->completion && b->completion->finish_once) {
        call_on_finish(b, result);
        return;
    }
    if (b->wait_mode != 0) {
        call_on_finish(b, result);
        if (!block_alive(b)) return;
        const uint8_t mode = b->wait_mode;
        b->wait_mode = 0;
        if (mode == 1) {
            engine.finishedBlocks.push_back(b);
        } else {
            if (b->parent && b->parent->children) {
                auto& siblings = *b->parent->children;
                siblings.erase(std::remove(siblings.begin(), siblings.end(), b), siblings.end());
            }
            block_delete(b);
        }
        return;
    }
    call_on_finish(b, result);
}

// The walk over the sleeping blocks: due ones are resumed. A block that dies
// meanwhile ends the walk; the rest wait for the next frame.
void resume_sleepers(vrkscript& engine) {
    if (!engine.newSleepers.empty()) {
        for (vrkblock* b : engine.newSleepers)
            engine.sleepingBlocks.push_back(vrkblock_handle::of(b));
        engine.newSleepers.clear();
    }
    if (engine.sleepingBlocks.empty()) return;

    engine.sleepersChanged = 0;
    auto& removed = engine.removedSleepers;
    // The clock is read once per walk and again after each run: a walk over
    // many sleepers that are not due costs no clock reads.
    int64_t now = platform::monotonic_ms();
    for (std::size_t i = 0; i < engine.sleepingBlocks.size() && !engine.sleepersChanged; ++i) {
        vrkblock* b = engine.sleepingBlocks[i].get();
        if (!b || std::find(removed.begin(), removed.end(), b) != removed.end()) {
            removed.push_back(b);
            break;
        }
        if (b->sleep_ms == kSleepUntilWoken) {
            call_on_tick(b);
            continue;
        }
        if (b->sleep_ms != 0 && now < b->sleep_start + b->sleep_ms) {
            call_on_tick(b);
            continue;
        }
        call_on_tick(b);
        b->sleeping = 0;
        vrkvar* result = run(b, nullptr, b->resume_at, nullptr);
        now = platform::monotonic_ms();
        if (engine.sleepersChanged && !block_alive(b)) break;
        if (b->resume_at != 0) continue;
        finish_sleeper(engine, b, result);
    }
}

// One typed line runs on the prompt script, once its previous line is done.
void run_prompt(vrkscript& engine) {
    if (engine.promptLines.empty() || !engine.promptParser) return;
    vrkparser* prompt = engine.promptParser;
    if (!prompt->root_block) {
        log().error("cannot run prompt!");
        engine.promptLines.pop_front();
        return;
    }
    if (block_active(prompt->root_block)) return;
    // The bodies of earlier lines stay alive: a function or class declared on
    // one line is called on the next, and its cell names its body block. They
    // are kept among the children of the global block, which lives as long as
    // the engine; each line gets fresh children of its own.
    if (vrkblock* earlier = prompt->root_block; earlier->children && engine.globalBlock) {
        auto& kept = engine.globalBlock->get_children();
        kept.insert(kept.end(), earlier->children->begin(), earlier->children->end());
        earlier->children->clear();
        // The new children are numbered from 0 again: the names of the cells
        // that stand for the old ones ("##BLKn") go, the cells themselves stay.
        if (earlier->names)
            std::erase_if(*earlier->names,
                          [](const auto& entry) { return entry.first.rfind("##BLK", 0) == 0; });
    }
    prompt->parse(engine.promptLines.front(), false);
    engine.promptLines.pop_front();
    vrkblock* root = prompt->root_block;
    if (!root) return;
    root->resume_at = 0;
    if (compile_block(root)) run_from_start(root);
}

// Entries of blocks that ended or died leave the sleeping list.
void sweep_sleepers(vrkscript& engine) {
    if (engine.removedSleepers.empty()) return;
    auto& removed = engine.removedSleepers;
    auto& sleeping = engine.sleepingBlocks;
    sleeping.erase(std::remove_if(sleeping.begin(), sleeping.end(),
                                  [&removed](const vrkblock_handle& h) {
                                      vrkblock* b = h.get();
                                      return !b || std::find(removed.begin(), removed.end(), b) !=
                                                       removed.end();
                                  }),
                   sleeping.end());
    removed.clear();
}

void delete_finished_blocks(vrkscript& engine) {
    if (engine.finishedBlocks.empty()) return;
    auto finished = std::move(engine.finishedBlocks);
    engine.finishedBlocks.clear();
    for (vrkblock* b : finished) {
        if (!block_alive(b)) continue;
        if (b->parent && b->parent->children) {
            auto& siblings = *b->parent->children;
            siblings.erase(std::remove(siblings.begin(), siblings.end(), b), siblings.end());
        }
        block_delete(b);
    }
}

// Parked worker threads start, last parked first, while few enough run.
void start_pending_threads(vrkscript& engine) {
    auto& pending = engine.pendingThreads;
    while (!pending.empty()) {
        if (engine.activeThreadCount >= kPendingDrainLimit) {
            log().error("thread system overload!");
            return;
        }
        std::unique_ptr<vrkthread_record> record = std::move(pending.back());
        pending.pop_back();
        thread_start(*record);
        engine.activeThreads.push_back(std::move(record));
        ++engine.activeThreadCount;
    }
}

void delete_objects(vrkscript& engine) {
    if (engine.deletedObjects.empty()) return;
    // Destructors may queue further deletions; those wait for the next frame.
    auto doomed = std::move(engine.deletedObjects);
    engine.deletedObjects.clear();
    doomed.clear();
}

// Holds the global lock for one frame and names this thread its owner. A frame
// can run inside another one (reloadParser runs one), so the outer owner is
// restored at the end rather than cleared.
class frame_lock {
public:
    frame_lock() : ctx(context()), guard(ctx.global_lock) {
        previousOwner = ctx.lock_thread.exchange(current_thread_id());
    }
    ~frame_lock() { ctx.lock_thread.store(previousOwner); }
    frame_lock(const frame_lock&) = delete;
    frame_lock& operator=(const frame_lock&) = delete;

private:
    vrkcontext& ctx;                               // the process context with the lock
    std::unique_lock<std::recursive_mutex> guard;  // the global lock, taken for the frame
    uint32_t previousOwner = 0;                    // owner before this frame
};

}  // namespace

bool vrkscript::frame() {
    frame_lock lock;
    sweep_retired_parsers(*this);
    if (!objectsBeforeFrame.empty())
        notify_objects(objectsBeforeFrame, [](vrkobject* o) { o->onFrameBegin(); });
    if (!activeThreads.empty()) reap_threads(*this);
    inHousekeeping = 1;
    remove_parsers(*this);
    run_one_schedule(*this);
    if (!frame_blocks.empty()) run_frame_blocks(*this);
    resume_sleepers(*this);
    run_prompt(*this);
    if (!objectsAfterFrame.empty())
        notify_objects(objectsAfterFrame, [](vrkobject* o) { o->onFrameEnd(); });
    sweep_sleepers(*this);
    delete_finished_blocks(*this);
    const bool suspended = !newSleepers.empty();
    start_pending_threads(*this);
    drain_free_queues();
    inHousekeeping = 0;
    delete_objects(*this);
    return suspended;
}

}  // namespace vrk
