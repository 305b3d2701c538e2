// The vorka module SDK: what a native module includes to extend the host.
//
// A native module is a shared library (vrk_<name>.so on Linux, vrk_<name>.dll
// on Windows) in a "scriptmodules" folder. The host finds it while its engine
// is created, before the builtins are registered, and calls two exported entry
// points with C linkage:
//
//   extern "C" int vorkaglue(void* context);          // first: accept (non-zero) or refuse (0)
//   extern "C" void vorkastart(vrk::vrkscript* engine); // second, only if accepted
//
// The host's executable exports nothing, so a module never links against the
// host. Everything it can do reaches it through the process context given to
// `vorkaglue`: that record opens with the version text ("10.5") and a pointer
// to the host's function table, `vrkmodule_api`. `vorka::glue` compares the
// version, checks that the table is large enough and keeps the table for the
// helpers below; a module's `vorkaglue` normally is nothing but
// `return vorka::glue(context);`.
//
// Through the table a module registers script functions (`registerFunction`)
// and native object types (`registerType` with a `vrkmodule_type`), reads and
// writes the value cells its functions receive, and writes to the log. Cells,
// blocks and the engine stay opaque: a module holds pointers to them and hands
// them back to the host. Script functions have the builtin signature: the
// calling block, the argument cells (possibly references: `deref` them), the
// user value given at registration and the result cell.
//
// Modules are C++ and must be built with the same compiler and standard
// library as the host (std::vector and std::string cross the boundary).
// The table only ever grows at its end; `size` says how much of it a host has.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace vrk {
struct vrkvar;
struct vrkblock;
class vrkscript;
}  // namespace vrk

// The version text of the host this SDK belongs to; `vorka::glue` refuses any other.
#define VORKA_SDK_VERSION "10.5"

extern "C" {

// A script function of a module: calling block, arguments, user value, result.
// Return the result cell (or null for no value).
typedef vrk::vrkvar* (*vrkmodule_fn)(vrk::vrkblock* block, std::vector<vrk::vrkvar*>& args,
                                     void* user, vrk::vrkvar& result);

// A member function of a module's native type: the object's state (made by the
// type's `create`), the arguments and the result cell.
typedef void (*vrkmodule_member_fn)(void* self, std::vector<vrk::vrkvar*>& args,
                                    vrk::vrkvar& result);

// One script-visible member of a module's native type (`object.name(...)`).
struct vrkmodule_member {
    const char* name;          // member name scripts call
    vrkmodule_member_fn call;  // the member's code
    int parameter_count;       // declared parameters (information for the compiler)
    const char* description;   // help text
};

// A native object type of a module. The record and everything it points to
// must live as long as the process (a static in the module).
struct vrkmodule_type {
    const char* name;                               // script type name (typeof, saved forms)
    void* (*create)();                              // a new object's state
    void (*destroy)(void* self);                    // frees the state when the object ends
    void (*to_text)(void* self, std::string& out);  // text of the object; may be null
    const vrkmodule_member* members;                // member records
    std::size_t member_count;                       // number of member records
};

// Log kinds of `vrkmodule_api::log`.
enum vrkmodule_log_kind { VRK_LOG_ERROR = 0, VRK_LOG_WARNING = 1, VRK_LOG_INFO = 2 };

// The host's function table for modules.
struct vrkmodule_api {
    std::size_t size;     // bytes of this table the host fills
    const char* version;  // the host's version text
    // Registers a script function `name` in the engine; the strings must
    // outlive the process. A name that exists already is reported by the host.
    vrk::vrkvar* (*register_function)(vrk::vrkscript* engine, const char* name, vrkmodule_fn fn,
                                      int parameter_count, void* user, const char* description);
    // Writes one log line of the given kind.
    void (*log)(int kind, const char* text);
    // The cell a reference cell designates (any other cell: itself).
    vrk::vrkvar* (*deref)(vrk::vrkvar* cell);
    // Conversions of a cell's value, as scripts convert them.
    int64_t (*to_int)(vrk::vrkvar* cell);
    double (*to_float)(vrk::vrkvar* cell);
    void (*to_text)(vrk::vrkvar* cell, std::string& out);
    // Writes a value into a cell (the result cell, or a cell passed by reference).
    void (*set_int)(vrk::vrkvar* cell, int64_t value);
    void (*set_float)(vrk::vrkvar* cell, double value);
    void (*set_text)(vrk::vrkvar* cell, const char* text, std::size_t size);
    // Registers a native object type with its members.
    void (*register_type)(const vrkmodule_type* type);
    // Makes a new object of `type` (from `type->create`) and points `cell` at
    // it; the object ends when the last cell lets go. Returns its state.
    void* (*make_object)(vrk::vrkvar* cell, const vrkmodule_type* type);
    // The state of the object of `type` that `cell` points at, or null.
    void* (*object_state)(vrk::vrkvar* cell, const vrkmodule_type* type);
};

// The opening of the process context that `vorkaglue` receives.
struct vrkmodule_context_head {
    const char* version;       // the host's version text
    const vrkmodule_api* api;  // the host's function table
};

}  // extern "C"

namespace vorka {

// The table kept by `glue` for the helpers below (one per module).
inline const vrkmodule_api*& host_api() {
    static const vrkmodule_api* table = nullptr;
    return table;
}

// The body of a module's `vorkaglue`: non-zero when the host is the version
// this module was built for and gives the whole table.
inline int glue(void* context) {
    const auto* head = static_cast<const vrkmodule_context_head*>(context);
    if (!head || !head->version || std::strcmp(head->version, VORKA_SDK_VERSION) != 0) return 0;
    if (!head->api || head->api->size < sizeof(vrkmodule_api)) return 0;
    host_api() = head->api;
    return 1;
}

inline vrk::vrkvar* registerFunction(vrk::vrkscript* engine, const char* name, vrkmodule_fn fn,
                                     int parameterCount, const char* description,
                                     void* user = nullptr) {
    return host_api()->register_function(engine, name, fn, parameterCount, user, description);
}
inline void registerType(const vrkmodule_type& type) { host_api()->register_type(&type); }

inline void log(const char* text) { host_api()->log(VRK_LOG_INFO, text); }
inline void warn(const char* text) { host_api()->log(VRK_LOG_WARNING, text); }
inline void error(const char* text) { host_api()->log(VRK_LOG_ERROR, text); }

// Argument `i` with references followed, or null when there are fewer arguments.
inline vrk::vrkvar* arg(std::vector<vrk::vrkvar*>& args, std::size_t i) {
    return i < args.size() && args[i] ? host_api()->deref(args[i]) : nullptr;
}
inline int64_t to_int(vrk::vrkvar* cell) { return cell ? host_api()->to_int(cell) : 0; }
inline double to_float(vrk::vrkvar* cell) { return cell ? host_api()->to_float(cell) : 0.0; }
inline std::string to_text(vrk::vrkvar* cell) {
    std::string out;
    if (cell) host_api()->to_text(cell, out);
    return out;
}
inline void set_int(vrk::vrkvar& cell, int64_t value) { host_api()->set_int(&cell, value); }
inline void set_float(vrk::vrkvar& cell, double value) { host_api()->set_float(&cell, value); }
inline void set_text(vrk::vrkvar& cell, const std::string& text) {
    host_api()->set_text(&cell, text.data(), text.size());
}

// A new object of `type` in `cell`; returns its state as T.
template <class T>
T* make_object(vrk::vrkvar& cell, const vrkmodule_type& type) {
    return static_cast<T*>(host_api()->make_object(&cell, &type));
}
// The state of the object of `type` that `cell` points at, or null.
template <class T>
T* object_state(vrk::vrkvar* cell, const vrkmodule_type& type) {
    return cell ? static_cast<T*>(host_api()->object_state(cell, &type)) : nullptr;
}

}  // namespace vorka
