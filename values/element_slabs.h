// Chunks of JSON element records, handed out one record at a time.
//
// Arrays grow one element at a time and are often dropped all at once, so the
// pool thread does not make elements one by one on the heap: it cuts them from
// chunks of kSlabRecords records. Every chunk keeps a stack of its free slots.
// The chunks with a free slot are linked in the open list; a chunk that gets a
// record back moves to its head, and records are taken from the head, so a
// record just freed is the next one handed out. A chunk whose records are all
// free is kept while fewer than `kept` such chunks exist, else it goes back to
// the heap with the key strings its records kept.
//
// Only the pool thread may touch the chunks (values/pools.h): elements made on
// other threads come from the heap alone (no chunk), and the ones freed there
// wait in the element queue until the pool thread takes them back.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <new>

#include "values/cell.h"

namespace vrk {

inline constexpr uint32_t kSlabRecords = 256;
// Chunks with every record free kept for reuse: as many records as a free list holds.
inline constexpr uint32_t kSlabsKept = 4;

// One chunk. Its records are constructed in order as they are first needed, so
// a new chunk costs one allocation and nothing per record.
struct vrkslab {
    alignas(vrkelement) unsigned char storage[kSlabRecords * sizeof(vrkelement)];  // the records
    std::array<uint16_t, kSlabRecords>
        free_slots;           // indices of records given back; the top is last
    uint32_t made = 0;        // records constructed: the first `made`
    uint32_t free_count = 0;  // entries of free_slots in use
    vrkslab* prev = nullptr;  // neighbour towards the head of the open list
    vrkslab* next = nullptr;  // neighbour towards its tail
    bool listed = false;      // in the open list

    // Where record i lives, made or not.
    [[gnu::always_inline]] void* slot(uint32_t i) {
        return storage + std::size_t{i} * sizeof(vrkelement);
    }
    // Record i, one of the first `made`.
    [[gnu::always_inline]] vrkelement* record(uint32_t i) {
        return std::launder(static_cast<vrkelement*>(slot(i)));
    }
    [[gnu::always_inline]] uint32_t index_of(const vrkelement* r) const {
        const auto offset = reinterpret_cast<const unsigned char*>(r) - storage;
        return static_cast<uint32_t>(static_cast<std::size_t>(offset) / sizeof(vrkelement));
    }
    // Records handed out and not given back.
    [[gnu::always_inline]] uint32_t live() const { return made - free_count; }
};

class vrkslabs {
public:
    vrkslabs() = default;
    vrkslabs(const vrkslabs&) = delete;
    vrkslabs& operator=(const vrkslabs&) = delete;
    // Gives back the chunks whose records are all free; a chunk with a live
    // record is left alone (its records still name it).
    ~vrkslabs();

    uint32_t kept = kSlabsKept;  // most chunks with every record free kept; 0: none
    uint32_t created = 0;        // records ever cut from chunks
    uint32_t chunks = 0;         // chunks that exist

    // A blank record (INT 0; the emptied key string it kept, if any), from the
    // head of the open list or a new chunk.
    [[gnu::always_inline]] vrkelement* take() {
        vrkslab* slab = open_;
        if (!slab) [[unlikely]]
            slab = add_chunk();
        if (slab->live() == 0) --empty_;
        vrkelement* record = nullptr;
        if (slab->free_count != 0) {
            record = slab->record(slab->free_slots[--slab->free_count]);
        } else {
            record = new (slab->slot(slab->made++)) vrkelement();
            record->slab = slab;
        }
        if (slab->free_count == 0 && slab->made == kSlabRecords) unlink(slab);
        return record;
    }
    // Takes back a blank record of a chunk (its key string emptied, not freed).
    void give_back(vrkelement* record);
    // Gives back to the heap every chunk with all records free beyond `kept`.
    void trim();
    // True when `record`, cut from a chunk, is among its free records (tests).
    static bool is_free(const vrkelement* record);

private:
    vrkslab* add_chunk();
    void release(vrkslab* slab);
    void unlink(vrkslab* slab);
    void push_front(vrkslab* slab);

    vrkslab* open_ = nullptr;  // head of the chunks with a free record
    uint32_t empty_ = 0;       // chunks in the open list with every record free
};

}  // namespace vrk
