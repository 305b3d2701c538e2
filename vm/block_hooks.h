// The block layer's side of the value layer's block hooks.
//
// The value layer reaches blocks only through the table of values/block_hooks.h.
// The block layer fills it from its own routines (class instances:
// vm/instances.h; the facts of the block record) and installs it whenever it
// makes a block, so the table is in place before any cell can hold a block.
#pragma once

namespace vrk {

struct vrkvalue_context;

// Sets `ctx.block_hooks` to the block layer's table.
void install_block_hooks(vrkvalue_context& ctx);

}  // namespace vrk
