// The schedule builtins: records of the engine's date schedules.
#include "builtins/schedules.h"

#include <cstdio>
#include <memory>
#include <string>

#include "base/log.h"
#include "base/script_lock.h"
#include "builtins/schedule_record.h"
#include "platform/local_time.h"
#include "values/cell.h"
#include "values/pools.h"
#include "vm/block.h"
#include "vm/copies.h"
#include "vm/engine.h"
#include "vm/errors.h"
#include "vm/sleep.h"

namespace vrk::lib {

namespace {

// Callback-queue handles of schedule clean-ups: a bit of their own keeps
// them apart from object ids, object associations and joins.
constexpr uint64_t kScheduleHandleBit = uint64_t{1} << 62;

// A cell of the task's own, freed with the last copy of the task.
std::shared_ptr<vrkvar> private_cell(vrkvar* source, vrkblock* block) {
    vrkvar* cell = cell_new(Tag::INT);
    assign(cell, source, block);
    return {cell, [](vrkvar* c) {
                ScriptLock lock;
                cell_free(c);
            }};
}

// The task of a record: starts the function as a script thread in an idle
// copy; false when none can be had.
bool start_scheduled(const std::shared_ptr<vrkvar>& function) {
    vrkvar* fn = function.get();
    vrkblock* copy = fn->type == Tag::FUNCTION && block_alive(fn->block)
                         ? get_instance(fn->block, fn, false)
                         : nullptr;
    if (!copy || copy->busy()) {
        log().warn("scheduled thread is still busy!");
        return false;
    }
    vrk::sleep(copy, 0, true, 0);
    copy->kind |= kind::THREAD;
    return true;
}

// The start of a schedule, "dd.mm.yyyy hh:mm" in local time; -1 when the
// text gives no moment. Fields the text does not give are 0.
int64_t parse_start(const std::string& text) {
    int day = 0, month = 0, year = 0, hour = 0, minute = 0;
    std::sscanf(text.c_str(), "%d.%d.%d %d:%d", &day, &month, &year, &hour, &minute);
    platform::calendar_time fields;
    fields.year = year;
    fields.month = month;
    fields.day = day;
    fields.hour = hour;
    fields.minute = minute;
    fields.second = 0;
    return platform::local_to_unix(fields);
}

vrkvar* answer_false(vrkvar& result) {
    set_int(&result, 0);
    return &result;
}

vrkvar* every(vrkengine* engine, vrkblock* block, std::vector<vrkvar*>& args, vrkvar& result,
              int32_t kind) {
    if (args.empty()) {
        report_error(block, "external_function", "needs function parameter");
        return answer_false(result);
    }
    vrkvar* fn = deref(args[0]);
    if (fn->type != Tag::FUNCTION || !fn->block || !block_alive(fn->block)) {
        report_error(block, "external_function", "not a func!");
        return answer_false(result);
    }
    ScriptLock lock;
    vrkschedule* record = engine->addSchedule();
    record->kind = kind;
    record->period = args.size() > 1 ? static_cast<uint64_t>(to_int(args[1])) : 0;

    const std::string text = args.size() > 2 ? to_string(args[2]) : std::string();
    const int64_t start = parse_start(text);
    if (start == -1) {
        char message[512];
        std::snprintf(message, sizeof message, "invalid date format ! %s", text.c_str());
        runtime_error(message, block);
        engine->removeSchedule(record);
        return answer_false(result);
    }
    record->start_time = start;
    record->last_run = start;
    std::shared_ptr<vrkvar> function = private_cell(fn, block);
    record->task = [function]() { return start_scheduled(function); };

    // The record goes when the function's block goes.
    const uint64_t id = record->id;
    callback_add(
        [engine, id](uint64_t) {
            if (vrkschedule* s = engine->find_schedule(id)) engine->removeSchedule(s);
        },
        kScheduleHandleBit | id, fn->block, 1);
    set_int(&result, static_cast<int64_t>(id));
    return &result;
}

}  // namespace

VRK_BUILTIN(everyxdays) { return every(engine, block, args, result, schedule_kind::days); }
VRK_BUILTIN(everyxhours) { return every(engine, block, args, result, schedule_kind::hours); }
VRK_BUILTIN(everyxminutes) { return every(engine, block, args, result, schedule_kind::minutes); }
VRK_BUILTIN(everyxseconds) { return every(engine, block, args, result, schedule_kind::seconds); }

}  // namespace vrk::lib
