// UTF-8 / UTF-16 conversion with MultiByteToWideChar and WideCharToMultiByte.
#include "platform/text_windows.h"

#include <windows.h>

namespace vrk::platform {

std::wstring to_wide(const std::string& text) {
    if (text.empty()) return {};
    const int size = static_cast<int>(text.size());
    const int length = ::MultiByteToWideChar(CP_UTF8, 0, text.data(), size, nullptr, 0);
    if (length <= 0) return {};
    std::wstring wide(static_cast<std::size_t>(length), L'\0');
    ::MultiByteToWideChar(CP_UTF8, 0, text.data(), size, wide.data(), length);
    return wide;
}

std::string from_wide(const std::wstring& text) {
    if (text.empty()) return {};
    const int size = static_cast<int>(text.size());
    const int length = ::WideCharToMultiByte(CP_UTF8, 0, text.data(), size, nullptr, 0, nullptr,
                                             nullptr);
    if (length <= 0) return {};
    std::string bytes(static_cast<std::size_t>(length), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text.data(), size, bytes.data(), length, nullptr, nullptr);
    return bytes;
}

}  // namespace vrk::platform
