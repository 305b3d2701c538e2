// Pieces shared by the array builtins (builtins/arrays*.cpp): reading the
// arguments safely, the block-form report, lazy element keys, and the hand-over
// of a call to a native object's container operation.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "values/cell.h"
#include "values/json.h"
#include "values/object.h"
#include "values/pools.h"
#include "vm/errors.h"

namespace vrk::lib::arrays {

// Argument `i` of the call; a no-value marker in the argument vector reads as
// the shared void cell, which is constant and therefore never converted.
inline vrkvar* arg(std::vector<vrkvar*>& args, std::size_t i) {
    vrkvar* cell = args[i];
    return is_marker(cell, 11) ? void_value() : cell;
}

// The report of a wrong call, against the calling block.
inline void report(vrkblock* block, const char* message) {
    report_error(block, "external_function", message);
}

inline vrkvar* answer_int(vrkvar& result, int64_t value) {
    set_int(&result, value);
    return &result;
}

inline vrkvar* answer_text(vrkvar& result, const std::string& text) {
    set_string(&result, text);
    return &result;
}

// The ERR value of a failed push: a message, no exception.
inline vrkvar* answer_error(vrkvar& result, const char* message) {
    reset(&result, Tag::ERR);
    if (result.type == Tag::ERR && result.value.str) *result.value.str = message;
    return &result;
}

// The record of a JSON cell, or null for any other cell.
inline vrkjson* json_of(vrkvar* cell) {
    return cell->type == Tag::JSON ? cell->value.json : nullptr;
}

// The key of an element; an element that never had one gets an empty key here.
inline std::string& key_of(vrkelement* element) {
    if (!element->key) element->key = string_new();
    return *element->key;
}

// The live object of a PTR cell; a stale or foreign handle is reported.
inline vrkobject* live_object(vrkblock* block, vrkvar* cell) {
    vrkobject* object = object_of(cell);
    if (!object) report(block, "ext ptr invalid!");
    return object;
}

// Finishes an object's container operation. A deferred answer carries a job
// that completes it; it runs here, on the calling thread, before the builtin
// returns.
inline void finish(ScriptArrayReturn answer) {
    if (answer.status == 1 && answer.job) answer.job();
}

// Calls `fn` with the vector of a DATA or number-set cell; false for any other
// cell (and for a set without its vector).
template <class F>
bool with_vector(vrkvar* cell, F&& fn) {
    switch (cell->type) {
        case Tag::DATA: return cell->value.data && (fn(*cell->value.data), true);
        case Tag::FLOATSET: return cell->value.floatset && (fn(*cell->value.floatset), true);
        case Tag::DOUBLESET: return cell->value.doubleset && (fn(*cell->value.doubleset), true);
        case Tag::INTSET: return cell->value.intset && (fn(*cell->value.intset), true);
        case Tag::BIGINTSET: return cell->value.bigintset && (fn(*cell->value.bigintset), true);
        default: return false;
    }
}

// Assigns `value` to `copy` as a copy, never a move, even out of a temporary
// whose payload an assignment would otherwise take.
inline void copy_without_move(vrkvar* copy, vrkvar* value, vrkblock* block) {
    const uint16_t flags = value->flags;
    if (!(flags & flag::MOVABLE)) {
        assign(copy, value, block);
        return;
    }
    value->flags = static_cast<uint16_t>(flags & ~flag::MOVABLE);
    assign(copy, value, block);
    value->flags = flags;
}

// Copies a value aside when it is the container being changed, so that the
// change never copies a container into itself; null when no copy is needed.
// The copy is freed by the destructor.
class value_snapshot {
public:
    value_snapshot(vrkvar* value, const vrkvar* container, vrkblock* block) {
        if (value != container) return;
        copy = cell_new();
        copy_without_move(copy, value, block);
    }
    ~value_snapshot() {
        if (copy) cell_free(copy);
    }
    value_snapshot(const value_snapshot&) = delete;
    value_snapshot& operator=(const value_snapshot&) = delete;

    // The cell to read the value from.
    vrkvar* of(vrkvar* value) const { return copy ? copy : value; }

private:
    vrkvar* copy = nullptr;
};

}  // namespace vrk::lib::arrays
