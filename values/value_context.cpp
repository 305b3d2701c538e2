// The value layer's part of the process context: created on first use, never destroyed.
#include "values/value_context.h"

namespace vrk {

vrkvalue_context* new_value_context() {
    // Deliberately leaked, like the rest of the process context: worker threads
    // and static destructors may still free cells while the process ends. The
    // accessor keeps the pointer, so leak checkers still reach it.
    return new vrkvalue_context();
}

}  // namespace vrk
