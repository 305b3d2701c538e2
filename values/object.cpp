// The guarded pointer registry and the default behaviour of native objects.
#include "values/object.h"

#include "base/context.h"
#include "base/log.h"
#include "base/script_lock.h"
#include "values/cell.h"
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
    reg.slots[index] = {p, reg.next_id};
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

vrkptr_base* registry_get(uint64_t index, uint32_t id) {
    if (id == 0) return nullptr;
    vrkregistry& reg = value_context().registry;
    if (index >= reg.slots.size()) return nullptr;
    const vrkregistry_slot& slot = reg.slots[index];
    if (slot.id != id) return nullptr;
    return slot.ptr;
}

vrkobject* object_of(const vrkvar* cell) {
    if (!cell || cell->type != Tag::PTR || cell->aux_hi() != kHandleMark) return nullptr;
    uint32_t id = static_cast<uint32_t>(static_cast<uint64_t>(cell->value.i) & 0xFFFFFFFFu);
    return dynamic_cast<vrkobject*>(registry_get(cell->handle_index, id));
}

// ---- vrkobject defaults -----------------------------------------------------------

vrkobject::vrkobject() { registry_add(this); }

vrkobject::~vrkobject() {
    if (parents) {
        for (auto& fn : *parents) {
            if (fn) fn();
        }
        delete parents;
        parents = nullptr;
    }
    registry_remove(this);
}

void vrkobject::destroy() { delete this; }

bool vrkobject::serialize(ScriptCacheWriter&) { return true; }

bool vrkobject::deserialize(ScriptCacheReader&) { return true; }

void vrkobject::toString(std::string& out) { out = type_name; }

double vrkobject::toFloat() { return 0.0; }

int64_t vrkobject::toInt() { return 1; }

void vrkobject::toData(std::vector<uint8_t>& out) {
    log().log("not implemented for type %s", type_name);
    out.clear();
}

vrkobject* vrkobject::clone() { return this; }

vrkobject* vrkobject::deepCopy() { return nullptr; }

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
ScriptArrayReturn vrkobject::arrayGet(vrkblock*, vrkvar*, vrkvar*) { return array_not_implemented(nullptr); }
ScriptArrayReturn vrkobject::arraySet(vrkblock*, vrkvar*, vrkvar*) { return array_not_implemented(nullptr); }
ScriptArrayReturn vrkobject::push(vrkblock*, vrkvar*, vrkvar*) { return array_not_implemented(nullptr); }
ScriptArrayReturn vrkobject::pop(vrkblock*, vrkvar*) { return array_not_implemented(nullptr); }
ScriptArrayReturn vrkobject::reserved21() { return array_not_implemented(nullptr); }
ScriptArrayReturn vrkobject::eraseAt(vrkblock*, vrkvar*) { return array_not_implemented(nullptr); }
ScriptArrayReturn vrkobject::hasKey(vrkblock*, vrkvar*, vrkvar*) { return array_not_implemented(nullptr); }
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

}  // namespace vrk
