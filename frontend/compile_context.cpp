// The compiler's part of the process context: created on first use, never destroyed.
#include "frontend/compile_context.h"

namespace vrk {

vrkcompile_context& compile_context() {
    // Deliberately leaked, like the rest of the process context.
    static vrkcompile_context* const instance = new vrkcompile_context();
    return *instance;
}

}  // namespace vrk
