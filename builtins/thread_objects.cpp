// The constructors of the thread worker, the signal handler and the timer.
#include "builtins/thread_objects.h"

#include <memory>

#include "objects/signalhandler.h"
#include "objects/threadworker.h"
#include "objects/timer.h"
#include "values/cell.h"
#include "vm/errors.h"

namespace vrk::lib {

namespace {

template <class T>
vrkvar* answer_new(vrkvar& result, std::unique_ptr<T> object) {
    set_object(&result, object.release(), true);
    return &result;
}

}  // namespace

VRK_BUILTIN(threadworker) {
    auto worker = std::make_unique<AThreadWorker>();
    if (!args.empty() && (args.size() != 1 || !worker->attach(args[0])))
        report_error(block, "threadworker", "not a function.");
    return answer_new(result, std::move(worker));
}

VRK_BUILTIN(signalhandler) { return answer_new(result, std::make_unique<ASignalHandler>()); }

VRK_BUILTIN(vrk_timer) {
    auto timer = std::make_unique<ATimer>();
    if (args.size() == 1) {
        timer->interval_ms = static_cast<uint64_t>(to_int(args[0]));
        timer->start_ms = ATimer::now_ms();
    }
    return answer_new(result, std::move(timer));
}

}  // namespace vrk::lib
