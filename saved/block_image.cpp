// A block copied through its saved record in memory, for the block layer.
#include "saved/block_image.h"

#include <cstddef>
#include <cstdint>
#include <vector>

#include "saved/block_form.h"
#include "saved/block_links.h"
#include "values/cache.h"
#include "vm/block_image.h"

namespace vrk {

namespace {

// A saved record is written into a buffer that starts with this much room.
constexpr std::size_t kRecordReserve = 2048;

void copy_through_record(vrkblock* source, vrkblock* copy, bool as_copy) {
    std::vector<uint8_t> bytes;
    bytes.reserve(kRecordReserve);
    {
        ScriptCacheWriter writer(bytes);
        toCache(source, writer, as_copy);
    }
    {
        ScriptCacheReader reader(bytes);
        fromCache(copy, reader);
    }
}

}  // namespace

void install_block_image() { set_block_image({&copy_through_record, &saved_child, &adopt_block}); }

}  // namespace vrk
