// Child processes with their standard streams on pipes.
//
// A script may start one program as a child, write to its standard input and
// poll its standard output (standard error joins it) without ever blocking.
// The host keeps the parent's two pipe ends and a handle of the child in a
// `spawned_process`; the child's ends are closed in the parent as soon as the
// child runs, so that the output pipe reports end of file when the child is
// gone. Ending a child always waits for it, and a child seen to have ended by
// itself is collected at once, so no finished child lingers in the process
// table and no handle of a collected child is ever signalled again.
//
// On Linux the pipes come from pipe2 with close-on-exec (so no other child
// inherits them) and the child from posix_spawn with the pipes moved onto its
// descriptors 0, 1 and 2; the command line is cut into arguments at blanks
// outside double quotes. On Windows they are anonymous pipes with the parent's
// ends marked not inherited, and CreateProcess gets the command line as it is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace vrk::platform {

// The parent's side of one child process.
struct spawned_process {
    intptr_t process = 0;    // process id (Linux) or process handle (Windows); 0 when none
    intptr_t thread = 0;     // main thread handle on Windows; unused on Linux
    intptr_t input = -1;     // write end of the child's standard input, -1 when closed
    intptr_t output = -1;    // read end of the child's standard output, -1 when closed
    bool collected = false;  // the child has ended and has been waited for
};

// Starts `program` with its standard input on one pipe and standard output and
// error on another. `command_line`, when not null, gives the whole argument
// list (program name included); otherwise the only argument is `program`. On a
// failure `failure` names the step ("StdoutRd CreatePipe", "Stdin CreatePipe",
// "create") and nothing is left open.
bool spawn_process(const std::string& program, const std::string* command_line,
                   spawned_process& child, std::string& failure);

// Writes all of `size` bytes to the child's standard input; false when the
// pipe is closed or broken (a child that has gone does not end the host).
bool process_write(spawned_process& child, const char* data, std::size_t size);

// Bytes that can be read from the child's output now without waiting, or -1
// when the pipe cannot be asked. Collects the child when it has ended.
int64_t process_available(spawned_process& child);

// Reads up to `size` bytes of the child's output; the count read, or -1.
int64_t process_read(spawned_process& child, char* data, std::size_t size);

// Kills the child unless it has already been collected, waits for it, and
// closes the parent's pipe ends. The record is empty afterwards.
void process_terminate(spawned_process& child);

}  // namespace vrk::platform
