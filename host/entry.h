// The process entry: from the argument vector to the end of the process.
//
// The entry prints what it was started with ("ARG:" lines, the executable's
// path and the start directory), records the executable's folder in the
// process context, parses the command line and carries out the run mode that
// host/command_line chooses:
//
//   one-shot run      load, compile and run the script under a 120 s
//                     watchdog; leave when its top block is done
//   compile           (one-shot or plain) save the compiled script as a .vre
//                     file and leave 5 s later
//   dependency test   create the engine and leave
//   normal run        load a script or a compiled program, run it, then
//                     loop over frames for good (host/frame_loop)
//   prompt            like a normal run, with lines typed at a prompt
//                     (host/repl) and an end when the input ends
//   registration      associate the file types (host/registration), exit 1
//
// --help and --version print and return before any of this; --quiet and
// --debug change how the modes run (log form, line tables), not which one.
//
// The engine is created once and never destroyed: worker threads, native
// modules and the reload code may use it until the process ends. Every mode
// returns exit code 0 except registration (1); failures are logged and
// waited out, never turned into exit codes.
#pragma once

namespace vrk {

// Runs the host; returns the process's exit code.
int entry(int argc, const char* const* argv);

// Runs `entry` on a thread whose stack holds the host's depth budget of nested
// script runs (the budget is set here too), and returns its exit code.
int run_host(int argc, const char* const* argv);

}  // namespace vrk
