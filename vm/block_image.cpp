// The saved-record functions of the block layer, installed by the saved form.
#include "vm/block_image.h"

namespace vrk {

namespace {

vrkblock_image& image_slot() {
    static vrkblock_image slot;
    return slot;
}

}  // namespace

void set_block_image(const vrkblock_image& image) { image_slot() = image; }

const vrkblock_image& block_image() { return image_slot(); }

}  // namespace vrk
