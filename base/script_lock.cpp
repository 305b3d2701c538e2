// The global script lock guard and the thread identity it is keyed on.
#include "base/script_lock.h"

#include <atomic>
#include <mutex>

#include "base/context.h"

namespace vrk {

namespace {

// A failing mutex operation throws std::system_error; escaping this noexcept
// function it ends the process with the library's report of that error.
void lock_or_die(std::recursive_mutex& m) noexcept { m.lock(); }

}  // namespace

uint32_t current_thread_id() {
    static std::atomic<uint32_t> next_id{0};
    // Zero until the thread first asks: a constant start, so that reading it
    // needs no first-use test of a thread-local initialiser.
    thread_local uint32_t id = 0;
    if (id == 0) id = ++next_id;
    return id;
}

bool pool_thread() {
    vrkcontext& ctx = context();
    const uint32_t me = current_thread_id();
    return me == ctx.main_thread || me == ctx.lock_thread.load();
}

ScriptLock::ScriptLock() {
    vrkcontext& ctx = context();
    const uint32_t me = current_thread_id();
    if (me == ctx.main_thread) {
        // The main thread owns the lock for the whole of each frame and needs
        // nothing between frames: no other thread runs scripts without it.
        isMainThread = true;
        mainHolds = true;
        return;
    }
    if (me != ctx.lock_thread.load()) {
        lock_or_die(ctx.global_lock);
        ctx.lock_thread.store(me);
        holdsMutex = true;
        ++ctx.lock_depth;
        return;
    }
    nested = true;
    ++ctx.lock_depth;
}

ScriptLock::~ScriptLock() {
    // A guard left in an unlock() bracket first takes the lock back, so the
    // frame that owned it on the main thread finds it held again.
    if (released) relock();
    // A guard of the main thread took nothing (the common case: every object
    // and instance a script makes or lets go of takes a guard).
    if (!holdsMutex && !nested) return;
    vrkcontext& ctx = context();
    if (holdsMutex) {
        ctx.lock_thread.store(0);
        --ctx.lock_depth;
        ctx.global_lock.unlock();
    } else if (nested) {
        --ctx.lock_depth;
    }
}

void ScriptLock::unlock() {
    if (released) return;
    vrkcontext& ctx = context();
    const uint32_t me = current_thread_id();
    if (isMainThread) {
        mainHolds = false;
        // Only a frame holds the lock on the main thread; outside a frame there
        // is nothing to give up.
        if (ctx.lock_thread.load() != me) return;
        ctx.lock_thread.store(0);
        ctx.global_lock.unlock();
        released = true;
        return;
    }
    ctx.lock_thread.store(0);
    if (holdsMutex) ctx.global_lock.unlock();
    released = true;
}

void ScriptLock::relock() {
    if (!released) {
        if (isMainThread) mainHolds = true;
        return;
    }
    vrkcontext& ctx = context();
    const uint32_t me = current_thread_id();
    if (isMainThread) {
        lock_or_die(ctx.global_lock);
        ctx.lock_thread.store(me);
        mainHolds = true;
    } else {
        if (holdsMutex) lock_or_die(ctx.global_lock);
        ctx.lock_thread.store(me);
    }
    released = false;
}

}  // namespace vrk
