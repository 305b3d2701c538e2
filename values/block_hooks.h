// What the value layer asks of blocks: a table of functions the block layer installs.
//
// A few cells hold a block: a CLASS cell holds a class or an instance, a
// FUNCTION cell the function's block, a struct variable the struct block that
// lays it out, and a native object may belong to the block that made it. The
// block record and the machine that runs it live in the layer above
// (vm/block.h), so the value layer sees a block only as an opaque pointer and
// reaches it through this table: letting go of an instance (which may run its
// script destructor), copying a CLASS payload (which may construct an instance),
// and a handful of facts (a lambda's capture list, a struct's members, a
// block's engine).
//
// The block layer installs the table in `value_context().block_hooks` whenever
// it makes a block (vm/block_hooks.h), the way it installs the trace writer of
// fault reports: no cell can hold a block before the first block exists, so
// every caller that has a block in hand finds the table in place. Only the
// branches of a class, a function, a struct layout or an owned object reach it;
// the copy of a number or a string never does.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace vrk {

struct vrkvar;
struct vrkblock;
class vrkengine;

// A lambda's capture list: (variable of the lambda receiving the value,
// variable of the lambda it is read from).
using vrkcapture_list = std::vector<std::pair<uint32_t, int32_t>>;

struct vrkblock_hooks {
    // ---- class instances -------------------------------------------------------------
    // Payload copy of a CLASS cell: `dest` (already CLASS, no block) gets a new
    // instance when `source` is a blueprint, else shares `source` as one more holder.
    void (*copy_class)(vrkvar* dest, vrkblock* source, vrkblock* caller);
    // `cell` holds `instance` from now on: joins its cells, counts unless non-counting.
    void (*hold_instance)(vrkvar* cell, vrkblock* instance);
    // A holder whose content is already replaced lets go of `instance`; `flags`
    // and `attrs` are the ones it had while it held it.
    void (*release_instance)(vrkblock* instance, vrkvar* cell, vrkblock* caller, uint16_t flags,
                             uint16_t attrs);
    // A CLASS cell with a block lets go of it itself; afterwards it holds INT 0.
    void (*release_cell)(vrkvar* cell, vrkblock* caller, bool force);
    // Appends the text of a CLASS cell holding `block`: its class name.
    void (*append_class_text)(const vrkblock* block, std::string& out);

    // ---- functions and struct layouts -----------------------------------------------
    // The capture list of a lambda block (null while it has none), or false
    // when the block is no lambda.
    bool (*lambda_captures)(const vrkblock* fn, const vrkcapture_list*& captures);
    // The variables of a block: a lambda's store, a struct's members in order.
    const std::vector<vrkvar*>& (*variables)(const vrkblock* block);
    // The name of a block's variable by index; "" if it has none.
    std::string (*variable_name)(vrkblock* block, uint32_t index);

    // ---- owners of native objects ---------------------------------------------------
    // True while the block exists.
    bool (*alive)(const vrkblock* block);
    // The engine a block belongs to; null for one without.
    vrkengine* (*engine)(const vrkblock* block);
};

// The installed table. Call only with a block in hand (see above).
const vrkblock_hooks& block_hooks();

}  // namespace vrk
