// The `os` object: path helpers, file system operations, listings and console output.
#include "objects/os.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "base/log.h"
#include "base/script_lock.h"
#include "objects/file_walk.h"
#include "platform/console.h"
#include "platform/files.h"
#include "platform/system.h"
#include "values/cell.h"
#include "values/json.h"
#include "vm/errors.h"

namespace vrk {

namespace fs = std::filesystem;

namespace {

const char* const kExistsName = "exists";
const char* const kFileAsStringName = "file_as_string";

// Argument i as text; a no-value marker reads as the void value.
std::string text_of(std::vector<vrkvar*>& args, std::size_t i) {
    vrkvar* cell = args[i];
    return to_string(is_marker(cell, 11) ? void_value() : cell);
}

bool is_text(std::vector<vrkvar*>& args, std::size_t i) {
    return !is_marker(args[i], 11) && args[i]->type == Tag::STRING;
}

// Position of the last "/" or "\\", or npos.
std::size_t last_separator(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::size_t backslash = path.rfind('\\');
    if (slash == std::string::npos) return backslash;
    if (backslash == std::string::npos) return slash;
    return slash > backslash ? slash : backslash;
}

std::string name_part(const std::string& path) {
    const std::size_t cut = last_separator(path);
    return cut == std::string::npos ? path : path.substr(cut + 1);
}

// Runs a file system operation; an exception of the library becomes a
// run-time error of the calling block with its text.
template <class F>
void guarded(vrkblock* b, F&& operation) {
    try {
        operation();
    } catch (const fs::filesystem_error& e) {
        report_error(b, "external_function", e.what());
    }
}

void register_path_members() {
    scriptFunction<VorkaOS>(
        "file_name",
        [](VorkaOS*, vrkblock*, std::vector<vrkvar*>& args, vrkvar& result) {
            set_string(&result, args.size() == 1 ? name_part(text_of(args, 0)) : std::string());
        },
        1, true, false, "(path)");
    scriptFunction<VorkaOS>(
        "file_ext",
        [](VorkaOS*, vrkblock*, std::vector<vrkvar*>& args, vrkvar& result) {
            std::string ext;
            if (args.size() == 1) {
                const std::string name = name_part(text_of(args, 0));
                const std::size_t dot = name.rfind('.');
                if (dot != std::string::npos) ext = name.substr(dot + 1);
            }
            set_string(&result, ext);
        },
        1, true, false, "(path)");
    scriptFunction<VorkaOS>(
        "file_dir",
        [](VorkaOS*, vrkblock*, std::vector<vrkvar*>& args, vrkvar& result) {
            std::string dir;
            if (args.size() == 1) {
                const std::string path = text_of(args, 0);
                const std::size_t cut = last_separator(path);
                if (cut != std::string::npos) dir = path.substr(0, cut);
            }
            set_string(&result, dir);
        },
        1, true, false, "(path)");
    scriptFunction<VorkaOS>(
        "current_dir",
        [](VorkaOS*, vrkblock* b, std::vector<vrkvar*>&, vrkvar& result) {
            guarded(b, [&] { set_string(&result, platform::path_text(fs::current_path(), true)); });
        },
        0, true, false, "()");
}

void register_file_members() {
    scriptFunction<VorkaOS>(
        "rename",
        [](VorkaOS*, vrkblock* b, std::vector<vrkvar*>& args, vrkvar&) {
            if (args.size() != 2) {
                log().error("rename: Incorrect number of parameters. Expected 2, got %zu",
                            args.size());
                return;
            }
            const std::string from = text_of(args, 0);
            const std::string to = text_of(args, 1);
            guarded(b, [&] {
                fs::rename(platform::file_path(from), platform::file_path(to));
                log().log("rename: Successfully renamed '%s' to '%s'", from.c_str(), to.c_str());
            });
        },
        2, true, false, "(src_file, dest_file)");
    scriptFunction<VorkaOS>(
        "copy",
        [](VorkaOS*, vrkblock* b, std::vector<vrkvar*>& args, vrkvar&) {
            if (args.size() != 2) {
                log().error("copy: Incorrect number of parameters. Expected 2, got %zu",
                            args.size());
                return;
            }
            const std::string from = text_of(args, 0);
            const std::string to = text_of(args, 1);
            guarded(b, [&] {
                const fs::path parent = platform::file_path(to).parent_path();
                if (!parent.empty() && !fs::exists(parent)) {
                    fs::create_directories(parent);
                    log().log("copy: Created missing directories for destination '%s'", to.c_str());
                }
                fs::copy(platform::file_path(from), platform::file_path(to),
                         fs::copy_options::overwrite_existing | fs::copy_options::recursive);
                log().log("copy: Successfully copied '%s' to '%s'", from.c_str(), to.c_str());
            });
        },
        2, true, false, "(src_file, dest_file)");
    scriptFunction<VorkaOS>(
        "remove",
        [](VorkaOS*, vrkblock* b, std::vector<vrkvar*>& args, vrkvar&) {
            if (args.size() != 1) {
                log().error("remove: Incorrect number of parameters. Expected 1, got %zu",
                            args.size());
                return;
            }
            const std::string path = text_of(args, 0);
            guarded(b, [&] {
                fs::remove_all(platform::file_path(path));
                log().log("remove: Successfully removed '%s'", path.c_str());
            });
        },
        1, true, false, "(path)");
    scriptFunction<VorkaOS>(
        "exists",
        [](VorkaOS*, vrkblock*, std::vector<vrkvar*>& args, vrkvar& result) {
            if (args.size() != 1) {
                log().errorNamed(&kExistsName, "invalid parameter count");
                set_int(&result, 0);
                return;
            }
            std::error_code error;
            const auto status = fs::status(platform::file_path(text_of(args, 0)), error);
            set_int(&result, !error && fs::exists(status) ? 1 : 0);
        },
        1, true, false, "(path)");
}

// Members that run on a worker thread read their arguments and write their
// result under the script lock, and do their slow part without it.
void register_threaded_members() {
    scriptFunction<VorkaOS>(
        "get_files",
        [](VorkaOS*, vrkblock*, std::vector<vrkvar*>& args, vrkvar& result) {
            std::string folder;
            std::vector<std::string> extensions;
            bool recursive = false;
            {
                ScriptLock lock;
                if (args.empty()) return;
                folder = text_of(args, 0);
                if (args.size() >= 2) extensions = split_extensions(text_of(args, 1));
                if (args.size() >= 3) recursive = to_int(args[2]) != 0;
            }
            std::vector<std::string> found;
            walk_files(
                folder, recursive ? kNoDepthLimit : 0,
                [&extensions](const std::string& name) { return extension_in(name, extensions); },
                found);
            ScriptLock lock;
            reset(&result, Tag::JSON);
            vrkjson* json = as_json(&result);
            if (!json) return;
            vrkvar* item = cell_new(Tag::STRING);
            for (const auto& path : found) {
                set_string(item, path);
                json_append(json, item, nullptr);
            }
            cell_free(item);
        },
        3, true, true, "(path, extensions, recursive)");
    scriptFunction<VorkaOS>(
        "file_as_string",
        [](VorkaOS*, vrkblock*, std::vector<vrkvar*>& args, vrkvar& result) {
            std::string path;
            {
                ScriptLock lock;
                if (args.size() != 1) {
                    log().errorNamed(&kFileAsStringName, "invalid parameter count");
                    set_string(&result, "");
                    return;
                }
                path = text_of(args, 0);
            }
            std::ifstream file(platform::file_path(path));
            std::string text;
            if (file) text.assign(std::istreambuf_iterator<char>(file), {});
            ScriptLock lock;
            if (!file) log().errorNamed(&kFileAsStringName, "cannot open file!");
            set_string(&result, text);
        },
        1, true, true, "(path)");
}

void register_directory_members() {
    scriptFunction<VorkaOS>(
        "create_directory",
        [](VorkaOS*, vrkblock* b, std::vector<vrkvar*>& args, vrkvar& result) {
            if (args.size() != 1 || !is_text(args, 0)) return;
            const std::string path = text_of(args, 0);
            guarded(b, [&] {
                if (!fs::exists(platform::file_path(path)))
                    fs::create_directories(platform::file_path(path));
                set_int(&result, 1);
            });
        },
        1, true, false, "(path)");
    scriptFunction<VorkaOS>(
        "set_working_directory",
        [](VorkaOS*, vrkblock* b, std::vector<vrkvar*>& args, vrkvar& result) {
            if (args.size() != 1 || !is_text(args, 0)) return;
            const std::string path = text_of(args, 0);
            guarded(b, [&] {
                if (!fs::exists(platform::file_path(path)))
                    fs::create_directories(platform::file_path(path));
                if (platform::change_directory(path)) set_int(&result, 1);
            });
        },
        1, true, false, "(path)");
    // The second `remove`: the first one of the name answers every look-up,
    // so this record only keeps its place in the table.
    scriptFunction<VorkaOS>(
        "remove",
        [](VorkaOS*, vrkblock*, std::vector<vrkvar*>& args, vrkvar&) {
            if (args.size() != 1 || !is_text(args, 0)) return;
            const std::string path = text_of(args, 0);
            try {
                if (!fs::exists(platform::file_path(path))) {
                    log().error("Path does not exist: %s", path.c_str());
                    return;
                }
                if (fs::remove_all(platform::file_path(path)) == 0)
                    log().error("Failed to remove: %s", path.c_str());
            } catch (const fs::filesystem_error& e) {
                log().error("Filesystem error during removal: %s", e.what());
            }
        },
        1, true, false, "(path)");
}

void register_console_members() {
    scriptFunction<VorkaOS>(
        "input",
        [](VorkaOS*, vrkblock*, std::vector<vrkvar*>& args, vrkvar& result) {
            std::string prompt;
            {
                ScriptLock lock;
                if (args.size() == 1) prompt = text_of(args, 0);
            }
            if (!prompt.empty()) {
                platform::flush_stdout();
                platform::write_stdout(prompt.data(), prompt.size());
            }
            std::string line;
            std::getline(std::cin, line);
            ScriptLock lock;
            set_string(&result, line);
        },
        1, true, true, "()");
    scriptFunction<VorkaOS>(
        "print",
        [](VorkaOS*, vrkblock*, std::vector<vrkvar*>& args, vrkvar&) {
            std::string text;
            {
                ScriptLock lock;
                if (args.size() != 1) return;
                text = text_of(args, 0);
            }
            platform::flush_stdout();
            platform::write_stdout(text.data(), text.size());
        },
        1, true, true, "()");
    scriptFunction<VorkaOS>(
        "pretty",
        [](VorkaOS*, vrkblock*, std::vector<vrkvar*>& args, vrkvar&) {
            if (args.size() != 1) return;
            const std::string text = text_of(args, 0) + "\n";
            platform::set_console_colour(10);
            platform::flush_stdout();
            platform::write_stdout(text.data(), text.size());
            platform::set_console_colour(15);
            platform::flush_stdout();
        },
        1, true, false, "(text)");
    scriptFunction<VorkaOS>(
        "clear",
        [](VorkaOS*, vrkblock*, std::vector<vrkvar*>&, vrkvar&) { platform::clear_console(); }, 0,
        true, false, "()");
    scriptFunction<VorkaOS>(
        "set_fg_color",
        [](VorkaOS*, vrkblock*, std::vector<vrkvar*>& args, vrkvar&) {
            if (args.size() != 1) return;
            const int attribute = is_text(args, 0) ? colour_attribute(text_of(args, 0), false)
                                                   : static_cast<int>(to_int(args[0]));
            platform::set_console_colour(attribute);
            platform::flush_stdout();
        },
        1, true, false, "(color)");
    scriptFunction<VorkaOS>(
        "set_bg_color",
        [](VorkaOS*, vrkblock*, std::vector<vrkvar*>& args, vrkvar&) {
            if (args.size() != 1) return;
            const int attribute = is_text(args, 0) ? colour_attribute(text_of(args, 0), true)
                                                   : static_cast<int>(to_int(args[0]) * 16);
            platform::set_console_colour(attribute);
            platform::flush_stdout();
        },
        1, true, false, "(color)");
}

}  // namespace

int colour_attribute(const std::string& name, bool background) {
    static constexpr const char* kForeground[] = {"black", "blue",   "green",  "aqua",
                                                  "red",   "purple", "yellow", "white"};
    static constexpr const char* kBackground[] = {"black", "blue",    "green",  "cyan",
                                                  "red",   "magenta", "yellow", "white"};
    const auto& table = background ? kBackground : kForeground;
    for (int i = 0; i < 8; ++i) {
        if (name == table[i]) return background ? i * 16 : i;
    }
    const int length = static_cast<int>(name.size());
    return background ? length * 16 : length;
}

void VorkaOS::scriptRegister() {
    registerType<VorkaOS>(script_type_name);
    register_path_members();
    register_file_members();
    register_threaded_members();
    register_directory_members();
    register_console_members();
}

void setup_os_global(vrkengine*, vrkvar* cell) {
    auto* os = std::make_unique<VorkaOS>().release();
    os->object_flags |= object_flag::GLOBAL;
    set_object(cell, os, false);
    cell->constant = 1;
}

}  // namespace vrk
