// The heap is left as Windows sets it up: large pages there need a privilege
// that ordinary users do not hold.
#include "platform/heap.h"

namespace vrk::platform {

void prepare_heap() {}

}  // namespace vrk::platform
