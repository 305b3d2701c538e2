// Listing the entries of a folder.
//
// Scripts and the preprocessor enumerate folders (wildcard includes, the file
// builtins); the way to do that is an operating-system matter, so it lives
// here. A listing gives each entry's plain name (no folder in front) and whether
// it is itself a folder. The entries "." and ".." are passed on as the system
// reports them: deciding what to skip is the caller's business. Entries come in
// byte order of their names, so that what a script sees does not depend on the
// order in which a file system happens to store them.
//
// Paths are UTF-8 text everywhere in the host. `file_path` makes the standard
// library's path of such a text, and `path_text` gives a path back as UTF-8:
// on a system whose file names are wide characters the conversion goes
// through UTF-8 rather than a local code page, so every name a script can
// write reaches the file system unchanged. Streams and std::filesystem calls
// are given `file_path(...)`, never the text itself.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace vrk::platform {

// One entry of a folder.
struct folder_entry {
    std::string name;           // the entry's name inside the folder
    bool is_directory = false;  // the entry is a folder
};

// Fills `entries` with the entries of `folder`, sorted by name. Returns false,
// with `entries` empty, when the folder cannot be opened.
bool list_folder(const std::string& folder, std::vector<folder_entry>& entries);

// The path named by the UTF-8 text `text`.
std::filesystem::path file_path(const std::string& text);

// The UTF-8 text of `path`, with the system's own separators, or with "/"
// when `generic` is set.
std::string path_text(const std::filesystem::path& path, bool generic = false);

}  // namespace vrk::platform
