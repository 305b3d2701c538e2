// Windows implementation of platform/files.h: FindFirstFileW and its family,
// with names converted between UTF-8 and UTF-16.
#include <algorithm>
#include <windows.h>

#include "platform/files.h"
#include "platform/text_windows.h"

namespace vrk::platform {

namespace {

// Closes the search however the listing ends.
struct search_closer {
    HANDLE search;
    ~search_closer() { ::FindClose(search); }
};

}  // namespace

bool list_folder(const std::string& folder, std::vector<folder_entry>& entries) {
    entries.clear();
    if (folder.empty()) return false;
    std::string pattern = folder;
    if (pattern.back() != '\\' && pattern.back() != '/') pattern += '\\';
    pattern += '*';
    WIN32_FIND_DATAW found{};
    const HANDLE search = ::FindFirstFileW(to_wide(pattern).c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return false;
    const search_closer closer{search};
    do {
        entries.push_back(folder_entry{from_wide(found.cFileName),
                                       (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0});
    } while (::FindNextFileW(search, &found));
    std::sort(entries.begin(), entries.end(),
              [](const folder_entry& a, const folder_entry& b) { return a.name < b.name; });
    return true;
}

// The standard library's narrow path functions use the local code page here;
// the wide ones are exact.
std::filesystem::path file_path(const std::string& text) {
    return std::filesystem::path(to_wide(text));
}

std::string path_text(const std::filesystem::path& path, bool generic) {
    return from_wide(generic ? path.generic_wstring() : path.wstring());
}

}  // namespace vrk::platform
