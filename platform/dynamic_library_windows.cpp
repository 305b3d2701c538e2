// Native libraries on Windows: LoadLibraryW, GetProcAddress and the system
// message text of GetLastError.
#include <windows.h>

#include "platform/dynamic_library.h"
#include "platform/text_windows.h"

namespace vrk::platform {

const char* const DynamicLibrary::suffix = ".dll";

namespace {

// The system's text for an error code, without the line end it closes with.
std::string system_message(DWORD code) {
    char* buffer = nullptr;
    const DWORD size = FormatMessageA(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
        nullptr, code, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<LPSTR>(&buffer),
        0, nullptr);
    std::string text = size && buffer ? std::string(buffer, size) : std::string();
    if (buffer) LocalFree(buffer);
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    return text;
}

}  // namespace

std::unique_ptr<DynamicLibrary> DynamicLibrary::open(const std::string& path, std::string& error) {
    error.clear();
    HMODULE handle = LoadLibraryW(to_wide(path).c_str());
    if (!handle) {
        if (const DWORD code = GetLastError()) error = system_message(code);
        return nullptr;
    }
    return std::make_unique<DynamicLibrary>(reinterpret_cast<void*>(handle));
}

DynamicLibrary::~DynamicLibrary() = default;

void* DynamicLibrary::symbol(const char* name) const {
    if (!handle) return nullptr;
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(handle), name));
}

void DynamicLibrary::release() {
    if (handle) FreeLibrary(static_cast<HMODULE>(handle));
    handle = nullptr;
}

}  // namespace vrk::platform
