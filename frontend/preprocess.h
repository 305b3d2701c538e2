// The line preprocessor: comments, includes, white space and line markers.
//
// Source text reaches the compiler one line at a time through
// `preprocess_line`. It cuts the "//" comment, expands `#include "name"` by
// text substitution (a "*" in the name includes every file of a folder), turns
// carriage returns into blanks and tabs into four blanks, and, when a parser is
// given, puts a "\n##LN=<number>\n" marker in front of the line so that later
// stages can name the source line. `load_file` feeds a whole file through it and
// wraps the result in "\n##PUSHN=<path>\n" ... "\n##POPN\n", which tells later
// stages which file a stretch of text came from. Without a parser no markers are
// written and nothing keeps a file from being included twice.
//
// An include is looked for, in this order, in the including file's folder, as
// given, under "scripts/", under "scripts/include/", under the same two folders
// beside the executable, and finally under the base folder. A parser remembers
// every file it included (`included_files`, exact path comparison) and expands a
// file only once, which also ends recursive includes. Failures are logged and
// leave the line empty; the caller goes on with the next line.
#pragma once

#include <cstdint>
#include <string>

namespace vrk {

struct vrkparser;

// Reads the file `name` (".vrs" is appended when the name lacks ".vr") through
// the preprocessor. A relative name that does not open as it stands is taken
// under `base_folder`. A file that cannot be read gives just the two file
// markers.
std::string load_file(std::string& name, const std::string& base_folder, vrkparser* parser);

// Preprocesses one line in place. `folder` is the folder of the file the line
// comes from; `file_name` (may be null) only names that file in messages.
void preprocess_line(std::string& line, std::string folder, const std::string& base_folder,
                     vrkparser* parser, uint32_t line_number, const std::string* file_name);

// Preprocesses a whole text line by line without a parser: no markers, every
// line followed by "\n".
std::string preprocess_text(const std::string& text, const std::string& folder,
                            const std::string& base_folder);

// True when `path` names something that opens for reading as a file.
bool file_opens(const std::string& path);

}  // namespace vrk
