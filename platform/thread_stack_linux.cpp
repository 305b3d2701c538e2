// A thread with a chosen stack size, through pthread attributes.
#include <malloc.h>
#include <pthread.h>

#include "platform/thread_stack.h"

namespace vrk::platform {

namespace {

void* run_work(void* argument) {
    (*static_cast<const std::function<void()>*>(argument))();
    return nullptr;
}

}  // namespace

bool run_with_stack(std::size_t stackBytes, const std::function<void()>& work) {
    // The work is the whole program, and the thread that started it only
    // waits: the C library gives every further thread an arena of its own,
    // grown in small steps, which makes allocation-heavy work (a deep
    // recursion copies a block per level) a third slower than on the main
    // thread. One arena for all threads keeps the main thread's speed.
    mallopt(M_ARENA_MAX, 1);
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) return false;
    pthread_t thread;
    bool started = pthread_attr_setstacksize(&attributes, stackBytes) == 0 &&
                   pthread_create(&thread, &attributes, run_work,
                                  const_cast<std::function<void()>*>(&work)) == 0;
    pthread_attr_destroy(&attributes);
    if (started) pthread_join(thread, nullptr);
    return started;
}

bool sanitized_build() {
#if defined(__SANITIZE_ADDRESS__)
    return true;
#else
    return false;
#endif
}

}  // namespace vrk::platform
