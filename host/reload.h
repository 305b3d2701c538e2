// Reload on file change: the watcher thread and the listener that reloads.
//
// After a script has called `set_auto_reload(1)`, saving a `.vrs` file in the
// first script's folder retires the first script and loads it anew. A thread
// of its own watches the folder (recursively) through the platform's file
// watcher and looks at the changes every 3 s; the listener, `UpdateListener`,
// acts on a change only when all of these hold: auto reload is on, the last
// reload ended at least 3000 ms ago, the change is a write (`Modified`), the
// folder is the first script's folder exactly, the name holds ".vrs" anywhere
// (so "a.vrs.bak" counts and a file in a sub-folder counts too), and there is
// a first script. Whichever `.vrs` file changed, it is the first script that
// is reloaded.
//
// A reload runs on the watcher thread under the script lock: it stops every
// waiting block (and the blocks below it) and takes them off the engine's
// waiting lists, retires the first script, gives the lock up until the main
// thread's frames have emptied the waiting lists (and 200 ms more), then
// loads the script from its path again and runs the new root block right
// there. Any change the listener sees, acted on or not, starts a quiet time of
// 3000 ms after it: one save, which arrives as several writes, and saves in
// quick succession cause one reload.
#pragma once

#include <string>

#include "platform/file_watcher.h"

namespace vrk {

class vrkscript;

// Quiet time after a change the listener has seen, in milliseconds.
inline constexpr int64_t kReloadDebounceMs = 3000;
// Time between two looks of the watcher thread at the changes, in milliseconds.
inline constexpr int64_t kWatchPollMs = 3000;

// Acts on the changes of the first script's folder (see above).
class UpdateListener : public platform::FW::FileWatchListener {
public:
    void handleFileAction(platform::FW::WatchID watchId, const std::string& directory,
                          const std::string& fileName, platform::FW::Action action) override;
};

// Stops every block of the engine that waits for time or for a wake, with the
// blocks below it, and takes them off the engine's waiting lists. Called with
// the script lock held.
void stop_waiting_blocks(vrkscript& engine);

// Starts the watcher thread on the script's folder (the start directory for a
// script named without a folder); it runs until the process ends.
void start_watcher_thread(const std::string& scriptDirectory);

}  // namespace vrk
