// `ScriptSubProcess`, a child process with pipes (script type `subprocess`).
//
// `subprocess()` makes an idle object; `create_process(path, cmdline)` starts
// the program `path` with its standard input and output (standard error
// joined) on pipes. `write(text)` sends bytes to the child, `read()` answers
// what the child has written so far without ever waiting (the empty string
// when nothing is there), and `active()` tells whether this object started a
// child that it has not yet ended. `active` does not look at the child: one
// that has exited by itself still counts as active, and its remaining output
// can still be read.
//
// A second `create_process` ends the first child ("process already active!
// killing..."), and so does the end of the object ("terminated
// subprocess."). Every child is waited for when it ends, so none is left
// behind in the process table; the parent's pipe ends are closed with it.
#pragma once

#include <string>

#include "objects/object_ext.h"
#include "platform/process_spawn.h"

namespace vrk {

class ScriptSubProcess : public vrkobject_ext<ScriptSubProcess, vrkobject_threaded> {
public:
    static constexpr const char* script_type_name = "subprocess";

    // Registers the type and its members (create_process, write, read, active).
    static void scriptRegister();

    ScriptSubProcess() = default;
    ~ScriptSubProcess() override;

    // Starts `path`; `command_line` (may be null) is the whole argument list.
    // Ends a child this object runs first. False, after a report, on failure.
    bool start(const std::string& path, const std::string* command_line);
    // Ends the child this object runs, if any, with the log line "terminated subprocess.".
    void terminate();
    // Ends the child at once; the object itself goes at the next frame end,
    // so that a call still holding it (an argument pinned for the length of
    // `free(p)`) lets go of live memory.
    void destroy() override;

    platform::spawned_process child;  // the child and the parent's pipe ends
    std::string read_buffer;          // reused by `read`
    bool active = false;              // a child was started and not yet ended by this object
    bool ending = false;              // destroy has run: the deletion is queued
};

}  // namespace vrk
