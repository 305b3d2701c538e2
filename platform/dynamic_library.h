// Loading native libraries at run time.
//
// Native modules are shared libraries the host opens by path while it starts.
// The host needs three things of the system: open a library and learn why it
// could not be opened, find an exported entry by name, and let go of a library
// it decided not to use. A `DynamicLibrary` is the open library; it closes the
// library only when told to (`release`), because a module that was accepted
// stays loaded for the life of the process: the functions and types it
// registered point into it.
#pragma once

#include <memory>
#include <string>

namespace vrk::platform {

class DynamicLibrary {
public:
    // What the names of libraries end with on this system (".so", ".dll").
    static const char* const suffix;

    // Opens the library at `path` with all of its symbols resolved now. On
    // failure returns null and puts the system's reason into `error` (empty
    // when the system gives none).
    static std::unique_ptr<DynamicLibrary> open(const std::string& path, std::string& error);

    // Forgets the library without closing it: it stays loaded.
    ~DynamicLibrary();
    DynamicLibrary(const DynamicLibrary&) = delete;
    DynamicLibrary& operator=(const DynamicLibrary&) = delete;

    // The address of the exported entry `name`, or null when there is none.
    void* symbol(const char* name) const;
    // Closes the library; the object is then empty and `symbol` finds nothing.
    void release();

    // Wraps a handle the system gave (used by `open`).
    explicit DynamicLibrary(void* handle) : handle(handle) {}

private:
    void* handle = nullptr;  // the system's handle of the open library, null once released
};

}  // namespace vrk::platform
