// Finding and loading native modules, and the function table they call the host through.
#include "host/modules.h"

#include <exception>
#include <memory>

#include "base/context.h"
#include "base/log.h"
#include "host/engine.h"
#include "objects/module_type.h"
#include "platform/dynamic_library.h"
#include "platform/files.h"
#include "values/cell.h"

namespace vrk {

namespace {

// The folder searched for modules, beside the working directory and the executable.
constexpr const char* kModuleFolder = "scriptmodules";
// Every module file name holds this.
constexpr const char* kModuleMark = "vrk_";

using glue_fn = int (*)(void*);
using start_fn = void (*)(vrkscript*);

vrkvar* api_register_function(vrkscript* engine, const char* name, vrkmodule_fn fn,
                              int parameterCount, void* user, const char* description) {
    if (!engine || !name || !fn) return nullptr;
    return engine->registerFunction(name, fn, parameterCount, user, description ? description : "",
                                    false, true);
}

void api_log(int kind, const char* text) {
    if (!text) return;
    switch (kind) {
        case VRK_LOG_ERROR: log().error("%s", text); break;
        case VRK_LOG_WARNING: log().warn("%s", text); break;
        default: log().log("%s", text); break;
    }
}

vrkvar* api_deref(vrkvar* cell) { return deref(cell); }
int64_t api_to_int(vrkvar* cell) { return to_int(cell); }
double api_to_float(vrkvar* cell) { return to_float(cell); }
void api_to_text(vrkvar* cell, std::string& out) { out = to_string(cell); }
void api_set_int(vrkvar* cell, int64_t value) { set_int(cell, value); }
void api_set_float(vrkvar* cell, double value) { set_float(cell, value); }
void api_set_text(vrkvar* cell, const char* text, std::size_t size) {
    set_string(cell, text ? text : "", text ? size : 0);
}

void* api_make_object(vrkvar* cell, const vrkmodule_type* type) {
    if (!cell || !type) return nullptr;
    auto* object = std::make_unique<ScriptModuleObject>(type).release();
    set_object(cell, object, true);
    return object->state;
}

void* api_object_state(vrkvar* cell, const vrkmodule_type* type) {
    return module_object_state(cell, type);
}

}  // namespace

const vrkmodule_api* module_api() {
    static const vrkmodule_api table{sizeof(vrkmodule_api),
                                     context().version,
                                     &api_register_function,
                                     &api_log,
                                     &api_deref,
                                     &api_to_int,
                                     &api_to_float,
                                     &api_to_text,
                                     &api_set_int,
                                     &api_set_float,
                                     &api_set_text,
                                     &register_module_type,
                                     &api_make_object,
                                     &api_object_state};
    return &table;
}

bool is_module_path(const std::string& path) {
    return path.size() >= 4 && path.find(kModuleMark) != std::string::npos &&
           path.find(platform::DynamicLibrary::suffix) != std::string::npos;
}

bool load_modules_from(vrkscript& engine, const std::string& folder, const std::string& prefix) {
    std::vector<platform::folder_entry> entries;
    if (!platform::list_folder(folder, entries)) return false;
    bool tried = false;
    for (const auto& entry : entries) {
        if (entry.is_directory) continue;
        const std::string path = prefix + entry.name;
        if (!is_module_path(path)) continue;
        engine.loadModule(path);
        tried = true;
    }
    return tried;
}

void vrkscript::load_native_modules() {
    if (load_modules_from(*this, kModuleFolder, std::string(kModuleFolder) + "/")) return;
    const std::string beside = context().executableDirectory + "/" + kModuleFolder;
    load_modules_from(*this, beside, beside + "/");
}

void vrkscript::loadModule(const std::string& path) {
    log().warn("loading module %s", path.c_str());
    std::string reason;
    std::unique_ptr<platform::DynamicLibrary> library = platform::DynamicLibrary::open(path,
                                                                                       reason);
    if (!library) {
        log().error("cannot load module %s", path.c_str());
        if (!reason.empty()) log().error("%s", reason.c_str());
        return;
    }
    try {
        auto glue = reinterpret_cast<glue_fn>(library->symbol("vorkaglue"));
        if (!glue) {
            log().error("cannot load glue entry %s", path.c_str());
            library->release();
            return;
        }
        auto start = reinterpret_cast<start_fn>(library->symbol("vorkastart"));
        if (!start) {
            log().error("cannot load module entry %s", path.c_str());
            library->release();
            return;
        }
        vrkcontext& ctx = context();
        ctx.module_api = module_api();
        if (glue(&ctx) == 0) {
            log().error("cannot load module entry %s. wrong version?", path.c_str());
            library->release();
            return;
        }
        start(this);
    } catch (const std::exception& e) {
        // The library stays: the module may have registered part of itself.
        log().error("exception while loading module: %s", e.what());
    }
}

}  // namespace vrk
