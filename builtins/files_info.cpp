// File information and the paths of the calling script and the program.
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include "builtins/files.h"
#include "builtins/files_support.h"
#include "frontend/parser.h"
#include "platform/files.h"
#include "platform/system.h"
#include "vm/block.h"
#include "vm/engine.h"

namespace vrk::lib {

using file_support::text_arg;

namespace {

const char* const kFileexists = "fileexists";
const char* const kFilemodified = "filemodified";

// Modification time of a path in seconds since 1970; false when the path
// cannot be asked.
bool modified_seconds(const std::string& path, int64_t& seconds) {
    std::error_code error;
    const auto stamp = std::filesystem::last_write_time(vrk::platform::file_path(path), error);
    if (error) return false;
    const auto system = std::chrono::file_clock::to_sys(stamp);
    seconds = std::chrono::duration_cast<std::chrono::seconds>(system.time_since_epoch()).count();
    return true;
}

// The script (parser) whose block tree holds `block`, or null.
vrkparser* owning_parser(vrkengine* engine, vrkblock* block) {
    vrkblock* root = block;
    while (root && root->parent) root = root->parent;
    if (!root || !engine) return nullptr;
    for (vrkparser* parser : engine->scripts()) {
        if (parser->root_block == root) return parser;
    }
    return nullptr;
}

}  // namespace

VRK_BUILTIN(fileexists) {
    if (args.size() != 1) {
        log().errorNamed(&kFileexists, "invalid parameter count");
        set_int(&result, 0);
        return &result;
    }
    std::error_code error;
    const auto status = std::filesystem::status(vrk::platform::file_path(text_arg(args, 0)), error);
    set_int(&result, !error && std::filesystem::exists(status) ? 1 : 0);
    return &result;
}

VRK_BUILTIN(filemodified) {
    set_int(&result, 0);
    if (args.size() != 1) {
        log().errorNamed(&kFilemodified, "invalid parameter count");
        return &result;
    }
    int64_t seconds = 0;
    if (modified_seconds(text_arg(args, 0), seconds)) set_int(&result, seconds);
    return &result;
}

VRK_BUILTIN(fileage) {
    set_int(&result, 0);
    if (args.size() != 1) return &result;
    int64_t seconds = 0;
    if (!modified_seconds(text_arg(args, 0), seconds)) {
        static constexpr char kMessage[] = "Error: Unable to get file info\n";
        platform::write_stdout(kMessage, sizeof(kMessage) - 1);
        return &result;
    }
    // In 100-ns ticks of the system clock, then to milliseconds.
    const int64_t now_ticks =
        std::chrono::duration_cast<std::chrono::duration<int64_t, std::ratio<1, 10000000>>>(
            std::chrono::system_clock::now().time_since_epoch())
            .count();
    set_int(&result, (now_ticks - seconds * 10000000) / 10000);
    return &result;
}

VRK_BUILTIN(filesize) {
    set_int(&result, 0);
    if (args.size() != 1) return &result;
    const std::filesystem::path path = vrk::platform::file_path(text_arg(args, 0));
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) return &result;
    const uintmax_t size = std::filesystem::file_size(path, error);
    if (!error && size != 0) {
        set_int(&result, static_cast<int64_t>(size));
        return &result;
    }
    // Some files report no size in their status (files of the process file
    // system, devices): seeking to the end tells.
    std::ifstream file(path, std::ios::binary);
    if (!file) return &result;
    file.seekg(0, std::ios::end);
    const std::streamoff end = file ? static_cast<std::streamoff>(file.tellg()) : -1;
    if (end > 0) set_int(&result, static_cast<int64_t>(end));
    return &result;
}

VRK_BUILTIN(fileshortname) {
    if (args.empty()) {
        set_string(&result, "");
        return &result;
    }
    const std::string path = text_arg(args, 0);
    const std::size_t slash = path.rfind('/');
    const std::size_t backslash = path.rfind('\\');
    std::size_t cut = std::string::npos;
    if (slash != std::string::npos) cut = slash;
    if (backslash != std::string::npos && (cut == std::string::npos || backslash > cut))
        cut = backslash;
    set_string(&result, cut == std::string::npos ? path : path.substr(cut + 1));
    return &result;
}

VRK_BUILTIN(curdir) {
    const vrkparser* parser = owning_parser(engine, block);
    set_string(&result, parser ? parser->source_folder : std::string());
    return &result;
}

VRK_BUILTIN(moduledir) {
    std::string path = platform::executable_path();
    // The program's path as the system gives it, at most 260 bytes.
    if (path.size() > 260) path.resize(260);
    set_string(&result, path);
    return &result;
}

VRK_BUILTIN(module_path) {
    const vrkparser* parser = owning_parser(engine, block);
    set_string(&result, parser ? parser->source_filename : std::string());
    return &result;
}

VRK_BUILTIN(modulename) {
    set_string(&result, engine ? engine->moduleText : std::string());
    return &result;
}

}  // namespace vrk::lib
