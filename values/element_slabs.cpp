// Making, listing and releasing the chunks of element records.
#include "values/element_slabs.h"

#include <atomic>
#include <string>

#include "values/value_context.h"

namespace vrk {

namespace {

// Every record of a chunk counts as a cell record while the chunk exists;
// live_cells also changes on foreign threads, hence the atomic view.
void count_records(bool up) {
    std::atomic_ref<uint32_t> live(value_context().live_cells);
    if (up)
        live.fetch_add(kSlabRecords, std::memory_order_relaxed);
    else
        live.fetch_sub(kSlabRecords, std::memory_order_relaxed);
}

}  // namespace

vrkslabs::~vrkslabs() {
    vrkslab* slab = open_;
    while (slab) {
        vrkslab* next = slab->next;
        if (slab->live() == 0) release(slab);
        slab = next;
    }
}

vrkslab* vrkslabs::add_chunk() {
    auto* slab = new vrkslab;
    ++chunks;
    created += kSlabRecords;
    count_records(true);
    ++empty_;
    push_front(slab);
    return slab;
}

void vrkslabs::give_back(vrkelement* record) {
    vrkslab* slab = record->slab;
    slab->free_slots[slab->free_count++] = static_cast<uint16_t>(slab->index_of(record));
    if (slab != open_) {
        if (slab->listed) unlink(slab);
        push_front(slab);
    }
    if (slab->live() != 0) return;
    if (empty_ < kept) {
        ++empty_;
        return;
    }
    unlink(slab);
    release(slab);
}

void vrkslabs::trim() {
    vrkslab* slab = open_;
    while (slab && empty_ > kept) {
        vrkslab* next = slab->next;
        if (slab->live() == 0) {
            unlink(slab);
            release(slab);
            --empty_;
        }
        slab = next;
    }
}

bool vrkslabs::is_free(const vrkelement* record) {
    vrkslab* slab = record->slab;
    if (!slab) return false;
    const uint32_t index = slab->index_of(record);
    for (uint32_t i = 0; i < slab->free_count; ++i) {
        if (slab->free_slots[i] == index) return true;
    }
    return false;
}

void vrkslabs::release(vrkslab* slab) {
    for (uint32_t i = 0; i < slab->made; ++i) delete slab->record(i)->key;
    delete slab;
    --chunks;
    count_records(false);
}

void vrkslabs::unlink(vrkslab* slab) {
    if (slab->prev)
        slab->prev->next = slab->next;
    else
        open_ = slab->next;
    if (slab->next) slab->next->prev = slab->prev;
    slab->prev = nullptr;
    slab->next = nullptr;
    slab->listed = false;
}

void vrkslabs::push_front(vrkslab* slab) {
    slab->prev = nullptr;
    slab->next = open_;
    if (open_) open_->prev = slab;
    open_ = slab;
    slab->listed = true;
}

}  // namespace vrk
