// Thread records: one operating-system thread that runs one piece of native work.
//
// Script code can hand slow native work (reading a file, waiting for a process)
// to a thread of its own. The block on whose behalf it runs sleeps meanwhile;
// the record keeps the work, the thread and two flags that the worker and the
// frame exchange without a lock: `finished`, set by the worker when the work has
// returned, and `resumeBlock`, cleared by the block's destruction so that the
// end of the work wakes nothing. The engine owns every record, first in its
// pending list (too many threads run already), then in its active list, until a
// frame sees `finished`, wakes the block and destroys the record. Threads are
// never reused.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>

namespace vrk {

struct vrkblock;

struct vrkthread_record {
    vrkthread_record() = default;
    // Waits for the thread when it has been started (a finished thread has only
    // its wake-up left to do); the thread itself never destroys its record.
    ~vrkthread_record();
    vrkthread_record(const vrkthread_record&) = delete;
    vrkthread_record& operator=(const vrkthread_record&) = delete;

    std::function<void()> body;           // what the thread runs
    std::unique_ptr<std::thread> thread;  // the operating-system thread; empty until started
    std::atomic<uint8_t> finished{0};     // set when body has returned
    std::atomic<uint8_t> resumeBlock{1};  // 1: wake `block` when reaped; cleared if it dies first
    uint32_t id = 0;                      // from the process-wide thread counter
    vrkblock* block = nullptr;            // the block that waits for this thread
};

// Starts the record's thread on a copy of its body.
void thread_start(vrkthread_record& record);

}  // namespace vrk
