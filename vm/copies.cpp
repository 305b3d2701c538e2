// Run-time copies of blocks. Until block copying exists, a busy block has no
// instance and a blueprint cannot be instantiated.
#include "vm/copies.h"

#include "vm/block.h"

namespace vrk {

vrkblock* copyConstruct(vrkvar*, vrkblock*, vrkblock*) { return nullptr; }

vrkblock* get_instance(vrkblock* block, vrkvar*, bool) {
    if (!block || block->busy()) return nullptr;
    return block;
}

}  // namespace vrk
