// The element store `a[k] = v` by container type, and the checked assignment it shares
// with the plain store of the run loop.
#include "vm/element_store.h"

#include <cstdint>
#include <string>
#include <vector>

#include "base/log.h"
#include "values/cell.h"
#include "values/json.h"
#include "values/object.h"
#include "vm/block.h"
#include "vm/errors.h"

namespace vrk {

namespace {

// Pending index meaning "none" (also read as the key pointer: all bits set).
constexpr int64_t kNoPending = -1;

// Pointers below this are no-value markers in a store.
constexpr uintptr_t kStoreMarker = 11;

void store_json(vrkblock* block, vrkvar* dst, vrkvar* src) {
    vrkvar* k = block->pending_key;
    vrkjson* json = dst->value.json;
    if (is_marker(k, kStoreMarker) || !json) return;
    if (src == erase_value()) {
        json_erase(json, k);
        return;
    }
    vrkelement* element = nullptr;
    switch (k->type) {
        case Tag::STRING:
            element = json_find(json, k->value.str ? *k->value.str : std::string());
            break;
        case Tag::DATA: element = json_find(json, to_string(k)); break;
        default: element = json_at(json, to_int(k)); break;
    }
    checked_assign(block, element, src);
}

// Characters of src overwrite the string from k on; those that fall past the end
// are appended, so an index beyond the end appends without padding.
void store_string(vrkblock* block, vrkvar* dst, vrkvar* src) {
    std::string* s = dst->value.str;
    const int64_t k = block->pending_index;
    if (!s || k < 0) return;
    const auto start = static_cast<uint64_t>(k);
    if (src == erase_value()) {
        if (start < s->size()) s->erase(static_cast<std::size_t>(start), 1);
        return;
    }
    const std::string text = to_string(src);
    for (std::size_t j = 0; j < text.size(); ++j) {
        const uint64_t pos = start + j;
        if (pos < s->size()) {
            (*s)[static_cast<std::size_t>(pos)] = text[j];
        } else {
            s->push_back(text[j]);
        }
    }
}

// Numeric vectors: erase or convert within range; out of range nothing happens.
template <class T, class Convert>
void store_vector(vrkblock* block, std::vector<T>* v, vrkvar* src, Convert convert) {
    const int64_t k = block->pending_index;
    if (!v || static_cast<uint64_t>(k) >= v->size()) return;
    const auto pos = static_cast<std::size_t>(k);
    if (src == erase_value()) {
        v->erase(v->begin() + static_cast<std::ptrdiff_t>(pos));
    } else {
        (*v)[pos] = convert(src);
    }
}

// Native object on top of the object stack; true when its answer is a suspension.
bool store_object(vrkblock* block, vrkvar* src, const vrkinstr* instr) {
    if (!block->object_stack || block->object_stack->empty()) return false;
    vrkobject* object = block->object_stack->back();
    vrkvar* k = block->pending_key;
    if (!object || is_marker(k, kStoreMarker)) return false;
    ScriptArrayReturn answer;
    if (src == erase_value()) {
        answer = object->eraseAt(block, k);
    } else {
        block->current_instruction = instr;
        answer = object->arraySet(block, src, k);
        block->current_instruction = nullptr;
    }
    // A deferred job runs on a worker while the block sleeps.
    if (answer.status == 1 && answer.job) return run_deferred(answer, block, src);
    return answer.status == 1;
}

}  // namespace

bool has_pending_index(const vrkblock* block) { return block->pending_index != kNoPending; }

bool element_store(vrkblock* block, vrkvar* dst, vrkvar* src, const vrkinstr* instr) {
    bool suspended = false;
    if (!is_marker(dst, kStoreMarker) && !is_marker(src, kStoreMarker) &&
        has_pending_index(block)) {
        switch (dst->type) {
            case Tag::JSON: store_json(block, dst, src); break;
            case Tag::STRING: store_string(block, dst, src); break;
            case Tag::DATA:
                store_vector(block, dst->value.data, src,
                             [](vrkvar* v) { return static_cast<uint8_t>(to_int(v)); });
                break;
            case Tag::FLOATSET:
                store_vector(block, dst->value.floatset, src,
                             [](vrkvar* v) { return static_cast<float>(to_float(v)); });
                break;
            case Tag::DOUBLESET:
                store_vector(block, dst->value.doubleset, src,
                             [](vrkvar* v) { return to_float(v); });
                break;
            case Tag::INTSET:
                store_vector(block, dst->value.intset, src,
                             [](vrkvar* v) { return static_cast<int32_t>(to_int(v)); });
                break;
            case Tag::BIGINTSET:
                store_vector(block, dst->value.bigintset, src, [](vrkvar* v) { return to_int(v); });
                break;
            case Tag::PTR: suspended = store_object(block, src, instr); break;
            default: break;
        }
    }
    block->pending_index = kNoPending;
    return suspended;
}

void checked_assign(vrkblock* block, vrkvar* dst, vrkvar* src) {
    if (is_marker(src, kStoreMarker) || is_marker(dst, kStoreMarker)) return;
    if (dst->constant) {
        if (dst->type == Tag::CLASS) return;
        report_error(block, "set", "tried to override const var!");
        const std::string name = block ? block->var_name(dst) : std::string();
        log().log("name of the var: %s", name.c_str());
        return;
    }
    // Read before the copy: the source may be an element of what the
    // destination held (`r = r.x`), which the copy releases.
    const bool bound_object = (src->flags & flag::BOUND_OBJECT) != 0;
    assign(dst, src, block);
    // A member function taken from a native object carries that object along:
    // the object being indexed is the one on top of the object stack.
    if (bound_object && block && block->object_stack && !block->object_stack->empty()) {
        dst->value.ptr = block->object_stack->back();
        dst->attrs &= attr::NATIVE_FUNCTION;
    }
}

}  // namespace vrk
