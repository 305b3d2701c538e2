// Commands run through the system's command processor.
//
// `system` and its relatives hand a script's text to the command processor of
// the platform and wait for it: `/bin/sh -c` on Linux, `cmd /c` on Windows.
// One form answers the command's exit code, the other everything the command
// wrote to its standard output.
#pragma once

#include <string>

namespace vrk::platform {

// Runs `command` and waits; the command's exit code (the shell's status for a
// command it could not run), or -1 when no command processor could be started.
int run_shell(const std::string& command);

// Runs `command` with its standard output on a pipe and appends everything it
// writes to `out`; false when the pipe could not be opened.
bool capture_shell(const std::string& command, std::string& out);

}  // namespace vrk::platform
