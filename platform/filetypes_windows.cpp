// File-type registration on Windows: default values of keys under the user's
// classes (HKEY_CURRENT_USER\Software\Classes), then SHChangeNotify.
//
// Every setting is a key's default value. "Content Type" and "PerceivedType"
// are therefore sub-keys of the extension, not named values of it; the
// registration has always written them so and keeps that form.
#include <cstdio>
#include <shlobj.h>
#include <windows.h>

#include "platform/filetypes.h"

namespace vrk::platform {

namespace {

constexpr const char* kSourceClass = "tallowmere.vorkaengine.1";
constexpr const char* kProgramClass = "tallowmere.vorkaengine.4";
// Size of the buffer a stored value is read into.
constexpr DWORD kValueBufferSize = 1000;

std::string classes(const std::string& key) { return "Software\\Classes\\" + key; }

// Closes a registry key however the caller leaves.
struct key_closer {
    HKEY key;
    ~key_closer() { ::RegCloseKey(key); }
};

// Closes a process token however the caller leaves.
struct handle_closer {
    HANDLE handle;
    ~handle_closer() { ::CloseHandle(handle); }
};

}  // namespace

std::vector<FileTypeSetting> file_type_settings(const std::string& executablePath) {
    const std::string program = "\"" + executablePath + "\"";
    return {
        {classes(".vrs"), kSourceClass},
        {classes(".vrs\\Content Type"), "text/plain"},
        {classes(".vrs\\PerceivedType"), "text"},
        {classes(".vre"), kProgramClass},
        {classes(kSourceClass), "vorkascript"},
        {classes(std::string(kSourceClass) + "\\Shell\\Open\\Command"), program + " -s=\"%1\""},
        {classes(kProgramClass), "VorkaExecutable"},
        {classes(std::string(kProgramClass) + "\\Shell\\Open\\Command"), program + " -crun=\"%1\""},
    };
}

SettingRead read_setting(const std::string& location) {
    SettingRead result;
    char buffer[kValueBufferSize] = {};
    DWORD size = sizeof(buffer);
    DWORD type = REG_NONE;
    const LSTATUS status = ::RegGetValueA(HKEY_CURRENT_USER, location.c_str(), nullptr,
                                          RRF_RT_ANY | RRF_NOEXPAND, &type, buffer, &size);
    if (status == ERROR_FILE_NOT_FOUND) {
        result.status = SettingStatus::missing;
        result.error = static_cast<int>(status);
        return result;
    }
    if (status != ERROR_SUCCESS) {
        result.status = SettingStatus::failed;
        result.error = static_cast<int>(status);
        return result;
    }
    result.status = SettingStatus::found;
    if (type != REG_SZ) {
        result.unhandledType = static_cast<int>(type);
        return result;
    }
    // The stored size counts the terminating zero, when there is one.
    std::size_t length = size < sizeof(buffer) ? size : sizeof(buffer);
    while (length > 0 && buffer[length - 1] == '\0') --length;
    result.value.assign(buffer, length);
    return result;
}

int create_setting_location(const std::string& location) {
    HKEY key = nullptr;
    const LSTATUS status = ::RegCreateKeyExA(HKEY_CURRENT_USER, location.c_str(), 0, nullptr, 0,
                                             KEY_ALL_ACCESS, nullptr, &key, nullptr);
    if (status != ERROR_SUCCESS) return static_cast<int>(status);
    ::RegCloseKey(key);
    return 0;
}

int write_setting(const std::string& location, const std::string& value) {
    HKEY key = nullptr;
    LSTATUS status = ::RegOpenKeyExA(HKEY_CURRENT_USER, location.c_str(), 0, KEY_ALL_ACCESS, &key);
    if (status != ERROR_SUCCESS) return static_cast<int>(status);
    const key_closer closer{key};
    // REG_SZ with its terminating zero.
    status = ::RegSetValueExA(key, nullptr, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                              static_cast<DWORD>(value.size() + 1));
    return status == ERROR_SUCCESS ? 0 : static_cast<int>(status);
}

void announce_file_types_changed() {
    ::SHChangeNotify(SHCNE_ASSOCCHANGED, SHCNF_IDLIST, nullptr, nullptr);
}

bool may_register_system_wide() {
    HANDLE token = nullptr;
    if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token)) {
        std::printf("\n Failed to get Process Token :%lu.", ::GetLastError());
        return false;
    }
    const handle_closer closer{token};
    TOKEN_ELEVATION elevation{};
    DWORD size = sizeof(elevation);
    if (!::GetTokenInformation(token, TokenElevation, &elevation, sizeof(elevation), &size)) {
        std::printf("\nFailed to get Token Information :%lu.", ::GetLastError());
        return false;
    }
    return elevation.TokenIsElevated != 0;
}

}  // namespace vrk::platform
