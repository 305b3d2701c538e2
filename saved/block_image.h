// The saved form's side of block copies: installs the functions of
// vm/block_image.h, through which the block layer copies a block by writing its
// saved record and reading it back.
#pragma once

namespace vrk {

// Installs the saved form's copy functions in the block layer (the engine does it).
void install_block_image();

}  // namespace vrk
