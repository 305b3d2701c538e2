// The process context: created on first use, never destroyed.
#include "base/context.h"

#include "platform/system.h"

namespace vrk {

namespace {

// Directory part of a path, without the trailing separator.
std::string directory_of(const std::string& path) {
    const std::size_t cut = path.find_last_of("/\\");
    if (cut == std::string::npos) return {};
    return path.substr(0, cut);
}

}  // namespace

vrkcontext::vrkcontext() : executableDirectory(directory_of(platform::executable_path())) {}

vrkcontext& context() {
    // Deliberately leaked: worker threads and static destructors of other files
    // may still log or free cells while the process ends, so no destructor may
    // ever run for the context. The pointer keeps it reachable for leak checkers.
    static vrkcontext* const instance = new vrkcontext();
    return *instance;
}

}  // namespace vrk
