// `vrkscript`, the engine: owner of scripts, waiting blocks, threads and schedules.
//
// One engine serves the process in normal use. It owns the global block and the
// block of registered functions, the list of loaded scripts (one parser each),
// the blocks that wait for time, the worker thread records, the periodic
// schedules and the deferred deletions. Its heart is `frame`, one pass of
// housekeeping and scheduling that the host calls in a loop about a thousand
// times a second; every step of a frame therefore begins with an emptiness test.
//
// Waiting works without any stack of its own. A block that must wait (the
// script called `sleep`, a worker runs on its behalf) marks its outermost
// caller as sleeping and its run returns "suspended" all the way out. The
// engine keeps weak handles of such blocks; `frame` looks at each in turn and
// runs it again from its resume point once its time has come, which resumes the
// whole chain of calls below it. A block that dies while it waits simply leaves
// a stale handle behind, which the next frame sweeps away.
//
// A script is retired rather than deleted while any of its blocks is still
// active: its parser moves to `retiredParsers` and a later frame destroys it
// once nothing of it runs any more.
//
// The layers below the host see the engine as `vrkengine` (vm/engine.h): the
// tables they read and write are fields of that base, and what they may ask of
// the engine (registration, loading, worker threads, schedules, a block's end)
// are its virtual functions, implemented here.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "builtins/schedule_record.h"
#include "host/thread_record.h"
#include "values/object.h"
#include "vm/block.h"
#include "vm/engine.h"
#include "vm/instruction.h"

namespace vrk {

struct vrkblock;
struct vrkvar;
struct vrkparser;

// A parser taken out of `parsers` whose blocks still run.
struct vrkretired_parser {
    std::unique_ptr<vrkparser> parser;     // the parser, destroyed with the record
    std::vector<vrkblock*> active_blocks;  // its blocks still active when it was retired
};

class vrkscript : public vrkengine {
public:
    // Creates the blocks of the engine, loads native modules and registers the
    // builtins. The first engine of the process becomes the context's firstEngine.
    vrkscript();
    ~vrkscript() override;
    vrkscript(const vrkscript&) = delete;
    vrkscript& operator=(const vrkscript&) = delete;

    // Registers a builtin: a native block under `name` in firstBlock. The name and
    // description must outlive the engine. Returns the function's cell.
    vrkvar* registerFunction(const char* name, vrkbuiltin_fn function, int parameterCount,
                             void* userValue, const char* description, bool plain_args,
                             bool deref_args) override;
    // registerFunction, and the function cell enters `constructors` with the
    // script type name it makes.
    vrkvar* registerConstructor(const char* name, vrkbuiltin_fn function, int parameterCount,
                                void* userValue, const char* description, bool plain_args,
                                bool deref_args, const char* typeName) override;
    // Registers a global variable in firstBlock.
    vrkvar* registerVariable(const char* name, const char* description) override;

    // Loads a script: a file (`isFile`) or source text. Returns the parser, which
    // has no root block when the source could not be read; null for an empty name.
    vrkparser* load(const std::string& fileName, bool isFile, bool compileNow) override;
    // The loaded scripts, in load order.
    std::vector<vrkparser*> scripts() const override;
    // Takes a script out of `parsers`: destroyed at once when none of its blocks
    // is active, else retired until they have finished. `callback` runs when the
    // parser is gone. With `recompileAll` the other scripts are compiled anew.
    void reloadParser(vrkparser* parser, bool recompileAll, std::function<void()> callback = {});
    // Parses, compiles and runs every loaded script again; disposable ones go.
    void recompile();
    // One pass of housekeeping and scheduling. Returns true when blocks were
    // suspended during it.
    bool frame();

    // A new zeroed schedule record with the next id, owned by the engine.
    vrkschedule* addSchedule() override;
    // Finds the record and frees it; an unknown record is ignored.
    void removeSchedule(vrkschedule* record) override;
    // The schedule record with that id, or null.
    vrkschedule* find_schedule(uint64_t id) override;

    // Runs `function` on a worker thread on behalf of `block`, which sleeps until
    // a frame after the work has finished; the function gets `returnCell`,
    // which is also the answer. Past 2048 running workers the work is parked
    // and started by a later frame (host/workers.cpp).
    vrkvar* returnThread(std::function<void(vrkvar*)> function, vrkblock* block,
                         vrkvar* returnCell) override;

    // Loads the native module at `path`: glue, then start (host/modules.cpp).
    void loadModule(const std::string& path) override;

    // Takes a block out of every engine list (called by the block's destructor).
    void forget_block(vrkblock* b);

    // True while the block is in the scheduler's hands: waiting to start,
    // sleeping, or suspended and resumed by the frame (host/script_threads.cpp).
    bool is_scheduled(const vrkblock* b) const override;
    // Ends the run of a script thread (or any block the scheduler holds) at
    // once: its chain stops where it stands, the block leaves the scheduler and
    // whoever waits for its end is told, with no value. False for a block the
    // run loop is inside, which cannot be stopped under it.
    bool stop_thread(vrkblock* b) override;

    // The block layer's calls (vm/engine.h): a block is destroyed, a block now
    // sleeps, a detached block has finished.
    void block_destroyed(vrkblock* block) override;
    void add_sleeper(vrkblock* block) override;
    void block_finished(vrkblock* block) override;

    std::string workingDirectory;                     // copy of the directory in force
    std::vector<std::unique_ptr<vrkparser>> parsers;  // loaded scripts, in load order
    std::vector<vrkblock_handle> sleepingBlocks;      // blocks waiting for a time or a wake
    std::vector<vrkblock*> newSleepers;               // suspended since the last frame
    std::vector<vrkblock*> finishedBlocks;            // detached blocks to delete at frame end
    std::vector<vrkblock*> removedSleepers;           // blocks to drop from sleepingBlocks
    std::vector<std::unique_ptr<vrkthread_record>>
        pendingThreads;                                            // worker threads not yet started
    std::vector<std::unique_ptr<vrkthread_record>> activeThreads;  // running or finished workers
    std::vector<std::unique_ptr<vrkobject>> deletedObjects;        // deleted at frame end
    std::vector<std::unique_ptr<vrkschedule>> schedules;           // periodic callbacks
    std::vector<vrkobject_handle> objectsBeforeFrame;              // receive onFrameBegin
    std::vector<vrkobject_handle> objectsAfterFrame;               // receive onFrameEnd
    std::map<vrkblock*, std::function<void()>> rootCallbacks;      // tied to a script's root block
    std::atomic<uint8_t> inHousekeeping{0};  // 1 while frame releases threads and schedules
    uint8_t sleepersChanged = 0;             // set by a block's destructor: stop the sleeper walk
    uint64_t nextScheduleId = 0;             // counter of schedule ids
    uint32_t activeThreadCount = 0;          // size of activeThreads, kept by hand
    uint32_t nextScheduleIndex = 0;          // round-robin position in schedules
    vrkparser* promptParser = nullptr;       // parser that executes typed lines
    std::deque<std::string> promptLines;     // lines waiting for promptParser
    std::map<uint64_t, std::vector<std::function<void()>>> reloadCallbacks;  // before a script goes
    std::vector<vrkretired_parser> retiredParsers;            // parsers whose blocks still run
    std::vector<std::function<void()>> afterRetireCallbacks;  // when retiredParsers runs empty
    std::function<void()> mainThreadHandler;                  // set only by a native module

private:
    // Looks for native modules beside the working directory, then beside the
    // executable (host/modules.cpp).
    void load_native_modules();
    // Calls and empties reloadCallbacks.
    void call_reload_callbacks();
};

// True while the block takes part in a run: running, suspended, sleeping,
// waiting or held (the block's busy test). A block that no longer exists is not
// active.
bool block_active(const vrkblock* b);

}  // namespace vrk
