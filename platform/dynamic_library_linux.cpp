// Native libraries on Linux: dlopen, dlsym and dlerror.
#include <dlfcn.h>

#include "platform/dynamic_library.h"

namespace vrk::platform {

const char* const DynamicLibrary::suffix = ".so";

std::unique_ptr<DynamicLibrary> DynamicLibrary::open(const std::string& path, std::string& error) {
    error.clear();
    dlerror();  // forget an older failure
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        if (const char* reason = dlerror()) error = reason;
        return nullptr;
    }
    return std::make_unique<DynamicLibrary>(handle);
}

DynamicLibrary::~DynamicLibrary() = default;

void* DynamicLibrary::symbol(const char* name) const {
    return handle ? dlsym(handle, name) : nullptr;
}

void DynamicLibrary::release() {
    if (handle) dlclose(handle);
    handle = nullptr;
}

}  // namespace vrk::platform
