// The interactive prompt (`--repl`, `-i`): typed lines run as script text.
//
// The engine has a prompt of its own: a parser (`promptParser`) and a queue of
// lines waiting for it (`promptLines`). Every frame, when the queue holds a
// line and the prompt's root block is idle, the engine parses the front line
// into that root block, compiles and runs it. The prompt session only feeds
// that queue: a reader thread shows the prompt, reads lines with editing and
// history (platform/line_editor), gathers the lines of a statement whose
// braces are still open, and queues the statement. The main thread meanwhile
// runs the frame loop as a normal run does, so sleeping functions, script
// threads, schedules and `onFrame` go on between lines. Variables and
// functions of one line stay for the next, since each line is parsed into the
// same root block.
//
// Ctrl-C abandons the line being typed (and any open statement); Ctrl-D, or
// the end of the input, ends the session once the lines typed so far have run.
#pragma once

#include <string>

namespace vrk {

class vrkscript;
namespace platform {
class FrameClock;
}

// Runs the prompt on `engine` until the input ends; returns the exit code (0).
int run_prompt_session(vrkscript& engine, platform::FrameClock* clock);

// Depth of open braces `{` at the end of `text`, not counting braces inside
// double-quoted strings or after "//". Zero or less: the statement is complete.
int open_brace_depth(const std::string& text);

}  // namespace vrk
