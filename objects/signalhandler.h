// `ASignalHandler`, the wait-and-notify object of scripts (script type
// `signalhandler`).
//
// A block that calls `wait` parks its chain with the scheduler and joins the
// handler's list of waiters; `notify_one` wakes the first waiter, `notify_all`
// every waiter in the order they came. Waking is an ordinary wake of a
// sleeping block, so the woken chains go on at the scheduler's next pass.
// The handler holds its waiters by guarded handle: it keeps no block alive,
// and a waiter that ended meanwhile is passed over.
//
// `wait(ms)` answers 1 ("not woken by a signal") and `wait()` woken by a
// notify answers 0. A wait with a timeout installs a callback that the
// scheduler calls on each of its passes over the parked chain; the first
// such pass ends the wait, whatever the timeout. The timeout only decides
// whether the waiter leaves the list: before its time it does, after it the
// entry stays until a notify passes over it.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "objects/object_ext.h"
#include "vm/block.h"

namespace vrk {

// One block parked in `wait`.
struct vrksignal_waiter {
    vrkblock_handle block;  // the block that called wait
    bool parked = true;     // still waiting: no notify and no pass of the scheduler has woken it
};

class ASignalHandler : public vrkobject_ext<ASignalHandler, vrkobject> {
public:
    static constexpr const char* script_type_name = "signalhandler";

    // Registers the type and its members.
    static void scriptRegister();

    // Parks `caller` until a notify (or, with `timeout_ms` not negative, until
    // the scheduler's next pass); `result` answers 1 unless a notify wakes it.
    void wait(vrkblock* caller, int64_t timeout_ms, bool has_timeout, vrkvar& result);
    // Wakes the first waiter still parked; false when there was none.
    bool notify_one();
    // Wakes every parked waiter in arrival order.
    void notify_all();

    std::vector<std::shared_ptr<vrksignal_waiter>> waiters;  // blocks in wait, in arrival order
};

}  // namespace vrk
