// Linux implementation of platform/files.h: opendir/readdir, with stat for
// file systems that do not report the entry type.
#include <algorithm>
#include <dirent.h>
#include <memory>
#include <sys/stat.h>

#include "platform/files.h"

namespace vrk::platform {

namespace {

// Closes the directory stream however the listing ends.
struct dir_closer {
    void operator()(DIR* dir) const { ::closedir(dir); }
};

bool is_directory_entry(const std::string& folder, const dirent* entry) {
    if (entry->d_type == DT_DIR) return true;
    if (entry->d_type != DT_UNKNOWN) return false;
    std::string path = folder;
    if (!path.empty() && path.back() != '/') path += '/';
    path += entry->d_name;
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) return false;
    return S_ISDIR(info.st_mode);
}

}  // namespace

bool list_folder(const std::string& folder, std::vector<folder_entry>& entries) {
    entries.clear();
    std::unique_ptr<DIR, dir_closer> dir(::opendir(folder.c_str()));
    if (!dir) return false;
    while (const dirent* entry = ::readdir(dir.get())) {
        entries.push_back(folder_entry{entry->d_name, is_directory_entry(folder, entry)});
    }
    std::sort(entries.begin(), entries.end(),
              [](const folder_entry& a, const folder_entry& b) { return a.name < b.name; });
    return true;
}

std::filesystem::path file_path(const std::string& text) { return std::filesystem::path(text); }

std::string path_text(const std::filesystem::path& path, bool generic) {
    return generic ? path.generic_string() : path.string();
}

}  // namespace vrk::platform
