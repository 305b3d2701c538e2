// Reload on file change: the watcher thread and `UpdateListener`.
#include "host/reload.h"

#include <atomic>
#include <exception>
#include <memory>
#include <thread>

#include "base/log.h"
#include "base/script_lock.h"
#include "frontend/parser.h"
#include "host/engine.h"
#include "host/host_state.h"
#include "platform/system.h"
#include "values/value_context.h"
#include "vm/block.h"
#include "vm/run.h"

namespace vrk {

namespace {

// The wait for the frames to empty the waiting lists looks this often.
constexpr int64_t kEmptyPollMs = 10;
// After the lists are empty, the reload waits this much longer.
constexpr int64_t kSettleMs = 200;
// A waiting list that never empties (a block that waits again at once) stops
// the wait after this many looks, so that a reload cannot hang the watcher.
constexpr int kMaxEmptyPolls = 1000;

bool is_live(const vrkblock* b) { return value_context().live_blocks.count(b) != 0; }

// Stops `b` and, below it, every child that still exists.
void stop_tree(vrkblock* b, int depth = 0) {
    if (!is_live(b) || depth > kMaxBlockDepth) return;
    stop_run(b, true);
    if (!b->children) return;
    const std::vector<vrkblock*> children = *b->children;
    for (vrkblock* child : children) stop_tree(child, depth + 1);
}

// A stopped block must not be resumed, and must not count as active: it has
// lost its resume point, and a frame would otherwise run it from its start
// when its time came.
void take_off_waiting_lists(vrkscript& engine, vrkblock* b) {
    if (!is_live(b)) return;
    b->sleeping = 0;
    engine.removedSleepers.push_back(b);
}

bool waiting_lists_empty(vrkscript& engine) {
    return engine.sleepingBlocks.empty() && engine.newSleepers.empty();
}

std::atomic<int64_t>& next_reload_time() { return host_state().nextReloadTime; }

// The folder the watcher watches: the script's folder. A script named without
// any folder has its own name as its folder part; it sits in the directory the
// host started in, which stays the working directory then, so that is watched.
std::string watched_folder(const std::string& scriptDirectory, const std::string& scriptPath) {
    if (!scriptDirectory.empty() && scriptDirectory == scriptPath &&
        scriptPath.find_first_of("/\\") == std::string::npos)
        return ".";
    return scriptDirectory;
}

}  // namespace

void stop_waiting_blocks(vrkscript& engine) {
    const std::vector<vrkblock_handle> sleeping = engine.sleepingBlocks;
    for (const vrkblock_handle& handle : sleeping) {
        vrkblock* b = handle.get();
        if (!b) continue;
        stop_run(b, true);
        if (b->children) {
            const std::vector<vrkblock*> children = *b->children;
            for (vrkblock* child : children) stop_tree(child);
        }
        take_off_waiting_lists(engine, b);
    }
    const std::vector<vrkblock*> fresh = engine.newSleepers;
    for (vrkblock* b : fresh) {
        stop_tree(b);
        take_off_waiting_lists(engine, b);
    }
}

void UpdateListener::handleFileAction(platform::FW::WatchID, const std::string& directory,
                                      const std::string& fileName, platform::FW::Action action) {
    vrkhost_state& host = host_state();
    if (std::atomic_ref<uint8_t>(host.autoReload).load() == 0 ||
        platform::monotonic_ms() < next_reload_time().load())
        return;

    ScriptLock lock;
    vrkscript* engine = host.mainEngine;
    if (action == platform::FW::Action::Modified && !host.scriptDirectory.empty() &&
        directory == watched_folder(host.scriptDirectory, host.scriptPath) &&
        fileName.find(".vrs") != std::string::npos && engine && host.mainParser) {
        const std::string path = host.scriptPath;
        stop_waiting_blocks(*engine);
        engine->reloadParser(host.mainParser, false);
        host.mainParser = nullptr;

        // The main thread's frames empty the waiting lists meanwhile.
        lock.unlock();
        for (int polls = 0; polls < kMaxEmptyPolls; ++polls) {
            lock.relock();
            const bool empty = waiting_lists_empty(*engine);
            lock.unlock();
            if (empty) break;
            platform::sleep_ms(kEmptyPollMs);
        }
        platform::sleep_ms(kSettleMs);
        lock.relock();

        host.mainParser = engine->load(path, true, true);
        if (vrkblock* root = host.mainParser ? host.mainParser->root_block : nullptr)
            run(root, nullptr, 0, kSelfUnchanged);
    }
    next_reload_time().store(platform::monotonic_ms() + kReloadDebounceMs);
}

void start_watcher_thread(const std::string& scriptDirectory) {
    const std::string directory = watched_folder(scriptDirectory, host_state().scriptPath);
    // The watch is set up here, before the script runs, so that its report
    // lines come at the same place of the output every time; the thread only
    // looks for changes.
    auto watcher = std::make_unique<platform::FW::FileWatcher>();
    auto listener = std::make_unique<UpdateListener>();
    log().log("FILE WATCHER: %s", directory.c_str());
    try {
        watcher->addWatch(directory, listener.get(), true);
    } catch (const std::exception& e) {
        log().error("FileWatcher error: %s", e.what());
    }
    std::thread([watcher = std::move(watcher), listener = std::move(listener)] {
        for (;;) {
            watcher->update();
            platform::sleep_ms(kWatchPollMs);
        }
    }).detach();
}

}  // namespace vrk
