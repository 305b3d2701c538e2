// Taking temporary cells from a block's temp pool and returning them.
#include "vm/temps.h"

#include "values/cell.h"
#include "values/error_report.h"
#include "values/pools.h"
#include "vm/block.h"

namespace vrk {

vrkvar* take_temp(vrkblock* block) {
    vrktemp_pool& temps = block->get_temp_pool();
    ++temps.in_use;
    if (!temps.free.empty()) {
        vrkvar* cell = temps.free.back();
        temps.free.pop_back();
        if (cell) {
            reset(cell, Tag::INT);
            cell->value.i = 0;
            cell->attrs = 0;
            return cell;
        }
        // A null entry is dropped and a new temp made in its place.
        report_error(block, "internal", "allocation failure!");
    }
    vrkvar* cell = cell_new(Tag::INT);
    temps.all.push_back(cell);
    return cell;
}

void return_temp(vrkblock* block, vrkvar* cell) {
    vrktemp_pool& temps = block->get_temp_pool();
    --temps.in_use;
    temps.free.push_back(cell);
}

}  // namespace vrk
