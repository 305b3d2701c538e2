// Windows implementation of platform/thread_stack.h: a thread whose stack
// reservation is given at creation.
#include <windows.h>

#include "platform/thread_stack.h"

namespace vrk::platform {

namespace {

DWORD WINAPI run_work(LPVOID argument) {
    (*static_cast<const std::function<void()>*>(argument))();
    return 0;
}

}  // namespace

bool run_with_stack(std::size_t stackBytes, const std::function<void()>& work) {
    HANDLE thread = CreateThread(nullptr, stackBytes, run_work,
                                 const_cast<std::function<void()>*>(&work),
                                 STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr);
    if (!thread) return false;
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
    return true;
}

bool sanitized_build() { return false; }

}  // namespace vrk::platform
