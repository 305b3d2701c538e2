// The one-shot watchdog thread.
#include "host/watchdog.h"

#include <chrono>

#include "base/log.h"
#include "platform/system.h"

namespace vrk {

Watchdog::Watchdog(const int& exitCode, int64_t limitMs, int64_t pollMs, TimeoutAction onTimeout)
    : startTime(platform::monotonic_ms()),
      exitCode(&exitCode),
      limitMs(limitMs),
      pollMs(pollMs),
      onTimeout(std::move(onTimeout)) {
    if (!this->onTimeout) {
        this->onTimeout = [](int code) {
            log().error("watchdog timeout!");
            platform::exit_process(code);
        };
    }
    thread = std::thread([this] { watch(); });
}

Watchdog::~Watchdog() { stop(); }

void Watchdog::stop() {
    {
        std::lock_guard<std::mutex> guard(wakeMutex);
        startTime.store(0);
    }
    wake.notify_all();
    if (thread.joinable()) thread.join();
}

void Watchdog::watch() {
    // With a start time of 0 the difference is huge and the loop ends.
    std::unique_lock<std::mutex> lock(wakeMutex);
    while (platform::monotonic_ms() - startTime.load() < limitMs) {
        wake.wait_for(lock, std::chrono::milliseconds(pollMs),
                      [this] { return startTime.load() == 0; });
    }
    lock.unlock();
    if (startTime.load() != 0) onTimeout(*exitCode);
}

}  // namespace vrk
