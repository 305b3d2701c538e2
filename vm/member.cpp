// Members of class instances: look-up by name with the instruction's cache, by
// position, through the class's `oparray` operator, and CLASS_ACCESS by index.
#include "vm/errors.h"
#include "vm/ops.h"
#include "vm/run.h"

namespace vrk {

namespace {

// Reserved slot of the subscript operator of a class.
constexpr std::size_t kOparraySlot = static_cast<std::size_t>(ClassSlot::oparray);

int64_t index_of_name(vrkblock* instance, const std::string& name) {
    const int64_t i = instance->find_var_index(name);
    return has_var(instance, i) ? i : -1;
}

// A member by name, remembered in the INDEX record for the next look-up in the
// same instance. The text is always confirmed: a variable's string may change
// in place while keeping its address.
int64_t index_by_name(vrkinstr& ins, vrkblock* instance, const std::string* text) {
    if (!text) return -1;
    auto* cache = reinterpret_cast<vrkindex_cache*>(ins.ref);
    if (cache && cache->block == instance && cache->key == *text && has_var(instance, cache->index))
        return cache->index;
    const int64_t i = index_of_name(instance, *text);
    if (i < 0) return -1;
    if (!cache) {
        cache = new vrkindex_cache();
        ins.ref = reinterpret_cast<uint64_t>(cache);
    }
    cache->key = *text;
    cache->key_ptr = text;
    cache->block = instance;
    cache->index = static_cast<uint32_t>(i);
    return i;
}

// A member by position; negative positions count from the end.
int64_t index_by_position(vrkblock* instance, int64_t i) {
    const auto count = static_cast<int64_t>(instance->vars.size());
    if (count == 0) return -1;
    if (i < 0) i = ((i % count) + count) % count;
    return i < count ? i : -1;
}

int64_t find_member(vrkinstr& ins, vrkblock* instance, vrkvar* key) {
    switch (key->type) {
        case Tag::STRING: return index_by_name(ins, instance, key->value.str);
        case Tag::INT: return index_by_position(instance, key->value.i);
        default: return index_of_name(instance, to_string(key));
    }
}

// A name the instance does not have goes to its `oparray` operator, run with
// the instance as `this` and the key as its first parameter.
vrkvar* call_oparray(vrkblock* b, vrkblock* instance, vrkvar* instance_cell, vrkvar* key) {
    if (instance->vars.size() <= kOparraySlot) return instance_cell;
    vrkvar* op = instance->vars[kOparraySlot];
    if (is_marker(op, kMarkerLimit)) return instance_cell;
    op = deref(op);
    if (op->type != Tag::FUNCTION || !op->block) return instance_cell;
    vrkblock* fn = op->block;
    if (fn->param_count >= 1 && !fn->busy()) {
        if (vrkvar* first = var_at(fn, 0)) assign(first, key, b);
    }
    return run(fn, b, 0, instance_cell);
}

}  // namespace

vrkvar* class_member(vrkblock* b, vrkinstr& ins, vrkvar* instance_cell, vrkvar* key) {
    vrkblock* instance = instance_cell->block;
    if (!instance) return instance_cell;
    const int64_t i = find_member(ins, instance, key);
    if (i >= 0) return instance->vars[static_cast<std::size_t>(i)];
    return call_oparray(b, instance, instance_cell, key);
}

void class_access_error(vrkblock* b) {
    b->member_owner = nullptr;
    b->owner_transient = 0;
    runtime_error("CLASS_ACCESS_ERROR", b);
}

}  // namespace vrk
