// The value layer's part of the process context.
//
// The memory of values is process-wide: cells freed on any thread come back to
// the pools here, a PTR cell resolves through the guarded pointer registry here,
// and every block that exists is entered in `live_blocks`, so code holding an
// untrusted block pointer can ask whether it still lives. Like the rest of the
// process context (base/context.h) this record is never destroyed; it is made
// before any other static object (value_context()).
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

#include "values/cell.h"
#include "values/object.h"
#include "values/pools.h"

namespace vrk {

class vrkengine;
struct vrkblock_hooks;

// A process-wide cell reached by name (`gvar`), with the number of blocks that hold it.
struct vrknamed_cell {
    vrkvar* cell = nullptr;  // the shared cell, owned here
    int32_t holders = 0;     // blocks still associated with it; the cell goes at 0
};

// A block lately found in `live_blocks`, and the count of destroyed blocks at
// that moment. While the count has not moved, no block has gone, so the block
// still lives: the answer comes without a look-up in the map.
struct vrklive_hit {
    const vrkblock* block = nullptr;  // the block found alive
    uint64_t destroyed = 0;           // blocks_destroyed when it was found
};

// Number of remembered live blocks (a power of two; chosen by address bits).
inline constexpr std::size_t kLiveHits = 8;

struct vrkvalue_context {
    vrkpools pools;                           // free lists and foreign-thread queues
    vrkregistry registry;                     // guarded pointer table
    std::vector<vrkcallback> callback_queue;  // destroy callbacks by block
    uint32_t live_cells = 0;                  // constructed cell records
    std::unordered_map<const vrkblock*, std::vector<vrkvar*>*>
        live_blocks;                // every block that exists
    uint64_t blocks_destroyed = 0;  // blocks that have left live_blocks so far
    uint64_t bindings_started = 0;  // argument bindings begun so far: orders their undoing
    std::array<vrklive_hit, kLiveHits> live_hits;  // blocks lately found alive (block_alive)
    bool fused_paths = true;  // the run loop runs number sequences in one step (vm/fused_paths.h)
    bool light_entry = true;  // if/loop bodies are entered without a full run (vm/run.cpp)
    bool call_paths = true;   // calls skip copies that change nothing (vm/calls.cpp)
    bool data_paths = true;   // temps, subscripts, keys and text compares take direct paths
    bool instance_paths = true;  // instances are made and torn down, numbers stored, on short paths
    std::map<std::string, vrknamed_cell> named_cells;  // gvar cells by name, shared by all scripts
    // Queues a native object for deletion at the frame end of an engine; set by the engine.
    std::function<void(vrkengine*, vrkobject*)> deferDeletion;
    // Runs work on a worker thread for a block (the engine's returnThread); set by the engine.
    std::function<vrkvar*(std::function<void(vrkvar*)>, vrkblock*, vrkvar*)> startWorker;
    // Appends the trace of a block's calling chain to a fault report (vm/errors.h); set by
    // the block layer when it makes a block.
    void (*trace_writer)(vrkblock*, std::string&) = nullptr;
    // What the value layer asks of blocks (values/block_hooks.h); set by the block layer
    // when it makes a block.
    const vrkblock_hooks* block_hooks = nullptr;
};

namespace detail {
// Where the value context lives: static storage of the process, in which the
// record is made before any other static object of the program is
// initialised (value_context.cpp) and which is never destroyed.
alignas(vrkvalue_context) extern unsigned char value_context_storage[sizeof(vrkvalue_context)];
}  // namespace detail

// The value layer's part of the process context, made before any other static
// object and never destroyed: worker threads and static destructors may still
// free cells while the process ends. Its address is fixed when the program is
// linked, so the run loop and the call path, which reach it several times per
// instruction, address its fields directly, with no pointer to load and no
// first-use test.
[[gnu::always_inline]] inline vrkvalue_context& value_context() {
    return *std::launder(reinterpret_cast<vrkvalue_context*>(detail::value_context_storage));
}

}  // namespace vrk
