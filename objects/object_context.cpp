// The object layer's part of the process context.
#include "objects/object_context.h"

namespace vrk {

vrkobject_context& object_context() {
    // Deliberately leaked, like the rest of the process context: worker threads
    // may still release objects while the process ends.
    static vrkobject_context* const instance = new vrkobject_context();
    return *instance;
}

}  // namespace vrk
