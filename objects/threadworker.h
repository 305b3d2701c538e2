// `AThreadWorker`, a pool of script threads of one function (script type
// `threadworker`).
//
// A worker holds one function. Each `run(args...)` starts that function as a
// script thread in an idle copy with the arguments in its parameters, and
// counts it as running until its end, when its value becomes `last_result`.
// `join` parks the caller until no run is left; `join_one` until the next run
// ends, and answers that run's value. The waits are callbacks that the
// scheduler calls on each pass over the parked chain; they look at the
// worker's counters, which change only on the main thread, so no lock is
// needed.
#pragma once

#include <cstdint>
#include <vector>

#include "objects/object_ext.h"

namespace vrk {

class AThreadWorker : public vrkobject_ext<AThreadWorker, vrkobject> {
public:
    static constexpr const char* script_type_name = "threadworker";

    // Registers the type and its members.
    static void scriptRegister();

    AThreadWorker();
    ~AThreadWorker() override;

    // Sets the function, when `cell` is a FUNCTION; false otherwise.
    bool attach(vrkvar* cell);
    // Starts a run with these arguments; reports against `caller` and answers
    // false when there is no function or no copy to run it in.
    bool run(vrkblock* caller, std::vector<vrkvar*>& args);
    // Parks `caller` until no run is left (returns at once when none runs).
    void join(vrkblock* caller);
    // Parks `caller` until the next run ends; `result` answers its value.
    void join_one(vrkblock* caller, vrkvar& result);

    vrkvar* function = nullptr;     // the FUNCTION attached; INT 0 until then
    vrkvar* last_result = nullptr;  // value of the last run that ended
    int32_t running = 0;            // runs started and not yet ended
    uint8_t waiting_one = 0;        // set by join_one, cleared when a run ends
};

}  // namespace vrk
