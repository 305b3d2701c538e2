// The value layer's access to the block hooks the block layer installs.
#include "values/block_hooks.h"

#include "values/value_context.h"

namespace vrk {

const vrkblock_hooks& block_hooks() { return *value_context().block_hooks; }

}  // namespace vrk
