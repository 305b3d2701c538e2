// The frame clock on Windows: a high-resolution waitable timer and an
// auto-reset event, waited on together with WaitForMultipleObjects.
#include <windows.h>

#include "platform/frame_clock.h"

#ifndef CREATE_WAITABLE_TIMER_HIGH_RESOLUTION
#define CREATE_WAITABLE_TIMER_HIGH_RESOLUTION 0x00000002
#endif

namespace vrk::platform {

namespace {

HANDLE as_handle(std::intptr_t value) { return reinterpret_cast<HANDLE>(value); }

std::intptr_t as_value(HANDLE handle) { return reinterpret_cast<std::intptr_t>(handle); }

// A periodic timer, high-resolution where the system has that kind (older
// systems refuse the flag; their ordinary timer keeps the same period).
HANDLE create_timer() {
    HANDLE timer = ::CreateWaitableTimerExA(nullptr, nullptr, CREATE_WAITABLE_TIMER_HIGH_RESOLUTION,
                                            TIMER_ALL_ACCESS);
    if (!timer) timer = ::CreateWaitableTimerExA(nullptr, nullptr, 0, TIMER_ALL_ACCESS);
    return timer;
}

// Starts the periodic tick one period from now. Due times are in units of
// 100 ns; a negative one is relative to now.
bool arm(HANDLE timer) {
    LARGE_INTEGER due{};
    due.QuadPart = -static_cast<LONGLONG>(FrameClock::kPeriodMs) * 10000;
    return ::SetWaitableTimer(timer, &due, FrameClock::kPeriodMs, nullptr, nullptr, FALSE) != 0;
}

}  // namespace

std::unique_ptr<FrameClock> FrameClock::create(int& error) {
    // Auto-reset and not signalled: one SetEvent ends exactly one wait.
    const HANDLE event = ::CreateEventA(nullptr, FALSE, FALSE, nullptr);
    if (!event) {
        error = static_cast<int>(::GetLastError());
        return nullptr;
    }
    const HANDLE timer = create_timer();
    if (!timer) {
        error = static_cast<int>(::GetLastError());
        ::CloseHandle(event);
        return nullptr;
    }
    if (!arm(timer)) {
        error = static_cast<int>(::GetLastError());
        ::CloseHandle(timer);
        ::CloseHandle(event);
        return nullptr;
    }
    return std::unique_ptr<FrameClock>(new FrameClock(as_value(timer), as_value(event)));
}

FrameClock::~FrameClock() {
    ::CancelWaitableTimer(as_handle(timerHandle));
    ::CloseHandle(as_handle(timerHandle));
    ::CloseHandle(as_handle(eventHandle));
}

void FrameClock::wake() { ::SetEvent(as_handle(eventHandle)); }

bool FrameClock::wait() {
    const HANDLE handles[2] = {as_handle(timerHandle), as_handle(eventHandle)};
    const DWORD result = ::WaitForMultipleObjects(2, handles, FALSE, INFINITE);
    return result == WAIT_OBJECT_0 || result == WAIT_OBJECT_0 + 1;
}

bool FrameClock::wait_idle(int timeoutMs) {
    const HANDLE timer = as_handle(timerHandle);
    ::CancelWaitableTimer(timer);
    const DWORD result = ::WaitForSingleObject(as_handle(eventHandle),
                                               static_cast<DWORD>(timeoutMs));
    const bool ticking = arm(timer);
    return (result == WAIT_OBJECT_0 || result == WAIT_TIMEOUT) && ticking;
}

}  // namespace vrk::platform
