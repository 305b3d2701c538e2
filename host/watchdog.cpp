// The one-shot watchdog thread.
#include "host/watchdog.h"

#include "host/log.h"
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
    startTime.store(0);
    if (thread.joinable()) thread.join();
}

void Watchdog::watch() {
    // With a start time of 0 the difference is huge and the loop ends.
    while (platform::monotonic_ms() - startTime.load() < limitMs) platform::sleep_ms(pollMs);
    if (startTime.load() != 0) onTimeout(*exitCode);
}

}  // namespace vrk
