// Linux implementation of the process services of platform/system.h.
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits.h>
#include <thread>
#include <unistd.h>

#include "platform/system.h"

namespace vrk::platform {

std::string executable_path() {
    char buf[4096];
    ssize_t n = ::readlink("/proc/self/exe", buf, sizeof(buf) - 1);
    if (n <= 0) return {};
    return std::string(buf, static_cast<std::size_t>(n));
}

std::string current_directory() {
    char buf[4096];
    if (!::getcwd(buf, sizeof(buf))) return {};
    return buf;
}

bool change_directory(const std::string& dir) { return ::chdir(dir.c_str()) == 0; }

void prepare_standard_streams() {}

bool stdout_is_terminal() { return ::isatty(1) == 1; }

void write_stdout(const char* data, std::size_t size) { std::fwrite(data, 1, size, stdout); }

void write_stderr(const char* data, std::size_t size) {
    std::fflush(stdout);
    std::fwrite(data, 1, size, stderr);
}

int64_t monotonic_ms() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

int64_t unix_time() {
    using namespace std::chrono;
    return duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
}

void sleep_ms(int64_t ms) {
    if (ms > 0) std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

int last_error() { return errno; }

std::string error_text(int code) { return std::strerror(code); }

void exit_process(int code) {
    std::fflush(stdout);
    std::exit(code);
}

void abort_process() {
    std::fflush(stdout);
    std::abort();
}

const char* platform_name() { return "LINUX"; }

const char* script_folder() { return "scripts/"; }

const char* include_folder() { return "scripts/include/"; }

void detach_console() {}

}  // namespace vrk::platform
