// The thread worker type: runs of one function as script threads, and waits
// for them.
#include "objects/threadworker.h"

#include <algorithm>
#include <memory>

#include "base/script_lock.h"
#include "values/cell.h"
#include "vm/block.h"
#include "vm/copies.h"
#include "vm/errors.h"
#include "vm/sleep.h"

namespace vrk {

namespace {

// Parks the chain of `caller` until something wakes it; false when refused.
bool park(vrkblock* caller) {
    if (!caller || vrk::sleep(caller, kSleepUntilWoken, false, 1) != 1) return false;
    caller->suspended = 2;
    return true;
}

// Installs a wait on the block that sleeps for `caller`: `ready` is asked on
// each pass of the scheduler, and once it answers true, `done` runs and the
// caller is woken. Only the first true answer counts.
template <class Ready, class Done>
void wait_until(vrkblock* caller, Ready ready, Done done) {
    auto woken = std::make_shared<bool>(false);
    const vrkblock_handle waiter = vrkblock_handle::of(caller);
    sleep_root(caller)->get_completion().on_tick = [woken, waiter, ready, done](vrkblock*) {
        if (*woken || !ready()) return;
        *woken = true;
        vrkblock* b = waiter.get();
        if (!b) return;
        done(b);
        vrk::sleep(b, 0, false, 0);
    };
}

}  // namespace

AThreadWorker::AThreadWorker() {
    ScriptLock lock;
    function = cell_new(Tag::INT);
    last_result = cell_new(Tag::INT);
}

AThreadWorker::~AThreadWorker() {
    ScriptLock lock;
    cell_free(function);
    cell_free(last_result);
}

bool AThreadWorker::attach(vrkvar* cell) {
    vrkvar* fn = cell ? deref(cell) : nullptr;
    if (!fn || fn->type != Tag::FUNCTION) return false;
    ScriptLock lock;
    assign(function, fn);
    return true;
}

bool AThreadWorker::run(vrkblock* caller, std::vector<vrkvar*>& args) {
    ScriptLock lock;
    if (function->type != Tag::FUNCTION || !function->block || !block_alive(function->block)) {
        report_error(caller, "threadworker.run", "no function.");
        return false;
    }
    vrkblock* copy = get_instance(function->block, function, false);
    if (!copy) {
        report_error(caller, "threadworker.run", "cannot start thread!");
        return false;
    }
    const std::size_t count = std::min(
        args.size(), static_cast<std::size_t>(std::max<int16_t>(copy->param_count, 0)));
    for (std::size_t i = 0; i < count && i < copy->vars.size(); ++i) {
        vrkvar* param = copy->vars[i];
        assign(param, deref(args[i]), caller);
        param->flags &= static_cast<uint16_t>(~kParameterFlag);
    }
    vrk::sleep(copy, 0, true, 0);
    copy->kind |= kind::THREAD;
    ++running;

    // The worker may be gone by the time the run ends: it is found again by
    // its registry handle.
    const uint64_t index = registry_index;
    const uint32_t id = registry_id;
    vrkcompletion& completion = copy->get_completion();
    completion.on_finish = [index, id](vrkblock*, vrkvar* value) {
        AThreadWorker* worker = resolve<AThreadWorker>(index, id);
        if (!worker) return;
        if (value && !is_marker(value))
            assign(worker->last_result, value);
        else
            set_int(worker->last_result, 0);
        worker->waiting_one = 0;
        --worker->running;
    };
    return true;
}

void AThreadWorker::join(vrkblock* caller) {
    if (running == 0) return;
    ScriptLock lock;
    if (!park(caller)) return;
    const uint64_t index = registry_index;
    const uint32_t id = registry_id;
    wait_until(
        caller,
        [index, id] {
            AThreadWorker* worker = resolve<AThreadWorker>(index, id);
            return !worker || worker->running == 0;
        },
        [](vrkblock*) {});
}

void AThreadWorker::join_one(vrkblock* caller, vrkvar& result) {
    // With nothing running no run can end: the last value is the answer now.
    if (running == 0) {
        assign(&result, last_result);
        return;
    }
    ScriptLock lock;
    waiting_one = 1;
    if (!park(caller)) return;
    const uint64_t index = registry_index;
    const uint32_t id = registry_id;
    wait_until(
        caller,
        [index, id] {
            AThreadWorker* worker = resolve<AThreadWorker>(index, id);
            return !worker || worker->waiting_one == 0;
        },
        [index, id](vrkblock* b) {
            if (AThreadWorker* worker = resolve<AThreadWorker>(index, id))
                assign(&b->native_result, worker->last_result);
        });
}

void AThreadWorker::scriptRegister() {
    registerType<AThreadWorker>(script_type_name);
    scriptFunction<AThreadWorker>(
        "attach",
        [](AThreadWorker* w, vrkblock* b, std::vector<vrkvar*>& args, vrkvar&) {
            if (args.size() != 1 || !w->attach(args[0]))
                report_error(b, "threadworker.attach", "not a function.");
        },
        1, false, false, "(function) attach a function.");
    scriptFunction<AThreadWorker>(
        "run",
        [](AThreadWorker* w, vrkblock* b, std::vector<vrkvar*>& args, vrkvar&) { w->run(b, args); },
        16, false, false, "(...params) start a thread.");
    scriptFunction<AThreadWorker>(
        "join", [](AThreadWorker* w, vrkblock* b, std::vector<vrkvar*>&, vrkvar&) { w->join(b); },
        0, false, false, "() wait for all threads to finish.");
    scriptFunction<AThreadWorker>(
        "join_one",
        [](AThreadWorker* w, vrkblock* b, std::vector<vrkvar*>&, vrkvar& result) {
            w->join_one(b, result);
        },
        0, false, false, "() wait for one thread to finish.");
}

}  // namespace vrk
