// The subprocess type: starting, feeding, polling and ending one child process.
#include "objects/subprocess.h"

#include "base/log.h"
#include "base/script_lock.h"
#include "values/cell.h"
#include "values/value_context.h"
#include "vm/block.h"

namespace vrk {

ScriptSubProcess::~ScriptSubProcess() { terminate(); }

void ScriptSubProcess::destroy() {
    terminate();
    if (ending || (object_flags & object_flag::DETACHED)) return;
    vrkvalue_context& ctx = value_context();
    if (!ctx.deferDeletion) {
        vrkobject_threaded::destroy();
        return;
    }
    ending = true;
    ScriptLock lock;
    ctx.deferDeletion(owner_block && block_alive(owner_block) ? owner_block->engine : nullptr,
                      this);
}

void ScriptSubProcess::terminate() {
    if (!active) return;
    platform::process_terminate(child);
    log().log("terminated subprocess.");
    active = false;
}

bool ScriptSubProcess::start(const std::string& path, const std::string* command_line) {
    if (active) {
        log().error("process already active! killing...");
        terminate();
    }
    active = false;
    std::string failure;
    if (!platform::spawn_process(path, command_line, child, failure)) {
        if (failure == "create")
            log().error("cannot create subprocess %s!", path.c_str());
        else
            log().error("%s", failure.c_str());
        return false;
    }
    active = true;
    return true;
}

void ScriptSubProcess::scriptRegister() {
    registerType<ScriptSubProcess>(script_type_name);
    scriptFunction<ScriptSubProcess>(
        "create_process",
        [](ScriptSubProcess* p, vrkblock*, std::vector<vrkvar*>& args, vrkvar&) {
            if (args.empty()) return;
            const std::string path = to_string(args[0]);
            if (args.size() == 2 && args[1]->type == Tag::STRING) {
                const std::string line = to_string(args[1]);
                p->start(path, &line);
            } else {
                p->start(path, nullptr);
            }
        },
        2, true, false, "(path,cmdline)");
    scriptFunction<ScriptSubProcess>(
        "write",
        [](ScriptSubProcess* p, vrkblock*, std::vector<vrkvar*>& args, vrkvar&) {
            if (args.size() != 1 || !p->active) return;
            const std::string text = to_string(args[0]);
            if (!platform::process_write(p->child, text.data(), text.size()))
                log().error("cannot write subprocess %s!", text.c_str());
        },
        1, true, false, "(path)");
    scriptFunction<ScriptSubProcess>(
        "read",
        [](ScriptSubProcess* p, vrkblock*, std::vector<vrkvar*>&, vrkvar& result) {
            set_string(&result, "");
            if (!p->active) return;
            const int64_t available = platform::process_available(p->child);
            if (available <= 0) return;
            p->read_buffer.assign(static_cast<std::size_t>(available) + 1, '\0');
            const int64_t got = platform::process_read(p->child, p->read_buffer.data(),
                                                       p->read_buffer.size() - 1);
            if (got < 0) {
                log().error("cannot read subprocess!");
                return;
            }
            set_string(&result, p->read_buffer.data(), static_cast<std::size_t>(got));
        },
        0, true, false, "(path)");
    scriptFunction<ScriptSubProcess>(
        "active",
        [](ScriptSubProcess* p, vrkblock*, std::vector<vrkvar*>&, vrkvar& result) {
            set_int(&result, p->active ? 1 : 0);
        },
        0, true, false, "");
}

}  // namespace vrk
