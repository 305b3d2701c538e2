// UTF-8 and UTF-16 on Windows, for the platform files only.
//
// The host keeps every text as UTF-8 bytes; the wide Win32 calls take and give
// UTF-16. These two conversions sit between them. Bytes that are not valid
// UTF-8 become U+FFFD, as the system's converter does; nothing fails.
// Only platform/*_windows.cpp include this header.
#pragma once

#include <string>

namespace vrk::platform {

// UTF-16 form of a UTF-8 text.
std::wstring to_wide(const std::string& text);

// UTF-8 form of a UTF-16 text.
std::string from_wide(const std::wstring& text);

}  // namespace vrk::platform
