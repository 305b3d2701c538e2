// Taking records from and returning them to the free lists, the foreign-thread
// queues and the callback queue.
#include "values/pools.h"

#include <atomic>
#include <utility>

#include "base/context.h"
#include "base/log.h"
#include "base/script_lock.h"
#include "values/value_context.h"

namespace vrk {

namespace {

// live_cells is a plain counter in the context, but cells are also made and
// destroyed on foreign threads, so every change goes through an atomic view.
void count_cell_up() {
    std::atomic_ref<uint32_t>(value_context().live_cells).fetch_add(1, std::memory_order_relaxed);
}

void count_cell_down() {
    std::atomic_ref<uint32_t>(value_context().live_cells).fetch_sub(1, std::memory_order_relaxed);
}

template <class T>
T* pop(vrkpool<T>& pool) {
    if (pool.free.empty()) return nullptr;
    T* record = pool.free.back();
    pool.free.pop_back();
    return record;
}

// True when the record went into the pool; false when the pool is full.
template <class T>
bool push(vrkpool<T>& pool, T* record) {
    if (pool.free.size() >= pool.cap) return false;
    pool.free.push_back(record);
    return true;
}

void warn_null() { log().warn("null pointer passed!"); }

// Brings a cell back to the state of a fresh one: its payload released, INT 0,
// and every field zeroed.
void blank(vrkvar* cell) {
    cell->constant = 0;
    cell->flags &= static_cast<uint16_t>(~flag::FIXED_TYPE);
    reset(cell, Tag::INT);
    cell->type = Tag::INT;
    cell->flags = 0;
    cell->attrs = 0;
    cell->value.i = 0;
    cell->aux = 0;
    cell->block = nullptr;
}

// True for a cell whose value word is the whole value: a number, VOID, an EXT,
// a reference, a function without a closure record, a class cell without a
// block. Blanking it releases nothing.
[[gnu::always_inline]] inline bool holds_nothing(const vrkvar* cell) {
    switch (cell->type) {
        case Tag::INT:
        case Tag::FLOAT:
        case Tag::VOID:
        case Tag::EXT:
        case Tag::REF: return true;
        case Tag::FUNCTION: return cell->value.ptr == nullptr;
        case Tag::CLASS: return cell->block == nullptr;
        default: return false;
    }
}

// What blank() comes to for a cell that holds nothing: every field zeroed.
[[gnu::always_inline]] inline void zero_fields(vrkvar* cell) {
    cell->type = Tag::INT;
    cell->constant = 0;
    cell->flags = 0;
    cell->attrs = 0;
    cell->value.i = 0;
    cell->aux = 0;
    cell->block = nullptr;
}

}  // namespace

// ---- cells ----------------------------------------------------------------------------

vrkvar* cell_new(Tag tag) {
    vrkvar* cell = nullptr;
    if (pool_thread()) {
        vrkpool<vrkvar>& pool = value_context().pools.cell_pool;
        cell = pop(pool);
        if (!cell) {
            cell = new vrkvar();
            ++pool.created;
            count_cell_up();
        }
    } else {
        cell = new vrkvar();
        count_cell_up();
    }
    reset(cell, tag);
    cell->attrs = 0;
    cell->constant = 0;
    return cell;
}

void cell_free(vrkvar* cell) {
    if (!cell) {
        warn_null();
        return;
    }
    if (!pool_thread()) {
        value_context().pools.cell_queue.push(cell);
        return;
    }
    blank(cell);
    if (!push(value_context().pools.cell_pool, cell)) {
        delete cell;
        count_cell_down();
    }
}

void cells_new(std::vector<vrkvar*>& out, std::size_t count) {
    if (!pool_thread()) {
        for (std::size_t i = 0; i < count; ++i) out.push_back(cell_new(Tag::INT));
        return;
    }
    vrkpool<vrkvar>& pool = value_context().pools.cell_pool;
    for (std::size_t i = 0; i < count; ++i) {
        vrkvar* cell = pop(pool);
        if (!cell) {
            cell = new vrkvar();
            ++pool.created;
            count_cell_up();
        }
        // What reset to INT and the clearing of cell_new leave in a pooled
        // cell, which is blank already.
        cell->type = Tag::INT;
        cell->value.i = 0;
        cell->block = nullptr;
        cell->aux = 0;
        cell->attrs = 0;
        cell->constant = 0;
        out.push_back(cell);
    }
}

void cells_free(std::vector<vrkvar*>& cells) {
    bool pooled = pool_thread();
    vrkpool<vrkvar>& pool = value_context().pools.cell_pool;
    for (vrkvar*& slot : cells) {
        vrkvar* cell = slot;
        if (!cell) continue;
        slot = nullptr;
        if (!pooled || !holds_nothing(cell)) {
            // What releasing the payload runs may change the thread's hold
            // of the pools: asked again after it.
            cell_free(cell);
            pooled = pool_thread();
            continue;
        }
        // Nothing to release: blank comes down to zeroing the fields.
        zero_fields(cell);
        if (!push(pool, cell)) {
            delete cell;
            count_cell_down();
        }
    }
    cells.clear();
}

void cells_blank(std::vector<vrkvar*>& cells) {
    for (vrkvar* cell : cells) {
        if (!cell) continue;
        if (holds_nothing(cell))
            zero_fields(cell);
        else
            blank(cell);
    }
}

vrkelement* element_new() {
    vrkslabs& slabs = value_context().pools.element_slabs;
    if (slabs.kept != 0 && pool_thread()) return slabs.take();
    count_cell_up();
    return new vrkelement();
}

vrkelement* element_new_keyed(const std::string& key) {
    vrkelement* element = element_new();
    if (!element->key) element->key = string_new();
    element->key->assign(key);
    return element;
}

void element_free(vrkelement* element) {
    if (!element) {
        warn_null();
        return;
    }
    if (!pool_thread()) {
        value_context().pools.element_queue.push(element);
        return;
    }
    blank(element);
    if (element->slab) {
        if (element->key) element->key->clear();
        value_context().pools.element_slabs.give_back(element);
        return;
    }
    delete element->key;
    delete element;
    count_cell_down();
}

// ---- payload records -------------------------------------------------------------------

std::string* string_new() {
    if (pool_thread()) {
        vrkpool<std::string>& pool = value_context().pools.string_pool;
        if (std::string* s = pop(pool)) {
            s->clear();
            return s;
        }
        ++pool.created;
    }
    return new std::string();
}

void string_free(std::string* s) {
    if (!s) {
        warn_null();
        return;
    }
    if (!pool_thread() || !push(value_context().pools.string_pool, s)) delete s;
}

std::vector<uint8_t>* data_new() {
    if (pool_thread()) {
        vrkpool<std::vector<uint8_t>>& pool = value_context().pools.data_pool;
        if (std::vector<uint8_t>* d = pop(pool)) {
            d->clear();
            return d;
        }
        ++pool.created;
    }
    return new std::vector<uint8_t>();
}

void data_free(std::vector<uint8_t>* d) {
    if (!d) {
        warn_null();
        return;
    }
    // Buffers over 1 MiB are never kept, so one large burst does not pin memory.
    if (pool_thread() && d->capacity() <= kDataPoolMaxBytes &&
        push(value_context().pools.data_pool, d)) {
        return;
    }
    delete d;
}

vrkjson* json_new() {
    if (pool_thread()) {
        vrkpool<vrkjson>& pool = value_context().pools.json_pool;
        if (vrkjson* j = pop(pool)) return j;
        ++pool.created;
    }
    return new vrkjson();
}

void json_free(vrkjson* j) {
    if (!j) {
        warn_null();
        return;
    }
    if (!pool_thread()) {
        value_context().pools.json_queue.push(j);
        return;
    }
    for (vrkelement* element : j->elements) element_free(element);
    j->elements.clear();
    // A reused record starts as a new one would, without a stale look-up hint.
    j->last_hit = -1;
    if (!push(value_context().pools.json_pool, j)) delete j;
}

void drain_free_queues() {
    // Holding the lock makes this a pool thread, so the free routines below
    // put the records into the pools instead of queueing them again.
    ScriptLock lock;
    vrkpools& pools = value_context().pools;
    // JSON records first: freeing them frees their elements, which then go
    // straight to the pool; elements, then plain cells.
    while (vrkjson* j = pools.json_queue.pop()) json_free(j);
    while (vrkelement* e = pools.element_queue.pop()) element_free(e);
    while (vrkvar* c = pools.cell_queue.pop()) cell_free(c);
}

// ---- callback queue ---------------------------------------------------------------------

void callback_add(std::function<void(uint64_t)> callable, uint64_t handle, vrkblock* block,
                  uint8_t kind) {
    ScriptLock lock;
    value_context().callback_queue.push_back(vrkcallback{std::move(callable), handle, block, kind});
}

bool callback_fire(uint64_t handle, bool run) {
    ScriptLock lock;
    std::vector<vrkcallback>& queue = value_context().callback_queue;
    bool found = false;
    std::vector<vrkcallback> due;
    for (auto it = queue.begin(); it != queue.end();) {
        if (it->handle != handle) {
            ++it;
            continue;
        }
        found = true;
        if (!run) break;
        due.push_back(std::move(*it));
        it = queue.erase(it);
    }
    // Called only after the queue is consistent again: a callback may add or
    // fire others.
    for (vrkcallback& record : due) {
        if (record.callable) record.callable(record.handle);
    }
    return found;
}

uint32_t live_cells() {
    return std::atomic_ref<uint32_t>(value_context().live_cells).load(std::memory_order_relaxed);
}

}  // namespace vrk
