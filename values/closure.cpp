// Capture and release of lambda closure records.
#include "values/closure.h"

#include <memory>

#include "base/log.h"
#include "values/block_hooks.h"
#include "values/cell.h"

namespace vrk {

namespace {

// A private copy of a captured cell. The NO_COUNT test looks through REF chains:
// a reference to a non-counting cell stays non-counting in the closure.
vrkvar* captured_copy(vrkvar* source, vrkblock* caller) {
    vrkvar* copy = cell_new(Tag::INT);
    copy->flags = flag::CAPTURED;
    if (deref(source)->flags & flag::NO_COUNT) copy->flags |= flag::NO_COUNT;
    assign(copy, source, caller);
    return copy;
}

}  // namespace

bool closure_owned(const vrkvar* cell, uint16_t attrs) {
    return cell->type == Tag::FUNCTION && cell->value.closure != nullptr &&
           (attrs & (attr::SHARED_CLOSURE | attr::NATIVE_FUNCTION)) == 0;
}

void closure_release(vrkvar* cell, uint16_t attrs) {
    if (!closure_owned(cell, attrs)) return;
    vrkclosure* closure = cell->value.closure;
    cell->value.closure = nullptr;
    if (closure->refs > 1) {
        --closure->refs;
        return;
    }
    for (vrkcapture& pair : closure->pairs) {
        if (pair.cell) cell_free(pair.cell);
    }
    delete closure;
}

void closure_capture(vrkvar* dest, const vrkvar* src, vrkblock* caller) {
    vrkblock* fn = dest->block;
    if (!fn) return;
    const vrkblock_hooks& blocks = block_hooks();
    const vrkcapture_list* captures = nullptr;
    if (!blocks.lambda_captures(fn, captures)) return;

    if (closure_owned(dest, dest->attrs)) {
        log().error("function data still present!");
        closure_release(dest, dest->attrs);
    }

    auto closure = std::make_unique<vrkclosure>();
    if (closure_owned(src, src->attrs)) {
        const vrkclosure* from = src->value.closure;
        closure->pairs.reserve(from->pairs.size());
        for (const vrkcapture& pair : from->pairs) {
            closure->pairs.push_back(
                {pair.var_index, pair.source_index, captured_copy(pair.cell, caller)});
        }
    } else if (captures) {
        const std::vector<vrkvar*>& vars = blocks.variables(fn);
        closure->pairs.reserve(captures->size());
        for (const auto& [target, source] : *captures) {
            if (source < 0 || static_cast<std::size_t>(source) >= vars.size() || !vars[source])
                continue;
            closure->pairs.push_back(
                {target, static_cast<uint32_t>(source), captured_copy(vars[source], caller)});
        }
    }
    dest->value.closure = closure.release();
}

}  // namespace vrk
