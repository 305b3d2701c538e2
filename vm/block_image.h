// The saved record of a block, as the block layer sees it.
//
// A run-time copy of a function is made the way a compiled program is loaded:
// the source is written into its saved record in memory and a fresh block is
// read back from it (vm/copies.h); a class instance takes its data directly
// where the direct copy gives the same block, and through the record otherwise. The saved form itself is a higher layer
// (saved/); it installs these functions when the engine is created, so the
// block layer copies blocks without including it. Before that, a copy carries
// only what clone_block sets itself.
#pragma once

#include <cstdint>

namespace vrk {

struct vrkblock;

struct vrkblock_image {
    // Writes `source` into its saved record and reads `copy` back from it;
    // `as_copy` carries the code and the children, else only the data.
    void (*copy_through_record)(vrkblock* source, vrkblock* copy, bool as_copy) = nullptr;
    // The child of `parent` at `index` among the children a saved record carries, or null.
    vrkblock* (*saved_child)(const vrkblock* parent, int64_t index) = nullptr;
    // Makes `block` deleted when `owner` is destroyed (a block no tree owns).
    void (*adopt_block)(vrkblock* owner, vrkblock* block) = nullptr;
};

// Installs the saved form's functions (saved/block_image.cpp, called by the engine).
void set_block_image(const vrkblock_image& image);
// The installed functions; members are null before installation.
const vrkblock_image& block_image();

}  // namespace vrk
