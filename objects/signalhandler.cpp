// The signal handler type: parking blocks in `wait` and waking them.
#include "objects/signalhandler.h"

#include <algorithm>

#include "base/script_lock.h"
#include "objects/timer.h"
#include "values/cell.h"
#include "vm/sleep.h"

namespace vrk {

namespace {

// Wakes a waiter that is still parked, answering `answer` to its wait.
bool wake(vrksignal_waiter& waiter, int64_t answer) {
    if (!waiter.parked) return false;
    waiter.parked = false;
    vrkblock* b = waiter.block.get();
    if (!b) return false;
    set_int(&b->native_result, answer);
    vrk::sleep(b, 0, false, 0);
    return true;
}

}  // namespace

void ASignalHandler::wait(vrkblock* caller, int64_t timeout_ms, bool has_timeout, vrkvar& result) {
    ScriptLock lock;
    if (!caller || vrk::sleep(caller, kSleepUntilWoken, false, 1) != 1) return;
    caller->suspended = 2;
    set_int(&result, 1);
    auto waiter = std::make_shared<vrksignal_waiter>();
    waiter->block = vrkblock_handle::of(caller);
    waiters.push_back(waiter);
    if (!has_timeout) return;

    vrkblock* root = sleep_root(caller);
    const uint64_t start = ATimer::now_ms();
    const uint64_t index = registry_index;
    const uint32_t id = registry_id;
    root->get_completion().on_tick = [waiter, start, timeout_ms, index, id](vrkblock*) {
        if (!waiter->parked) return;
        // Before its time the waiter leaves the list; after it, it stays.
        if (start + static_cast<uint64_t>(timeout_ms) >= ATimer::now_ms()) {
            if (ASignalHandler* handler = resolve<ASignalHandler>(index, id)) {
                auto& list = handler->waiters;
                list.erase(std::remove(list.begin(), list.end(), waiter), list.end());
            }
        }
        wake(*waiter, 1);
    };
}

bool ASignalHandler::notify_one() {
    ScriptLock lock;
    while (!waiters.empty()) {
        std::shared_ptr<vrksignal_waiter> first = waiters.front();
        waiters.erase(waiters.begin());
        if (wake(*first, 0)) return true;
    }
    return false;
}

void ASignalHandler::notify_all() {
    ScriptLock lock;
    auto all = std::move(waiters);
    waiters.clear();
    for (auto& waiter : all) wake(*waiter, 0);
}

void ASignalHandler::scriptRegister() {
    registerType<ASignalHandler>(script_type_name);
    scriptFunction<ASignalHandler>(
        "wait",
        [](ASignalHandler* h, vrkblock* b, std::vector<vrkvar*>& args, vrkvar& result) {
            const bool has_timeout = args.size() == 1;
            h->wait(b, has_timeout ? to_int(deref(args[0])) : 0, has_timeout, result);
        },
        1, false, false,
        "(timeout) wait for a signal, returns true if the block wasnt awaken by a signal "
        "(timeout), else false.");
    scriptFunction<ASignalHandler>(
        "notify_one",
        [](ASignalHandler* h, vrkblock*, std::vector<vrkvar*>&, vrkvar&) { h->notify_one(); }, 0,
        false, false, "()");
    scriptFunction<ASignalHandler>(
        "notify_all",
        [](ASignalHandler* h, vrkblock*, std::vector<vrkvar*>&, vrkvar&) { h->notify_all(); }, 0,
        false, false, "()");
}

}  // namespace vrk
