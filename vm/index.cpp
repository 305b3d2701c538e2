// INDEX: subscripts of strings, JSON values, instances, native objects and the
// numeric data sets.
//
// The stack holds [.. container key]. In read mode (`arg` not -1) the element is
// read now and replaces the container in its slot. In store mode (`arg` -1)
// the container stays in the slot and the key waits in the block's pending
// index for the SET that follows (vm/element_store.h). Both cells are
// followed along their REF chains first, and the container becomes the owner
// (`this`) of a call that may follow. A read of a JSON key uses `arg` as a
// position hint and writes the hint back, so reading the same key in a loop
// finds it at once.
#include <string>

#include "values/json.h"
#include "values/object.h"
#include "values/value_context.h"
#include "vm/element_paths.h"
#include "vm/errors.h"
#include "vm/ops.h"
#include "vm/run.h"

namespace vrk {

namespace {

// Double to integer as a read of a float vector gives it: truncated towards
// zero; NaN and values out of range give the smallest integer.
int64_t truncate_element(double d) {
    if (!(d >= -9223372036854775808.0 && d < 9223372036854775808.0)) return INT64_MIN;
    return static_cast<int64_t>(d);
}

// Negative positions count from the end, modulo the count.
int64_t from_end(int64_t i, int64_t count) {
    if (i >= 0 || count <= 0) return i < 0 ? 0 : i;
    return ((i % count) + count) % count;
}

void index_string(vrkblock* b, vrkvar* c, vrkvar* key, bool store_mode) {
    static const std::string empty;
    const std::string& s = c->value.str ? *c->value.str : empty;
    const auto length = static_cast<int64_t>(s.size());
    int64_t i = to_int(key);
    // A store past the end appends to the string, so only a read past it is
    // an error; in store mode the index simply waits for the store.
    if (i > length && !store_mode) {
        runtime_error("JSON_ERROR", b);
        pop_slot(b);
        top_slot(b) = c;
        return;
    }
    if (i < 0) {
        if (length == 0) {
            report_error(b, "", "zero length string!");
            i = 0;
        } else {
            i = from_end(i, length);
        }
    }
    pop_slot(b);
    if (store_mode) {
        b->pending_index = i;
        top_slot(b) = c;
        return;
    }
    // The character at the length itself is the string's terminating zero.
    const char ch = i < length ? s[static_cast<std::size_t>(i)] : '\0';
    set_string(&b->scratch, &ch, 1);
    top_slot(b) = &b->scratch;
}

void index_json(vrkblock* b, vrkinstr& ins, vrkvar* c, vrkvar* key, bool store_mode) {
    vrkjson* json = as_json(c);
    if (!json) {
        // A constant of another type cannot become a JSON value.
        report_error(b, "json", "invalid json value!");
        pop_slot(b);
        top_slot(b) = void_value();
        return;
    }
    pop_slot(b);
    if (store_mode) {
        top_slot(b) = c;
        b->pending_key = key;
        return;
    }
    static const std::string empty;
    vrkelement* element = nullptr;
    if (key->type == Tag::STRING) {
        element = json_find_hinted(json, key->value.str ? *key->value.str : empty, ins.arg);
    } else if (key->type == Tag::DATA) {
        element = json_find(json, to_string(key));
    } else {
        element = json_at(json, to_int(key));
    }
    top_slot(b) = element;
}

// A read of the character at an integer position inside the string, when the
// block's scratch cell already holds a string: the one character replaces its
// text and the scratch cell replaces the string in its slot, as index_string
// does. False leaves everything else (positions from the end, past the end,
// other keys, a scratch cell of another tag) to index_string.
bool read_character(vrkblock* b, const vrkvar* c, const vrkvar* key) {
    if (key->type != Tag::INT || !c->value.str) return false;
    const std::string& s = *c->value.str;
    const int64_t i = key->value.i;
    if (static_cast<uint64_t>(i) >= s.size()) return false;
    vrkvar& scratch = b->scratch;
    if (scratch.type != Tag::STRING || !scratch.value.str) return false;
    scratch.value.str->assign(1, s[static_cast<std::size_t>(i)]);
    b->stack.pop_back();
    top_slot(b) = &scratch;
    return true;
}

// The value a read left in the top slot lies inside a transient value (ops.h).
void note_element(vrkblock* b, bool inside_transient) {
    vrkvar* top = top_slot(b);
    b->transient_element = inside_transient && !is_marker(top, kMarkerLimit) ? top : nullptr;
}

Flow index_instance(run_state& rs, vrkinstr& ins, vrkvar* c, vrkvar* key) {
    vrkblock* b = rs.b;
    vrkvar* answer = class_member(b, ins, c, key);
    if (answer == kSuspended) {
        b->resume_at = rs.ip;
        return Flow::suspend;
    }
    // A member call that could not start (its block is busy) has suspended
    // this block: the instruction runs again later and needs its operands.
    if (b->suspended) return Flow::next;
    pop_slot(b);
    if (!is_marker(answer, kMarkerLimit)) top_slot(b) = answer;
    return Flow::next;
}

Flow index_object(run_state& rs, vrkinstr& ins, vrkvar* c, vrkvar* key, bool store_mode) {
    vrkblock* b = rs.b;
    vrkobject* object = object_of(c);
    auto& objects = b->get_object_stack();
    if (objects.empty()) objects.push_back(nullptr);
    objects.back() = object;
    pop_slot(b);
    if (!object) {
        runtime_error("SO_ERROR", b);
        return Flow::next;
    }
    if (store_mode) {
        top_slot(b) = c;
        b->pending_key = key;
        return Flow::next;
    }
    top_slot(b) = &b->scratch;
    b->pending_key = key;
    b->current_instruction = &ins;
    ScriptArrayReturn answer = object->arrayGet(b, &b->scratch, key);
    if (answer.status == 1) {
        if (!answer.job) {
            // The object finishes the read elsewhere and wakes the block.
            b->resume_at = rs.ip + 1;
            return Flow::suspend;
        }
        // Deferred work the object hands back runs on a worker, into scratch;
        // the block sleeps until it has finished.
        b->scratch.attrs |= attr::NO_REF_WRAP;
        if (run_deferred(answer, b, &b->scratch)) {
            b->pending_index = -1;
            b->current_instruction = nullptr;
            b->resume_at = rs.ip + 1;
            return Flow::suspend;
        }
    }
    b->pending_index = -1;
    b->current_instruction = nullptr;
    return Flow::next;
}

// Number of elements of a data set, or -1 when its vector is missing.
int64_t set_count(const vrkvar* c) {
    switch (c->type) {
        case Tag::DATA: return c->value.data ? static_cast<int64_t>(c->value.data->size()) : -1;
        case Tag::FLOATSET:
            return c->value.floatset ? static_cast<int64_t>(c->value.floatset->size()) : -1;
        case Tag::DOUBLESET:
            return c->value.doubleset ? static_cast<int64_t>(c->value.doubleset->size()) : -1;
        case Tag::INTSET:
            return c->value.intset ? static_cast<int64_t>(c->value.intset->size()) : -1;
        case Tag::BIGINTSET:
            return c->value.bigintset ? static_cast<int64_t>(c->value.bigintset->size()) : -1;
        default: return -1;
    }
}

// Element i of a data set as an integer; float elements are truncated.
int64_t set_element(const vrkvar* c, std::size_t i) {
    switch (c->type) {
        case Tag::DATA: return (*c->value.data)[i];
        case Tag::FLOATSET: return truncate_element(static_cast<double>((*c->value.floatset)[i]));
        case Tag::DOUBLESET: return truncate_element((*c->value.doubleset)[i]);
        case Tag::INTSET: return (*c->value.intset)[i];
        case Tag::BIGINTSET: return (*c->value.bigintset)[i];
        default: return 0;
    }
}

void index_set(vrkblock* b, vrkvar* c, vrkvar* key, bool store_mode) {
    pop_slot(b);
    top_slot(b) = &b->scratch;
    const int64_t count = set_count(c);
    if (count < 0) {
        runtime_error("DATASET_ERROR", b);
        return;
    }
    const int64_t i = from_end(to_int(key), count);
    if (store_mode) {
        b->pending_index = i;
        top_slot(b) = c;
        return;
    }
    // Reading past the end gives 0 and creates nothing.
    const int64_t value = i < count ? set_element(c, static_cast<std::size_t>(i)) : 0;
    set_int(&b->scratch, value);
}

}  // namespace

Flow index_value(run_state& rs, vrkinstr& ins) {
    vrkblock* b = rs.b;
    if (b->stack.size() < 2) {
        report_error(b, "json", "invalid json value!");
        return Flow::next;
    }
    vrkvar* key = b->stack.back();
    vrkvar* c = b->stack[b->stack.size() - 2];
    if (is_marker(key, kMarkerLimit) || is_marker(c, kMarkerLimit)) {
        report_error(b, "json", "invalid json value!");
        pop_slot(b);
        return Flow::next;
    }
    key = chain_end(key);
    c = chain_end(c);
    const bool transient = is_transient(b, c);
    b->member_owner = c;
    b->owner_transient = transient ? 1 : 0;
    b->transient_element = nullptr;
    b->pending_index = -1;
    const bool store_mode = ins.arg == -1;
    if (c->type == Tag::JSON && !store_mode && value_context().data_paths) {
        if (vrkelement* element = element_paths::existing_element(c->value.json, key, ins.arg)) {
            b->stack.pop_back();
            top_slot(b) = element;
            note_element(b, transient);
            return Flow::next;
        }
    }
    if (c->type == Tag::STRING && !store_mode && value_context().data_paths &&
        read_character(b, c, key))
        return Flow::next;
    switch (c->type) {
        case Tag::STRING: index_string(b, c, key, store_mode); return Flow::next;
        case Tag::JSON:
            index_json(b, ins, c, key, store_mode);
            note_element(b, transient && !store_mode);
            return Flow::next;
        case Tag::CLASS: {
            const Flow flow = index_instance(rs, ins, c, key);
            if (flow == Flow::next && !b->suspended) note_element(b, transient);
            return flow;
        }
        case Tag::PTR: return index_object(rs, ins, c, key, store_mode);
        case Tag::DATA:
        case Tag::FLOATSET:
        case Tag::DOUBLESET:
        case Tag::INTSET:
        case Tag::BIGINTSET: index_set(b, c, key, store_mode); return Flow::next;
        default:
            // The block's scratch cell is rewritten by the next operation; an
            // element of a list made in it would be freed under the slot that
            // holds it. It is not turned into a list.
            if (c == &b->scratch) {
                report_error(b, "json", "invalid json value!");
                pop_slot(b);
                return Flow::next;
            }
            // Anything else becomes an empty JSON value first, losing what it held.
            reset(c, Tag::JSON);
            index_json(b, ins, c, key, store_mode);
            note_element(b, transient && !store_mode);
            return Flow::next;
    }
}

}  // namespace vrk
