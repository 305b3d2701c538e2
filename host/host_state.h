// The host's part of the process context: the values the command line sets.
//
// The command line, the frame loop and the init-script functions share these
// values without an engine pointer. Like the rest of the process context
// (base/context.h) this record is created on first use and never destroyed.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace vrk {

class vrkscript;
struct vrkparser;

// Values the command line sets and the rest of the host reads.
struct vrkhost_state {
    std::string workingDirectory;            // directory in force (script function working_dir)
    std::string scriptDirectory;             // directory of the first script; reload restores it
    std::string scriptPath;                  // path of the first script after trimming
    vrkscript* firstEngine = nullptr;        // first engine created
    std::atomic<uint32_t> nextThreadId{0};   // ids of worker thread records
    vrkscript* mainEngine = nullptr;         // engine of the normal run
    vrkparser* mainParser = nullptr;         // parser of the first script
    uint8_t keepRunningRequested = 0;        // set by keep_script_running, cleared after each frame
    uint8_t autoReload = 0;                  // set by set_auto_reload
    std::atomic<int64_t> nextReloadTime{0};  // no reload on file change before this (ms)
    int32_t performanceMode = 0;             // set by set_performance_mode (only logged)
    std::atomic<int32_t> wakeRequested{0};   // set by the wake callback, exchanged to 0 by the loop
    std::string scriptArgument;              // value of --scriptarg in one-shot mode
};

// The host's part of the process context, created on first use and never freed.
vrkhost_state& host_state();

}  // namespace vrk
