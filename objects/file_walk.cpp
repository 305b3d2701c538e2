// Recursive folder walks over the platform's folder listing.
#include "objects/file_walk.h"

#include "platform/files.h"

namespace vrk {

namespace {

bool skipped(const std::string& name) { return name.empty() || name == "." || name == ".."; }

void walk(const std::string& folder, int depth, int max_depth, const vrkfile_filter& filter,
          std::vector<std::string>& out) {
    std::vector<platform::folder_entry> entries;
    if (!platform::list_folder(folder, entries)) return;
    for (const auto& entry : entries) {
        if (skipped(entry.name)) continue;
        const std::string path = folder + "/" + entry.name;
        if (entry.is_directory) {
            if (max_depth == kNoDepthLimit || depth < max_depth)
                walk(path, depth + 1, max_depth, filter, out);
        } else if (!filter || filter(entry.name)) {
            out.push_back(path);
        }
    }
}

}  // namespace

void walk_files(const std::string& folder, int max_depth, const vrkfile_filter& filter,
                std::vector<std::string>& out) {
    walk(folder, 0, max_depth, filter, out);
}

void walk_folders(const std::string& folder, std::vector<std::string>& out) {
    std::vector<platform::folder_entry> entries;
    if (!platform::list_folder(folder, entries)) return;
    for (const auto& entry : entries) {
        if (!skipped(entry.name) && entry.is_directory) out.push_back(folder + "/" + entry.name);
    }
}

void folder_names(const std::string& folder, std::vector<std::string>& files,
                  std::vector<std::string>& folders) {
    std::vector<platform::folder_entry> entries;
    if (!platform::list_folder(folder, entries)) return;
    for (const auto& entry : entries) {
        if (skipped(entry.name)) continue;
        (entry.is_directory ? folders : files).push_back(entry.name);
    }
}

std::vector<std::string> split_extensions(const std::string& list) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    while (start <= list.size()) {
        std::size_t comma = list.find(',', start);
        if (comma == std::string::npos) comma = list.size();
        if (comma > start) parts.push_back(list.substr(start, comma - start));
        start = comma + 1;
    }
    return parts;
}

std::string name_extension(const std::string& name) {
    const std::size_t dot = name.rfind('.');
    return dot == std::string::npos ? std::string() : name.substr(dot);
}

bool extension_in(const std::string& name, const std::vector<std::string>& extensions) {
    if (extensions.empty()) return true;
    const std::size_t dot = name.rfind('.');
    if (dot == std::string::npos) return false;
    const std::string ext = name.substr(dot);
    for (const auto& e : extensions) {
        if (e == ext) return true;
    }
    return false;
}

bool extension_excluded(const std::string& name, const std::vector<std::string>& extensions) {
    const std::string ext = name_extension(name);
    if (ext.empty()) return false;
    for (const auto& e : extensions) {
        if (ext.find(e) != std::string::npos) return true;
    }
    return false;
}

}  // namespace vrk
