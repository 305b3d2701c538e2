// Windows implementation of the process services of platform/system.h.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include "platform/system.h"
#include "platform/text_windows.h"

namespace vrk::platform {

namespace {

// Longest path the wide calls are asked for (the extended-length limit).
constexpr DWORD kMaxPath = 32768;

}  // namespace

std::string executable_path() {
    std::wstring buffer(kMaxPath, L'\0');
    const DWORD length = ::GetModuleFileNameW(nullptr, buffer.data(), kMaxPath);
    if (length == 0 || length >= kMaxPath) return {};
    buffer.resize(length);
    return from_wide(buffer);
}

std::string current_directory() {
    std::wstring buffer(kMaxPath, L'\0');
    const DWORD length = ::GetCurrentDirectoryW(kMaxPath, buffer.data());
    if (length == 0 || length >= kMaxPath) return {};
    buffer.resize(length);
    return from_wide(buffer);
}

bool change_directory(const std::string& dir) {
    return ::SetCurrentDirectoryW(to_wide(dir).c_str()) != 0;
}

// Binary mode: the host writes "\n" and means one byte, on a console, a pipe or
// a file alike, so captured output is the same on both platforms. Numbers are
// formatted with two exponent digits ("1e+20") as on the other platform, not
// the runtime's default three.
void prepare_standard_streams() {
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
    _set_output_format(_TWO_DIGIT_EXPONENT);
}

bool stdout_is_terminal() { return _isatty(_fileno(stdout)) != 0; }

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
    // Sleep takes at most 0xFFFFFFFE ms at a time (INFINITE is one more).
    constexpr int64_t kLongestSleep = 0x7FFFFFFF;
    while (ms > 0) {
        const int64_t step = ms < kLongestSleep ? ms : kLongestSleep;
        ::Sleep(static_cast<DWORD>(step));
        ms -= step;
    }
}

int last_error() { return static_cast<int>(::GetLastError()); }

std::string error_text(int code) {
    char* message = nullptr;
    const DWORD length = ::FormatMessageA(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
        nullptr, static_cast<DWORD>(code), MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT),
        reinterpret_cast<char*>(&message), 0, nullptr);
    std::string text;
    if (length > 0 && message) text.assign(message, length);
    if (message) ::LocalFree(message);
    // The system's texts end in a line break, which the log adds itself.
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' '))
        text.pop_back();
    if (text.empty()) text = "error " + std::to_string(code);
    return text;
}

void exit_process(int code) {
    std::fflush(stdout);
    std::exit(code);
}

void abort_process() {
    std::fflush(stdout);
    std::abort();
}

const char* platform_name() { return "WINDOWS"; }

const char* script_folder() { return "scripts\\"; }

const char* include_folder() { return "scripts\\include\\"; }

void detach_console() {
    std::fflush(stdout);
    ::FreeConsole();
}

}  // namespace vrk::platform
