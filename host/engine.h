// `vrkscript`, the engine: owner of scripts, waiting blocks, threads and schedules.
//
// One engine serves the process in normal use. It owns the global block and the
// block of registered functions, the list of loaded scripts (one parser each),
// the blocks that wait for time, the worker thread records, the periodic
// schedules and the deferred deletions. Its heart is `frame`, one pass of
// housekeeping and scheduling that the host calls in a loop about a thousand
// times a second; every step of a frame therefore begins with an emptiness test.
//
// Native modules see this record's layout, so the field order is kept, the
// unnamed string and byte included.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "vm/instruction.h"

namespace vrk {

struct vrkblock;
struct vrkvar;
struct vrkparser;
struct vrkthread_record;
struct vrkschedule;
class vrkobject;

// A guarded handle of a block: valid while the registry slot keeps the id.
struct vrkblock_handle {
    uint64_t index = 0;  // registry index of the block
    uint32_t id = 0;     // registry id; 0 means empty
    vrkblock* get() const;
    static vrkblock_handle of(vrkblock* b);
};

// A guarded handle of a native object.
struct vrkobject_handle {
    uint64_t index = 0;  // registry index of the object
    uint32_t id = 0;     // registry id; 0 means empty
    vrkobject* get() const;
};

// A parser taken out of `parsers` whose blocks still run.
struct vrkretired_parser {
    vrkparser* parser = nullptr;             // the parser
    std::vector<vrkblock*> active_blocks;    // its blocks still active when it was retired
};

class vrkscript {
public:
    vrkscript();
    ~vrkscript();
    vrkscript(const vrkscript&) = delete;
    vrkscript& operator=(const vrkscript&) = delete;

    // Registers a builtin: a native block under `name` in firstBlock. The name and
    // description must outlive the engine. Returns the function's cell.
    vrkvar* registerFunction(const char* name, vrkbuiltin_fn function, int parameterCount,
                             void* userValue, const char* description, bool plain_args,
                             bool deref_args);
    // Registers a global variable in firstBlock.
    vrkvar* registerVariable(const char* name, const char* description);

    // Takes a block out of every engine list (called by the block's destructor).
    void forget_block(vrkblock* b);

    vrkblock* firstBlock = nullptr;             // registered functions: cells, names, native blocks
    std::string moduleText;                     // kept for native modules
    uint8_t moduleFlag = 1;                     // kept for native modules
    std::string workingDirectory;               // copy of the directory in force
    std::vector<vrkparser*> parsers;            // loaded scripts, in load order
    std::vector<vrkblock_handle> sleepingBlocks;  // blocks waiting for a time or a wake
    std::vector<vrkblock*> newSleepers;         // suspended since the last frame
    std::vector<vrkblock*> finishedBlocks;      // detached blocks to delete at frame end
    std::vector<vrkblock*> removedSleepers;     // blocks to drop from sleepingBlocks
    std::vector<vrkparser*> parsersToRemove;    // scripts to stop at the next frame
    std::vector<vrkthread_record*> pendingThreads;  // worker threads not yet started
    std::vector<vrkthread_record*> activeThreads;   // running or finished worker threads
    std::vector<vrkobject*> deletedObjects;     // objects whose deletion waits for frame end
    std::vector<vrkschedule*> schedules;        // periodic callbacks
    std::vector<vrkblock*> frame_blocks;        // run once per frame (onFrame)
    std::vector<vrkobject_handle> objectsBeforeFrame;  // receive onFrameBegin
    std::vector<vrkobject_handle> objectsAfterFrame;   // receive onFrameEnd
    std::map<std::string, vrkblock*> extern_blocks;    // blocks declared extern, by name
    std::map<const char*, const char*> descriptions;   // help text by name pointer
    std::map<vrkblock*, std::function<void()>> rootCallbacks;  // tied to a script's root block
    vrkblock* globalBlock = nullptr;            // the scripts' global variables
    std::map<vrkvar*, std::string> namedCells;  // named global cells
    std::atomic<uint8_t> inHousekeeping{0};     // 1 while frame releases threads and schedules
    uint8_t sleepersChanged = 0;                // set by a block's destructor: stop the sleeper walk
    uint64_t nextScheduleId = 0;                // counter of schedule ids
    uint32_t activeThreadCount = 0;             // size of activeThreads, kept by hand
    uint32_t nextScheduleIndex = 0;             // round-robin position in schedules
    vrkparser* promptParser = nullptr;          // parser that executes typed lines
    std::deque<std::string> promptLines;        // lines waiting for promptParser
    std::map<uint64_t, std::vector<std::function<void()>>> reloadCallbacks;  // before a script goes
    std::string scriptSearchPath;               // prefix for relative script names
    std::string unusedText;                     // unused by the host
    std::vector<vrkretired_parser> retiredParsers;  // parsers whose blocks still run
    std::vector<std::function<void()>> afterRetireCallbacks;  // when retiredParsers runs empty
    std::function<void()> mainThreadHandler;    // set only by a native module
};

}  // namespace vrk
