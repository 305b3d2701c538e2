// Folder walks shared by the file builtins and the `os` object.
//
// A walk collects path strings: the folder given, "/", and the entry's name,
// one level deeper per sub-folder. Entries come in byte order of their names
// at each level (the folder listing sorts them), so a script sees the same
// list on every file system. A folder that cannot be opened gives nothing and
// reports nothing. The walk works on plain strings only, so it may run on a
// worker thread while the calling script goes on.
//
// Extension filters look at the text from the last "." of an entry's name,
// dot included: `extension_in` keeps an entry whose extension equals one of
// the listed texts, `extension_excluded` drops one whose extension contains
// one of them.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace vrk {

// Decides whether a file entry (its name inside its folder) is collected.
using vrkfile_filter = std::function<bool(const std::string& name)>;

// No depth limit for `walk_files`.
inline constexpr int kNoDepthLimit = -1;

// Appends the files under `folder` to `out`. `max_depth` is how many levels of
// sub-folders are entered (0: the folder itself only; kNoDepthLimit: all).
// A null filter keeps every file.
void walk_files(const std::string& folder, int max_depth, const vrkfile_filter& filter,
                std::vector<std::string>& out);

// Appends the sub-folders of `folder`, one level deep, to `out`.
void walk_folders(const std::string& folder, std::vector<std::string>& out);

// The names (without folder) of the files and of the sub-folders of `folder`.
void folder_names(const std::string& folder, std::vector<std::string>& files,
                  std::vector<std::string>& folders);

// The comma-separated list cut into its texts; empty texts are dropped.
std::vector<std::string> split_extensions(const std::string& list);

// The extension of an entry name: from its last ".", dot included; empty
// when the name has none.
std::string name_extension(const std::string& name);

// True when the name's extension is one of `extensions` (whole text); an
// empty list keeps everything, a name without "." fails a non-empty list.
bool extension_in(const std::string& name, const std::vector<std::string>& extensions);

// True when the name's extension contains one of `extensions`.
bool extension_excluded(const std::string& name, const std::vector<std::string>& extensions);

}  // namespace vrk
