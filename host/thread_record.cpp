// Starting and releasing the thread of a thread record.
#include "host/thread_record.h"

namespace vrk {

vrkthread_record::~vrkthread_record() {
    if (!thread || !thread->joinable()) return;
    if (thread->get_id() == std::this_thread::get_id())
        thread->detach();
    else
        thread->join();
}

void thread_start(vrkthread_record& record) {
    // The thread owns its copy of the body, so the record may be reaped while
    // the thread is still leaving.
    record.thread = std::make_unique<std::thread>([body = record.body] {
        if (body) body();
    });
}

}  // namespace vrk
