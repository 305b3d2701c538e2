// Folder walks: files below folders, sub-folders, folder contents, extension filters.
#include <string>
#include <vector>

#include "base/script_lock.h"
#include "builtins/files.h"
#include "builtins/files_support.h"
#include "objects/file_walk.h"
#include "values/json.h"

namespace vrk::lib {

using file_support::run_job;
using file_support::store_strings;
using file_support::text_arg;

namespace {

// The non-empty text arguments, in order.
std::vector<std::string> folder_args(std::vector<vrkvar*>& args) {
    std::vector<std::string> folders;
    for (std::size_t i = 0; i < args.size(); ++i) {
        std::string path = text_arg(args, i);
        if (!path.empty()) folders.push_back(std::move(path));
    }
    return folders;
}

}  // namespace

VRK_BUILTIN(files) {
    if (args.empty()) {
        store_strings(&result, {});
        return &result;
    }
    return run_job(engine, block, result, [folders = folder_args(args)](vrkvar* cell) {
        std::vector<std::string> found;
        for (const auto& folder : folders) walk_files(folder, kNoDepthLimit, nullptr, found);
        ScriptLock lock;
        store_strings(cell, found);
    });
}

VRK_BUILTIN(folders) {
    if (args.empty()) {
        store_strings(&result, {});
        return &result;
    }
    return run_job(engine, block, result, [folders = folder_args(args)](vrkvar* cell) {
        std::vector<std::string> found;
        for (const auto& folder : folders) walk_folders(folder, found);
        ScriptLock lock;
        store_strings(cell, found);
    });
}

VRK_BUILTIN(folder_content) {
    if (args.size() != 1) return &result;
    return run_job(engine, block, result, [folder = text_arg(args, 0)](vrkvar* cell) {
        std::vector<std::string> files;
        std::vector<std::string> folders;
        folder_names(folder, files, folders);
        ScriptLock lock;
        reset(cell, Tag::JSON);
        vrkjson* json = as_json(cell);
        if (!json) return;
        vrkvar* part = cell_new(Tag::INT);
        store_strings(part, files);
        json_append_keyed(json, part, "files", nullptr);
        store_strings(part, folders);
        json_append_keyed(json, part, "folders", nullptr);
        cell_free(part);
    });
}

VRK_BUILTIN(filesext) {
    if (args.empty()) return &result;
    const std::string folder = text_arg(args, 0);
    const std::vector<std::string> extensions = args.size() >= 2
                                                    ? split_extensions(text_arg(args, 1))
                                                    : std::vector<std::string>();
    int depth = kNoDepthLimit;
    if (args.size() >= 3) {
        const int64_t given = to_int(is_marker(args[2], 11) ? void_value() : args[2]);
        depth = given < 0 ? 0 : (given > 100000 ? 100000 : static_cast<int>(given));
    }
    return run_job(engine, block, result, [folder, extensions, depth](vrkvar* cell) {
        std::vector<std::string> found;
        walk_files(
            folder, depth,
            [&extensions](const std::string& name) { return extension_in(name, extensions); },
            found);
        ScriptLock lock;
        store_strings(cell, found);
    });
}

VRK_BUILTIN(filesext2) {
    if (args.empty()) return &result;
    const std::string folder = text_arg(args, 0);
    const std::vector<std::string> extensions = args.size() >= 2
                                                    ? split_extensions(text_arg(args, 1))
                                                    : std::vector<std::string>();
    return run_job(engine, block, result, [folder, extensions](vrkvar* cell) {
        std::vector<std::string> found;
        walk_files(
            folder, kNoDepthLimit,
            [&extensions](const std::string& name) {
                return !extension_excluded(name, extensions);
            },
            found);
        ScriptLock lock;
        store_strings(cell, found);
    });
}

}  // namespace vrk::lib
