// The line preprocessor and the loading of script files through it.
#include "frontend/preprocess.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>
#include <vector>

#include "base/context.h"
#include "base/log.h"
#include "frontend/parser.h"
#include "frontend/text.h"
#include "platform/file_access.h"
#include "platform/files.h"
#include "platform/system.h"

namespace vrk {

namespace {

// Includes nest at most this deep. With a parser a file is expanded only once,
// so only a very long chain of distinct files comes near it; without one a file
// that includes itself would otherwise recurse until the stack runs out.
constexpr int kMaxIncludeDepth = 100;

constexpr const char kIncludeWord[] = "#include";
constexpr std::size_t kIncludeWordLength = sizeof(kIncludeWord) - 1;

// The two fixed folders scripts and their includes are looked for in, spelt
// the way the platform writes paths ("scripts/" or "scripts\\").
std::string script_folder() { return platform::script_folder(); }
std::string script_include_folder() { return platform::include_folder(); }

std::string load_file_at(std::string& name, const std::string& base_folder, vrkparser* parser,
                         int depth);
void preprocess_line_at(std::string& line, std::string folder, const std::string& base_folder,
                        vrkparser* parser, uint32_t line_number, const std::string* file_name,
                        int depth);

const char* name_or_null(const std::string* file_name) {
    return file_name ? file_name->c_str() : "(null)";
}

bool starts_with(const std::string& text, const char* prefix) { return text.rfind(prefix, 0) == 0; }

void backslashes_to_slashes(std::string& path) {
    std::replace(path.begin(), path.end(), '\\', '/');
}

// "//" outside a string starts a comment. Strings are told apart by counting
// double quotes alone, with no escape rule. Once a comment is seen the line is
// cut at the first "//" of the whole line, even when that one stands inside a
// string in front of the comment: a line like `x = "a//b"; // c` keeps only
// `x = "a`. Scripts rely on this cut staying exactly as it is.
void cut_comment(std::string& line) {
    bool in_string = false;
    for (std::size_t i = 0; i + 1 < line.size(); ++i) {
        if (line[i] == '"') {
            in_string = !in_string;
            continue;
        }
        if (!in_string && line[i] == '/' && line[i + 1] == '/') {
            line.erase(line.find("//"));
            return;
        }
    }
}

bool is_marker_line(const std::string& line) {
    return starts_with(line, "##PUSHN") || starts_with(line, "##POPN") ||
           starts_with(line, "##LN=");
}

// Carriage returns become blanks, tabs four blanks each.
void normalise_white_space(std::string& line) {
    std::string out;
    out.reserve(line.size());
    for (const char c : line) {
        if (c == '\r') {
            out += ' ';
        } else if (c == '\t') {
            out += "    ";
        } else {
            out += c;
        }
    }
    line = std::move(out);
}

void remove_trailing_blanks(std::string& line) {
    const std::size_t keep = line.find_last_not_of(' ');
    line.erase(keep == std::string::npos ? 0 : keep + 1);
}

// The first path under which an include opens, in the order of the search.
bool find_include(const std::string& name, const std::string& folder,
                  const std::string& base_folder, std::string& path) {
    const std::string& exe = context().executableDirectory;
    std::vector<std::string> tries = {
        folder + name,
        name,
        script_folder() + name,
        script_include_folder() + name,
        exe + "/" + script_folder() + name,
        exe + "/" + script_include_folder() + name,
    };
    if (!base_folder.empty()) tries.push_back(base_folder + name);
    for (const std::string& candidate : tries) {
        if (file_opens(candidate)) {
            path = candidate;
            return true;
        }
    }
    return false;
}

// `#include "dir/abc*..."`: every file of the folder "dir" is included as
// "dir/abc" followed by its own name. What follows the star plays no part.
std::string include_folder(const std::string& name, const std::string& folder,
                           const std::string& base_folder, vrkparser* parser, uint32_t line_number,
                           const std::string* file_name, int depth) {
    const std::string prefix = name.substr(0, name.find('*'));
    // Cut at the nearer of the two separators; a missing one does not count,
    // and with neither the whole prefix names the folder.
    const std::size_t cut = std::min(prefix.rfind('\\'), prefix.rfind('/'));
    const std::string dir = prefix.substr(0, cut);

    std::vector<std::string> tries = {folder + dir, dir, script_folder() + dir,
                                      script_include_folder() + dir};
    if (!base_folder.empty()) tries.push_back(base_folder + dir);
    std::vector<platform::folder_entry> entries;
    bool opened = false;
    for (const std::string& candidate : tries) {
        if (platform::list_folder(candidate, entries)) {
            opened = true;
            break;
        }
    }
    if (!opened) {
        log().error("cannot open files in folder %s!", prefix.c_str());
        return {};
    }

    std::string expansion;
    for (const platform::folder_entry& entry : entries) {
        if (entry.name == "." || starts_with(entry.name, "..")) continue;
        if (entry.is_directory) continue;
        if (entry.name.find('*') != std::string::npos) {
            // Such a name would be taken for a pattern again and again.
            log().warn("include skips %s%s: '*' in a file name", prefix.c_str(),
                       entry.name.c_str());
            continue;
        }
        std::string include = std::string(kIncludeWord) + " \"" + prefix + entry.name + "\"";
        preprocess_line_at(include, folder, base_folder, parser, line_number, file_name, depth);
        expansion += include;
    }
    return expansion;
}

// The text an include line stands for; empty after any failure. `request` is what
// follows the word "#include".
std::string expand_include(const std::string& request, const std::string& folder,
                           const std::string& base_folder, vrkparser* parser, uint32_t line_number,
                           const std::string* file_name, int depth) {
    const std::size_t open = request.find('"');
    const std::size_t close = open == std::string::npos ? open : request.find('"', open + 1);
    if (close == std::string::npos) {
        log().error("syntax error for include (missing \") on line %i, file %s",
                    static_cast<int>(line_number), name_or_null(file_name));
        return {};
    }
    std::string name = request.substr(open + 1, close - open - 1);
    if (name.find('*') != std::string::npos) {
        return include_folder(name, folder, base_folder, parser, line_number, file_name, depth);
    }

    log().log("include loading %s", name.c_str());
    if (name.find(".vrs") == std::string::npos) name += ".vrs";
    std::string path;
    if (!find_include(name, folder, base_folder, path)) {
        log().error("error include on line %i, file %s : cannot find include file %s!",
                    static_cast<int>(line_number), name_or_null(file_name), name.c_str());
        return {};
    }
    if (parser) {
        auto& seen = parser->included_files;
        if (std::find(seen.begin(), seen.end(), path) != seen.end()) {
            log().log("file %s already included.", path.c_str());
            return {};
        }
        log().log("found file %s", path.c_str());
        seen.push_back(path);
    }
    if (depth >= kMaxIncludeDepth) {
        log().error("include of %s nested deeper than %d files, left out", path.c_str(),
                    kMaxIncludeDepth);
        return {};
    }
    return load_file_at(path, base_folder, parser, depth + 1);
}

void preprocess_line_at(std::string& line, std::string folder, const std::string& base_folder,
                        vrkparser* parser, uint32_t line_number, const std::string* file_name,
                        int depth) {
    backslashes_to_slashes(folder);
    if (!folder.empty() && folder.back() != '/') folder += '/';

    cut_comment(line);
    if (is_marker_line(line)) return;

    const std::size_t word = find_scoped_text(line, kIncludeWord);
    if (word != npos) {
        const std::string request = line.substr(word + kIncludeWordLength);
        if (request.empty()) {
            log().error("syntax error for include on line %i, file %s",
                        static_cast<int>(line_number), name_or_null(file_name));
            line.clear();
            return;
        }
        line = expand_include(request, folder, base_folder, parser, line_number, file_name, depth);
    }

    normalise_white_space(line);
    if (parser) line.insert(0, "\n##LN=" + std::to_string(line_number) + "\n");
    remove_trailing_blanks(line);
}

std::string load_file_at(std::string& name, const std::string& base_folder, vrkparser* parser,
                         int depth) {
    if (name.find(".vr") == std::string::npos) name += ".vrs";
    std::string path = name;
    if (!file_opens(name)) {
        const bool stands = starts_with(name, base_folder.c_str()) ||
                            (name.size() >= 2 && name[1] == ':');
        if (!stands) path = base_folder + name;
    }

    std::ifstream in(platform::file_path(path));
    log().log("opened %s", path.c_str());
    // A file that cannot be read gives an empty program; the report says why,
    // so that a mistyped name does not pass unnoticed.
    if (const std::string reason = platform::unreadable_reason(path); !reason.empty())
        log().error("cannot read file %s: %s", path.c_str(), reason.c_str());

    std::string text = "\n##PUSHN=" + path + "\n";
    std::string folder = path;
    backslashes_to_slashes(folder);
    const std::size_t slash = folder.rfind('/');
    folder = slash == std::string::npos ? std::string() : folder.substr(0, slash);

    std::string line;
    uint32_t number = 0;
    while (std::getline(in, line)) {
        ++number;
        preprocess_line_at(line, folder, base_folder, parser, number, &path, depth);
        // With a parser every line begins with its own marker, which begins with
        // a newline; without one the newline is put back here.
        if (!line.empty()) text += line;
        if (!parser) text += '\n';
    }
    text += "\n##POPN\n";
    return text;
}

}  // namespace

std::string load_file(std::string& name, const std::string& base_folder, vrkparser* parser) {
    return load_file_at(name, base_folder, parser, 0);
}

void preprocess_line(std::string& line, std::string folder, const std::string& base_folder,
                     vrkparser* parser, uint32_t line_number, const std::string* file_name) {
    preprocess_line_at(line, std::move(folder), base_folder, parser, line_number, file_name, 0);
}

std::string preprocess_text(const std::string& text, const std::string& folder,
                            const std::string& base_folder) {
    std::istringstream in(text);
    std::string line;
    std::string out;
    while (std::getline(in, line)) {
        preprocess_line(line, folder, base_folder, nullptr, static_cast<uint32_t>(-1), nullptr);
        out += line;
        out += '\n';
    }
    return out;
}

bool file_opens(const std::string& path) {
    if (path.empty()) return false;
    // A folder is not a file, even where the system would open it for reading.
    std::error_code ignored;
    if (std::filesystem::is_directory(platform::file_path(path), ignored)) return false;
    std::ifstream probe(platform::file_path(path), std::ios::binary);
    return probe.is_open();
}

}  // namespace vrk
