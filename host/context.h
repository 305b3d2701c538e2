// The process context: the one process-wide record.
//
// Everything that must be reachable without an engine pointer lives here: the
// version text handed to native modules, the global script lock and its owner,
// the value pools and the queues that feed them, the guarded pointer registry,
// the callback queue, the set of live blocks, the log, and the values the command
// line sets for the rest of the host. It is created on first use by whoever
// touches it first and is never destroyed, so worker threads may use it until the
// very end of the process. Nothing else in vorka is a global.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/log.h"
#include "objects/object.h"
#include "values/cell.h"
#include "values/pools.h"

namespace vrk {

class vrkscript;
struct vrkparser;
struct vrktype_record;

// Values the command line sets and the rest of the host reads.
struct vrkhost_state {
    std::string workingDirectory;           // directory in force (script function working_dir)
    std::string scriptDirectory;            // directory of the first script; reload restores it
    std::string scriptPath;                 // path of the first script after trimming
    vrkscript* mainEngine = nullptr;        // engine of the normal run
    vrkparser* mainParser = nullptr;        // parser of the first script
    uint8_t keepRunningRequested = 0;       // set by keep_script_running, cleared after each frame
    uint8_t autoReload = 0;                 // set by set_auto_reload
    int32_t performanceMode = 0;            // set by set_performance_mode (only logged)
    std::atomic<int32_t> wakeRequested{0};  // set by the wake callback, exchanged to 0 by the loop
    std::string scriptArgument;             // value of --scriptarg in one-shot mode
};

struct vrkcontext {
    vrkcontext();
    vrkcontext(const vrkcontext&) = delete;
    vrkcontext& operator=(const vrkcontext&) = delete;

    const char* version = "10.5";               // compared by native modules
    std::recursive_mutex global_lock;           // the global script lock
    std::function<void()> wakeCallback;         // wakes the frame loop; empty until installed
    // Queues a native object for deletion at the frame end of an engine; set by the engine.
    std::function<void(vrkscript*, vrkobject*)> deferDeletion;
    // Runs work on a worker thread for a block (the engine's returnThread); set by the engine.
    std::function<vrkvar*(std::function<void(vrkvar*)>, vrkblock*, vrkvar*)> startWorker;
    std::atomic<uint32_t> nextThreadId{0};      // ids of worker thread records
    std::string executableDirectory;            // directory of the executable, no trailing separator
    vrkscript* firstEngine = nullptr;           // first engine created
    std::map<std::string, std::shared_ptr<vrktype_record>> types;  // native script types by name
    std::string lastTypeName;                   // type registered last
    std::map<std::string, int> typeList;        // companion of types
    vrkpools pools;                             // free lists and foreign-thread queues
    vrkregistry registry;                       // guarded pointer table
    std::vector<vrkobject*> vector_pool;        // vec objects free for reuse (still registered)
    uint64_t vectors_created = 0;               // vec objects ever allocated
    uint64_t vectors_live = 0;                  // vec objects allocated and not yet deleted
    uint32_t main_thread = 0;                   // thread that created the last engine
    std::atomic<uint32_t> lock_thread{0};       // thread holding global_lock now, 0 if none
    uint32_t lock_depth = 0;                    // nesting of the lock taken by other threads
    std::vector<vrkcallback> callback_queue;    // destroy callbacks by block
    uint32_t live_cells = 0;                    // constructed cell records
    std::map<const vrkblock*, std::vector<vrkvar*>*> live_blocks;  // every block that exists
    uint64_t blocks_destroyed = 0;              // blocks that have left live_blocks so far
    bool debug_info = false;                    // keep line and file tables while compiling
    vrkblock* current_compiling_block = nullptr;  // block whose token is being compiled; null between tokens
    uint32_t array_loop_counter = 0;            // numbers the generated names of `list:: = ...` loops
    uint32_t iterative_loop_counter = 0;        // numbers the generated indexes of `for(x::list)` loops
    vrklog log;                                 // the log object
    // Budgets of script runs, for hosts that run untrusted text; 0 means no
    // limit. Both count down with unsigned wrap-around, so 0 stays unlimited:
    // `step_budget` loses one per instruction and every run stops at its next
    // safe point once it has reached 0; `depth_budget` loses one per entered run
    // and gets it back when that run ends, and a run that would take it to 0 is
    // not entered.
    uint64_t step_budget = 0;                   // instructions left to all runs together
    uint32_t depth_budget = 0;                  // nested runs left
    bool step_budget_spent = false;             // the step budget ran out (reported once)
    vrkhost_state host;                         // command-line values
};

// The process context, created on first use and never freed.
vrkcontext& context();

}  // namespace vrk
