// The frame clock on Linux: a monotonic timerfd and an eventfd under one poll.
#include <cerrno>
#include <cstdint>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include "platform/frame_clock.h"

namespace vrk::platform {

namespace {

// Reads (and so resets) the 8-byte counter of a timerfd or eventfd.
void drain(int fd) {
    uint64_t count = 0;
    ssize_t n = ::read(fd, &count, sizeof(count));
    (void)n;  // a counter already drained by another reader is no failure
}

// Sets the timer to tick every period from one period on, or stops it.
bool arm(int timer, bool ticking) {
    itimerspec period{};
    if (ticking) {
        period.it_value.tv_nsec = FrameClock::kPeriodMs * 1000000L;
        period.it_interval.tv_nsec = FrameClock::kPeriodMs * 1000000L;
    }
    return ::timerfd_settime(timer, 0, &period, nullptr) == 0;
}

}  // namespace

std::unique_ptr<FrameClock> FrameClock::create(int& error) {
    const int timer = ::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    if (timer < 0) {
        error = errno;
        return nullptr;
    }
    const int event = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (event < 0) {
        error = errno;
        ::close(timer);
        return nullptr;
    }
    if (!arm(timer, true)) {
        error = errno;
        ::close(event);
        ::close(timer);
        return nullptr;
    }
    return std::unique_ptr<FrameClock>(new FrameClock(timer, event));
}

FrameClock::~FrameClock() {
    ::close(static_cast<int>(eventHandle));
    ::close(static_cast<int>(timerHandle));
}

void FrameClock::wake() {
    const uint64_t one = 1;
    ssize_t n = ::write(static_cast<int>(eventHandle), &one, sizeof(one));
    (void)n;  // the counter can only overflow after 2^64 wakes without a wait
}

bool FrameClock::wait() {
    const int timer = static_cast<int>(timerHandle);
    const int event = static_cast<int>(eventHandle);
    pollfd fds[2] = {{timer, POLLIN, 0}, {event, POLLIN, 0}};
    int ready;
    do {
        ready = ::poll(fds, 2, -1);
    } while (ready < 0 && errno == EINTR);
    if (ready < 0) return false;
    if (fds[0].revents & POLLIN) drain(timer);
    if (fds[1].revents & POLLIN) drain(event);
    return true;
}

bool FrameClock::wait_idle(int timeoutMs) {
    const int timer = static_cast<int>(timerHandle);
    const int event = static_cast<int>(eventHandle);
    arm(timer, false);
    drain(timer);
    pollfd fds[1] = {{event, POLLIN, 0}};
    int ready;
    do {
        ready = ::poll(fds, 1, timeoutMs);
    } while (ready < 0 && errno == EINTR);
    if (ready > 0 && (fds[0].revents & POLLIN)) drain(event);
    const bool ticking = arm(timer, true);
    return ready >= 0 && ticking;
}

}  // namespace vrk::platform
