// Windows implementation of platform/file_access.h: the file is opened the way
// the script reader opens it, and the system's text for a failure is returned.
#include <windows.h>

#include "platform/file_access.h"
#include "platform/text_windows.h"

namespace vrk::platform {

namespace {

std::string system_text(DWORD code) {
    char* text = nullptr;
    const DWORD length = FormatMessageA(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
        nullptr, code, 0, reinterpret_cast<char*>(&text), 0, nullptr);
    std::string result = length && text ? std::string(text, length) : std::string();
    if (text) LocalFree(text);
    while (!result.empty() &&
           (result.back() == '\n' || result.back() == '\r' || result.back() == ' '))
        result.pop_back();
    return result.empty() ? "error " + std::to_string(code) : result;
}

}  // namespace

std::string unreadable_reason(const std::string& path) {
    if (path.empty()) return system_text(ERROR_FILE_NOT_FOUND);
    const std::wstring wide = to_wide(path);
    const DWORD attributes = GetFileAttributesW(wide.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) return system_text(GetLastError());
    // A folder holds no text to read.
    if (attributes & FILE_ATTRIBUTE_DIRECTORY) return system_text(ERROR_DIRECTORY);
    HANDLE file = CreateFileW(wide.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                              nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return system_text(GetLastError());
    CloseHandle(file);
    return {};
}

}  // namespace vrk::platform
