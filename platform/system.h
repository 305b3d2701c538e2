// The operating-system services the host needs, behind one small interface.
//
// Nothing outside platform/ includes a system header: every call into the
// operating system goes through these functions. Each platform provides one
// source file implementing them: system_linux.cpp with POSIX calls,
// system_windows.cpp with Win32 calls. Texts cross this interface as UTF-8 on
// both; the Windows side converts to and from the system's UTF-16 where it
// asks the system for a path.
#pragma once

#include <cstdint>
#include <string>

namespace vrk::platform {

// Full path of the running executable, or "" if it cannot be found.
std::string executable_path();

// The process's current directory, or "" if it cannot be read.
std::string current_directory();

// Changes the process's current directory; returns false on failure.
bool change_directory(const std::string& dir);

// Sets the standard streams up for the host's output, once at start: binary
// mode on Windows (a "\n" stays one byte in files and pipes), nothing on Linux.
void prepare_standard_streams();

// True when standard output is an interactive terminal (colour is only
// written then).
bool stdout_is_terminal();

// Writes bytes to standard output unbuffered by the C++ streams.
void write_stdout(const char* data, std::size_t size);

// Writes bytes to standard error (unbuffered) after flushing standard output,
// so that the two streams keep their order on a shared terminal.
void write_stderr(const char* data, std::size_t size);

// Milliseconds of a monotonic clock; only differences are meaningful.
int64_t monotonic_ms();

// Seconds since the Unix epoch (wall clock).
int64_t unix_time();

// Blocks the calling thread for the given number of milliseconds.
void sleep_ms(int64_t ms);

// The last system error number (errno on Linux, GetLastError on Windows).
int last_error();

// A short text describing a system error number.
std::string error_text(int code);

// Ends the process at once with the exit code, after flushing stdout.
[[noreturn]] void exit_process(int code);

// Ends the process abnormally.
[[noreturn]] void abort_process();

// Name of the platform as scripts see it: "LINUX" or "WINDOWS".
const char* platform_name();

// The folder relative script names are looked up in, as this platform writes
// a path: "scripts/" on Linux, "scripts\\" on Windows.
const char* script_folder();

// The include folder inside it: "scripts/include/" or "scripts\\include\\".
const char* include_folder();

// Lets go of the console before a compiled program runs, so that a program
// opened from the desktop leaves no console window behind (FreeConsole on
// Windows). Linux has no such window: output stays on standard output.
void detach_console();

}  // namespace vrk::platform
