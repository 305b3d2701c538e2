// The folder-making routine, text arguments and worker hand-over of the file builtins.
#include "builtins/files_support.h"

#include <filesystem>
#include <system_error>

#include "base/script_lock.h"
#include "platform/files.h"
#include "values/json.h"
#include "vm/engine.h"

namespace vrk::lib::file_support {

std::string text_arg(std::vector<vrkvar*>& args, std::size_t i) {
    vrkvar* cell = args[i];
    if (is_marker(cell, 11)) return "0";
    return to_string(cell);
}

void make_folders(const std::string& path) {
    std::error_code ignored;
    std::filesystem::path level;
    for (const auto& part : vrk::platform::file_path(path)) {
        level /= part;
        std::filesystem::create_directory(level, ignored);
    }
}

vrkvar* run_job(vrkengine* engine, vrkblock* block, vrkvar& result,
                std::function<void(vrkvar*)> job) {
    if (!engine || !block) {
        job(&result);
        return &result;
    }
    return engine->returnThread(std::move(job), block, &result);
}

void store_strings(vrkvar* cell, const std::vector<std::string>& strings) {
    reset(cell, Tag::JSON);
    vrkjson* json = as_json(cell);
    if (!json) return;
    vrkvar* item = cell_new(Tag::STRING);
    for (const auto& s : strings) {
        if (s.empty()) continue;
        set_string(item, s);
        json_append(json, item, nullptr);
    }
    cell_free(item);
}

}  // namespace vrk::lib::file_support
