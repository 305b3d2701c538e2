// The host's part of the process context: created on first use, never destroyed.
#include "host/host_state.h"

namespace vrk {

vrkhost_state& host_state() {
    // Deliberately leaked, like the rest of the process context.
    static vrkhost_state* const instance = new vrkhost_state();
    return *instance;
}

}  // namespace vrk
