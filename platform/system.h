// The operating-system services the host needs, behind one small interface.
//
// Nothing outside platform/ includes a system header: every call into the
// operating system goes through these functions. Each platform provides one
// source file implementing them (system_linux.cpp today); a Windows build puts
// the Win32 calls behind the same declarations.
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

}  // namespace vrk::platform
