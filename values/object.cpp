// The guarded pointer registry and the default behaviour of native objects.
#include "values/object.h"

#include <chrono>
#include <thread>

#include "base/context.h"
#include "base/log.h"
#include "base/script_lock.h"
#include "values/block_hooks.h"
#include "values/cache.h"
#include "values/cell.h"
#include "values/object_form.h"
#include "values/pools.h"
#include "values/value_context.h"

namespace vrk {

vrkptr_base::~vrkptr_base() = default;

void registry_add(vrkptr_base* p) {
    if (p->registered) return;  // a type and its registering base may both ask
    ScriptLock lock;
    vrkregistry& reg = value_context().registry;
    uint64_t index;
    if (!reg.free_slots.empty()) {
        index = reg.free_slots.back();
        reg.free_slots.pop_back();
    } else {
        index = reg.slots.size();
        reg.slots.emplace_back();
    }
    if (++reg.next_id == 0) ++reg.next_id;  // 0 marks a free slot
    reg.slots[index] = {p, nullptr, reg.next_id, 0, 0};
    p->registry_index = index;
    p->registry_id = reg.next_id;
    p->registered = 1;
    reg.last_registered = p;
}

void registry_remove(vrkptr_base* p) {
    if (!p->registered) return;
    ScriptLock lock;
    vrkregistry& reg = value_context().registry;
    if (p->registry_index < reg.slots.size() && reg.slots[p->registry_index].ptr == p) {
        reg.slots[p->registry_index] = {};
        reg.free_slots.push_back(p->registry_index);
    }
    if (reg.last_registered == p) reg.last_registered = nullptr;
    p->registered = 0;
}

void registry_set_type(vrkptr_base* p, uint32_t type_hash) {
    if (!p->registered) return;
    ScriptLock lock;
    vrkregistry& reg = value_context().registry;
    if (p->registry_index >= reg.slots.size()) return;
    vrkregistry_slot& slot = reg.slots[p->registry_index];
    if (slot.ptr == p) slot.type_hash = type_hash;
}

const vrkregistry_slot* registry_slot(uint64_t index, uint32_t id) {
    if (id == 0) return nullptr;
    vrkregistry& reg = value_context().registry;
    if (index >= reg.slots.size()) return nullptr;
    const vrkregistry_slot& slot = reg.slots[index];
    if (slot.id != id) return nullptr;
    return &slot;
}

vrkptr_base* registry_get(uint64_t index, uint32_t id) {
    const vrkregistry_slot* slot = registry_slot(index, id);
    return slot ? slot->ptr : nullptr;
}

vrkobject* object_of(const vrkvar* cell) {
    if (!cell || cell->type != Tag::PTR || cell->aux_hi() != kHandleMark) return nullptr;
    uint32_t id = static_cast<uint32_t>(static_cast<uint64_t>(cell->value.i) & 0xFFFFFFFFu);
    return resolve<vrkobject>(cell->handle_index, id);
}

void set_object(vrkvar* cell, vrkobject* object, bool fresh) {
    if (!cell) return;
    if (!object) {
        set_int(cell, 0);
        return;
    }
    if (cell->constant) {
        // A constant keeps its value, as with the other setters (`x *= v` on a
        // name the compiler made a constant); an object made for it and held
        // by nobody else ends here.
        object->addRef();
        object->release();
        return;
    }
    // The reference comes first: resetting the cell may release the last
    // handle of this very object.
    object->addRef();
    reset(cell, Tag::PTR);
    cell->value.i = static_cast<int64_t>(object->registry_id);
    cell->handle_index = object->registry_index;
    cell->set_aux(0, kHandleMark);
    if (fresh) cell->attrs |= attr::FRESH_RESULT;
}

bool run_deferred(ScriptArrayReturn& answer, vrkblock* block, vrkvar* cell) {
    if (answer.status != 1 || !answer.job) return false;
    auto& start = value_context().startWorker;
    if (!start || !block || !block_hooks().engine(block)) {
        answer.job();
        return false;
    }
    start([job = std::move(answer.job)](vrkvar*) { job(); }, block, cell);
    return true;
}

// ---- association with a block ----------------------------------------------------

namespace {

// The callback-queue handle of an object's association: the top bit keeps it
// apart from the ids that non-counting handles fire on release.
uint64_t association_handle(const vrkobject* object) {
    return (uint64_t{1} << 63) | (static_cast<uint64_t>(object->registry_index) << 32) |
           object->registry_id;
}

}  // namespace

void associateBlock(vrkobject* object, vrkblock* block) {
    if (!object || !block) return;
    ScriptLock lock;
    if (object->owner_block) dissociateBlock(object, false);
    const uint64_t index = object->registry_index;
    const uint32_t id = object->registry_id;
    // When the block ends, the object forgets it: its end no longer waits
    // for a frame of the block's script.
    callback_add(
        [index, id](uint64_t) {
            if (vrkobject* o = resolve<vrkobject>(index, id)) o->owner_block = nullptr;
        },
        association_handle(object), block, 1);
    object->owner_block = block;
}

void dissociateBlock(vrkobject* object, bool run) {
    if (!object || !object->owner_block) return;
    ScriptLock lock;
    callback_fire(association_handle(object), run);
    object->owner_block = nullptr;
}

// ---- vrkobject defaults -----------------------------------------------------------

vrkobject::vrkobject() {
    registry_add(this);
    ScriptLock lock;
    vrkregistry& reg = value_context().registry;
    if (registry_index < reg.slots.size() && reg.slots[registry_index].ptr == this) {
        reg.slots[registry_index].object = this;
        reg.slots[registry_index].object_hash = registry_type_hash<vrkobject>();
        if (reg.slots[registry_index].type_hash == 0)
            reg.slots[registry_index].type_hash = reg.slots[registry_index].object_hash;
    }
}

vrkobject::~vrkobject() {
    if (parents) {
        ScriptLock lock;
        auto callbacks = std::move(*parents);
        delete parents;
        parents = nullptr;
        for (auto& fn : callbacks) {
            if (fn) fn();
        }
    }
    if (owner_block) dissociateBlock(this, false);
    registry_remove(this);
}

void vrkobject::destroy_default() {
    if (object_flags & object_flag::DETACHED) return;
    // Ended once already, but not yet gone (its deletion waits for the frame
    // end): a late release by a handle that still resolves must not queue it
    // a second time.
    if (ending) return;
    ending = 1;
    vrkengine* engine = nullptr;
    if (owner_block) {
        const vrkblock_hooks& blocks = block_hooks();
        if (blocks.alive(owner_block)) engine = blocks.engine(owner_block);
    }
    if (engine) {
        ScriptLock lock;
        vrkvalue_context& ctx = value_context();
        if (ctx.deferDeletion) {
            ctx.deferDeletion(engine, this);
            return;
        }
    }
    delete this;
}

void vrkobject::destroy() { destroy_default(); }

bool vrkobject::serialize(ScriptCacheWriter& writer) {
    writer.compact_text(type_name, std::char_traits<char>::length(type_name));
    return true;
}

// The plain object writes nothing after its type name, so it reads nothing.
bool vrkobject::deserialize(ScriptCacheReader&) { return true; }

void vrkobject::toString(std::string& out) { out = type_name; }

double vrkobject::toFloat() { return 0.0; }

int64_t vrkobject::toInt() { return 1; }

void vrkobject::toData(std::vector<uint8_t>& out) {
    log().log("not implemented for type %s", type_name);
    out.clear();
}

vrkobject* vrkobject::clone() { return this; }

vrkobject* vrkobject::deepCopy() {
    std::vector<uint8_t> bytes;
    bytes.reserve(2048);
    ScriptCacheWriter writer(bytes);
    if (!serialize(writer)) {
        log().error("cannot create a deep copy of %s!", type_name);
        return nullptr;
    }
    ScriptCacheReader reader(std::move(bytes));
    return instantiate_object(reader);
}

namespace {
bool not_implemented(vrkvar* res) {
    log().log("not implemented");
    if (res) set_int(res, 0);
    return true;
}
ScriptArrayReturn array_not_implemented(vrkvar* res) {
    log().log("not implemented");
    if (res) set_int(res, 0);
    return {};
}
}  // namespace

bool vrkobject::add(vrkblock*, vrkvar*, vrkvar* res) { return not_implemented(res); }
bool vrkobject::mult(vrkblock*, vrkvar*, vrkvar* res) { return not_implemented(res); }
bool vrkobject::exp(vrkblock*, vrkvar*, vrkvar* res) { return not_implemented(res); }
bool vrkobject::div(vrkblock*, vrkvar*, vrkvar* res) { return not_implemented(res); }
bool vrkobject::div_reverse(vrkblock*, vrkvar*, vrkvar* res) { return not_implemented(res); }
bool vrkobject::sub(vrkblock*, vrkvar*, vrkvar* res) { return not_implemented(res); }
bool vrkobject::sub_reverse(vrkblock*, vrkvar*, vrkvar* res) { return not_implemented(res); }
ScriptArrayReturn vrkobject::count(vrkblock*, vrkvar* res) { return array_not_implemented(res); }
ScriptArrayReturn vrkobject::arrayGet(vrkblock*, vrkvar*, vrkvar*) {
    return array_not_implemented(nullptr);
}
ScriptArrayReturn vrkobject::arraySet(vrkblock*, vrkvar*, vrkvar*) {
    return array_not_implemented(nullptr);
}
ScriptArrayReturn vrkobject::push(vrkblock*, vrkvar*, vrkvar*) {
    return array_not_implemented(nullptr);
}
ScriptArrayReturn vrkobject::pop(vrkblock*, vrkvar*) { return array_not_implemented(nullptr); }
ScriptArrayReturn vrkobject::reserved21() { return array_not_implemented(nullptr); }
ScriptArrayReturn vrkobject::eraseAt(vrkblock*, vrkvar*) { return array_not_implemented(nullptr); }
ScriptArrayReturn vrkobject::hasKey(vrkblock*, vrkvar*, vrkvar*) {
    return array_not_implemented(nullptr);
}
ScriptArrayReturn vrkobject::sync() { return array_not_implemented(nullptr); }
void vrkobject::onFrameBegin() {}
void vrkobject::onFrameEnd() {}
void vrkobject::addRef() { ++ref_count; }
void vrkobject::release() {
    --ref_count;
    if (ref_count < 0) {
        log().log("error ref count < 0 !");
    } else if (ref_count == 0) {
        destroy();
    }
}
void vrkobject::reserved29() {}
vrkobject* vrkobject::instance() { return this; }

vrkobject* vrkobject_handle::get() const {
    return dynamic_cast<vrkobject*>(registry_get(index, id));
}

// ---- objects with jobs ------------------------------------------------------------

vrkobject_threaded::~vrkobject_threaded() {
    if (jobs.load() != 0) {
        log().error("still waiting for threads!");
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

void vrkobject_threaded::destroy() {
    while (jobs.load() != 0) {
        log().warn("waiting for vrkobject to finish(%i)... (%s)", static_cast<int>(jobs.load()),
                   type_name);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    destroy_default();
}

void vrkobject_threaded::jobBegin() { jobs.fetch_add(1); }
void vrkobject_threaded::jobEnd() { jobs.fetch_sub(1); }

}  // namespace vrk
