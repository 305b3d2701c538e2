// The global script lock and its scoped guard.
//
// One recursive mutex, `global_lock` in the process context, serialises all
// script execution and every engine list. The main thread owns it for the whole
// of each frame (the frame takes it itself), so a ScriptLock made on the main
// thread takes nothing. On the thread that already holds the lock a guard only
// counts depth. Any other thread blocks until the main thread is between frames.
// `unlock` and `relock` bracket long waits inside a guarded scope.
#pragma once

#include <cstdint>

namespace vrk {

// Small sequential id of the calling thread (1, 2, ...); never 0.
uint32_t current_thread_id();

// True on a thread that may touch the free lists: the main thread, or the
// thread that holds the global lock now.
bool pool_thread();

class ScriptLock {
public:
    ScriptLock();
    ~ScriptLock();
    ScriptLock(const ScriptLock&) = delete;
    ScriptLock& operator=(const ScriptLock&) = delete;

    // Gives the lock up for a long wait inside the scope.
    void unlock();
    // Takes it back after unlock().
    void relock();

private:
    bool holdsMutex = false;    // this guard locked the mutex itself
    bool isMainThread = false;  // made on the main thread: took nothing
    bool mainHolds = false;     // main thread counts as owner (cleared by unlock)
    bool nested = false;        // made on the thread that already held the lock
    bool released = false;      // unlock() gave the lock up and relock() has not taken it back
};

}  // namespace vrk
