// Free lists of cells, JSON records, strings and byte vectors, and the chunks
// JSON elements are cut from (values/element_slabs.h).
//
// Scripts create and drop cells at a high rate, so records are recycled instead
// of going back to the heap. The free lists have no lock of their own: only a
// "pool thread" (the main thread, or the thread holding the global lock) may
// touch them. Every other thread allocates from the heap and hands the records
// it frees to one of three lock-free queues, which the frame loop drains while
// it holds the lock. Caps keep memory from staying high after a burst.
//
// The temporaries of a block are cells from these pools kept by the block
// itself (vm/temps.h).
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "values/cell.h"
#include "values/element_slabs.h"
#include "values/json.h"
#include "values/queue.h"

namespace vrk {

// One free list: records ready for reuse, with a cap and a count of records made.
template <class T>
struct vrkpool {
    std::vector<T*> free;  // records available for reuse
    std::size_t cap;       // most records kept; beyond that they are destroyed
    uint32_t created = 0;  // records ever created through this pool

    explicit vrkpool(std::size_t c) : cap(c) {}
};

inline constexpr std::size_t kPoolCap = 1024;
inline constexpr std::size_t kDataPoolCap = 512;
inline constexpr std::size_t kDataPoolMaxBytes = 1048576;

// The pools and queues of the process context.
struct vrkpools {
    vrkslabs element_slabs;                                 // chunks of JSON elements
    vrkpool<vrkjson> json_pool{kPoolCap};                   // free JSON records
    vrkpool<vrkvar> cell_pool{kPoolCap};                    // free plain cells
    vrkpool<std::string> string_pool{kPoolCap};             // free strings
    vrkpool<std::vector<uint8_t>> data_pool{kDataPoolCap};  // free DATA vectors
    vrkqueue<vrkjson> json_queue;                           // JSON records freed on foreign threads
    vrkqueue<vrkelement> element_queue;                     // elements freed on foreign threads
    vrkqueue<vrkvar> cell_queue;                            // cells freed on foreign threads

    // With `on` false nothing freed from now on is kept for reuse: every
    // record goes back to the allocator at once, so that a sanitizer sees any
    // use after release. With `on` true the usual caps apply again.
    // Elements are then made alone on the heap, and a chunk goes as soon as its
    // last record is free.
    void set_pooling(bool on) {
        element_slabs.kept = on ? kSlabsKept : 0;
        element_slabs.trim();
        json_pool.cap = on ? kPoolCap : 0;
        cell_pool.cap = on ? kPoolCap : 0;
        string_pool.cap = on ? kPoolCap : 0;
        data_pool.cap = on ? kDataPoolCap : 0;
    }
};

// Records on the callback queue, fired when a PTR of the callback form is released
// or when the block they belong to is destroyed.
struct vrkcallback {
    std::function<void(uint64_t)> callable;  // what to call, with the handle
    uint64_t handle = 0;                     // what a PTR of the callback form holds in `value`
    vrkblock* block = nullptr;               // owner block
    uint8_t kind = 1;                        // 1 ordinary, 3 thread record
};

// ---- cells in bulk (a block's variables) -----------------------------------------------
// Appends `count` fresh cells (INT 0), as that many cell_new() would.
void cells_new(std::vector<vrkvar*>& out, std::size_t count);
// Frees every cell of `cells` (null entries are skipped) as cell_free() would, and
// leaves `cells` empty.
void cells_free(std::vector<vrkvar*>& cells);
// Brings every cell of `cells` back to the state of a fresh one (INT 0, every field
// zero), releasing what it holds as cell_free() would, but keeps the cells in place:
// the variables of a block kept for reuse. Call on the pool thread only.
void cells_blank(std::vector<vrkvar*>& cells);

// ---- payload records ------------------------------------------------------------
std::string* string_new();
void string_free(std::string* s);
std::vector<uint8_t>* data_new();
void data_free(std::vector<uint8_t>* d);
vrkjson* json_new();
void json_free(vrkjson* j);

// Drains the three queues (json, element, cell, in that order); call with the
// global lock held.
void drain_free_queues();

// ---- callback queue ---------------------------------------------------------------------
void callback_add(std::function<void(uint64_t)> callable, uint64_t handle, vrkblock* block,
                  uint8_t kind);
// Finds every record with the handle; with `run`, removes them and calls each.
bool callback_fire(uint64_t handle, bool run);

// Number of cell records that exist (pooled or live).
uint32_t live_cells();

}  // namespace vrk
