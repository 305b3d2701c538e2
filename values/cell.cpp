// The shared constant cells, typed access to cells and the type-change routines.
#include "values/cell.h"

#include <string>
#include <utility>

#include "base/log.h"
#include "base/script_lock.h"
#include "values/classref.h"
#include "values/closure.h"
#include "values/json.h"
#include "values/object.h"
#include "values/pools.h"
#include "values/value_context.h"

namespace vrk {

namespace {

// Tags whose value word is the value itself: after a change to one of them the
// caller stores a value, so the word may be left as it was.
bool holds_scalar(Tag tag) {
    return tag == Tag::INT || tag == Tag::FLOAT || tag == Tag::EXT || tag == Tag::VOID;
}

// What every type change releases first, whether or not the tag changes: an
// object reference, the result bits, an owned closure, a class reference.
void release_references(vrkvar* cell, vrkblock* caller) {
    if (cell->type == Tag::PTR) release_object(cell);
    cell->attrs &= static_cast<uint16_t>(~attr::RESULT_BITS);
    if (cell->type == Tag::FUNCTION) closure_release(cell, cell->attrs);
    if (cell->type == Tag::CLASS) clearblock(cell, caller, false);
}

// Frees the payload of the old tag and allocates the payload of the new one.
// The value word is zeroed after a string or JSON payload; after a byte vector
// or a set it is left stale when the new tag is a scalar (the caller stores the
// scalar next).
void change_tag(vrkvar* cell, Tag tag) {
    bool stale = false;
    switch (cell->type) {
        case Tag::STRING:
        case Tag::ERR:
            if (cell->value.str) string_free(cell->value.str);
            break;
        case Tag::JSON:
            if (cell->value.json) json_free(cell->value.json);
            break;
        case Tag::DATA:
            if (cell->value.data) data_free(cell->value.data);
            stale = holds_scalar(tag);
            break;
        case Tag::FLOATSET:
            delete cell->value.floatset;
            stale = holds_scalar(tag);
            break;
        case Tag::DOUBLESET:
            delete cell->value.doubleset;
            stale = holds_scalar(tag);
            break;
        case Tag::INTSET:
            delete cell->value.intset;
            stale = holds_scalar(tag);
            break;
        case Tag::BIGINTSET:
            delete cell->value.bigintset;
            stale = holds_scalar(tag);
            break;
        default: break;
    }
    if (!stale) cell->value.i = 0;
    cell->aux = 0;

    switch (tag) {
        case Tag::STRING:
        case Tag::ERR: cell->value.str = string_new(); break;
        case Tag::JSON: cell->value.json = json_new(); break;
        case Tag::DATA: cell->value.data = data_new(); break;
        case Tag::FLOATSET: cell->value.floatset = new std::vector<float>(); break;
        case Tag::DOUBLESET: cell->value.doubleset = new std::vector<double>(); break;
        case Tag::INTSET: cell->value.intset = new std::vector<int32_t>(); break;
        case Tag::BIGINTSET: cell->value.bigintset = new std::vector<int64_t>(); break;
        case Tag::FUNCTION:
        case Tag::CLASS:
        case Tag::PTR:
            cell->block = nullptr;  // the block (or registry index) belongs to the new value
            break;
        default: break;
    }
    cell->type = tag;
}

// Empties the payload in place for a reset to the tag the cell already has.
void empty_in_place(vrkvar* cell) {
    switch (cell->type) {
        case Tag::STRING:
        case Tag::ERR:
            if (cell->value.str) cell->value.str->clear();
            break;
        case Tag::JSON:
            if (vrkjson* json = cell->value.json) {
                for (vrkelement* e : json->elements) element_free(e);
                json->elements.clear();
            }
            break;
        case Tag::DATA:
            if (cell->value.data) cell->value.data->clear();
            break;
        case Tag::FLOATSET: cell->value.floatset->clear(); break;
        case Tag::DOUBLESET: cell->value.doubleset->clear(); break;
        case Tag::INTSET: cell->value.intset->clear(); break;
        case Tag::BIGINTSET: cell->value.bigintset->clear(); break;
        default: cell->value.i = 0; break;
    }
    cell->block = nullptr;
    cell->aux = 0;
}

}  // namespace

// ---- typed access ----------------------------------------------------------------------

void set_int(vrkvar* cell, int64_t v) {
    reset(cell, Tag::INT);
    if (cell->type == Tag::INT) cell->value.i = v;
}

void set_float(vrkvar* cell, double v) {
    reset(cell, Tag::FLOAT);
    if (cell->type == Tag::FLOAT) cell->value.f = v;
}

void set_string(vrkvar* cell, const char* text, std::size_t size) {
    if (cell->type == Tag::STRING) {
        cell->value.str->assign(text, size);
        return;
    }
    // The text may live in the payload the reset is about to release.
    std::string copy(text, size);
    reset(cell, Tag::STRING);
    if (cell->type != Tag::STRING) {
        log().error("cannot set variable to string (const). The text to be set was: %s",
                    copy.c_str());
        return;
    }
    *cell->value.str = std::move(copy);
}

void set_string(vrkvar* cell, const std::string& text) {
    set_string(cell, text.data(), text.size());
}

void set_ref(vrkvar* cell, vrkvar* target) {
    // A cell that holds a plain number (above all a fresh temp taking a
    // by-reference argument) has nothing to release: the reset below would
    // only change the tag and clear `aux`, the value word and the result bits.
    if (!cell->constant && (cell->type == Tag::INT || cell->type == Tag::FLOAT) &&
        value_context().data_paths) {
        cell->type = Tag::REF;
        cell->aux = 0;
        cell->attrs &= attr::KEEP_MASK;
        cell->value.ref = target;
        return;
    }
    reset(cell, Tag::REF);
    if (cell->type == Tag::REF) cell->value.ref = target;
}

void bind_ref(vrkvar* cell, vrkvar* source) {
    if (!is_marker(source) && source->type == Tag::REF) {
        assign(cell, source, nullptr);
        return;
    }
    set_ref(cell, source);
}

namespace {

// The payload of a container tag, after converting the cell to it if needed. A
// constant cell of another tag cannot be converted and gives null.
template <class T>
T* payload_as(vrkvar* cell, Tag tag, T* vrkpayload::*member) {
    if (cell->type != tag) reset(cell, tag);
    if (cell->type != tag) return nullptr;
    return cell->value.*member;
}

}  // namespace

vrkjson* as_json(vrkvar* cell) { return payload_as(cell, Tag::JSON, &vrkpayload::json); }

std::vector<uint8_t>* as_data(vrkvar* cell) {
    return payload_as(cell, Tag::DATA, &vrkpayload::data);
}

std::vector<float>* as_floatset(vrkvar* cell) {
    return payload_as(cell, Tag::FLOATSET, &vrkpayload::floatset);
}

std::vector<double>* as_doubleset(vrkvar* cell) {
    return payload_as(cell, Tag::DOUBLESET, &vrkpayload::doubleset);
}

std::vector<int32_t>* as_intset(vrkvar* cell) {
    return payload_as(cell, Tag::INTSET, &vrkpayload::intset);
}

std::vector<int64_t>* as_bigintset(vrkvar* cell) {
    return payload_as(cell, Tag::BIGINTSET, &vrkpayload::bigintset);
}

vrkvar* deref(vrkvar* cell) {
    // Chains are short in practice; a chain that never ends is a reference
    // cycle (`$v = v` on a by-reference parameter stores a reference to itself),
    // and following it would hang: it stops at the cell reached.
    constexpr int kLongestChain = 1 << 16;
    for (int steps = 0; cell->type == Tag::REF && cell->value.ref != nullptr; ++steps) {
        if (steps == kLongestChain) {
            log().error("reference cycle: stopped following the chain");
            break;
        }
        cell = cell->value.ref;
    }
    return cell;
}

// ---- changing type -------------------------------------------------------------------

void set_type(vrkvar* cell, Tag tag, vrkblock* block) {
    if (cell->constant) return;
    release_references(cell, block);
    if (cell->type != tag) change_tag(cell, tag);
}

void reset(vrkvar* cell, Tag tag) {
    if (cell->constant) return;
    if (cell->type == tag && (tag == Tag::INT || tag == Tag::FLOAT)) {
        // A number reset to its own type holds nothing to release: what the
        // general path below does comes down to clearing the fields.
        cell->value.i = 0;
        cell->block = nullptr;
        cell->aux = 0;
        cell->attrs &= attr::KEEP_MASK;
        return;
    }
    release_references(cell, nullptr);
    if (cell->type == tag) {
        empty_in_place(cell);
    } else {
        change_tag(cell, tag);
    }
    cell->attrs &= attr::KEEP_MASK;
}

void release_object(vrkvar* cell) {
    if (cell->type == Tag::PTR && cell->value.i != 0) {
        ScriptLock lock;
        if (cell->aux_hi() == kHandleMark && cell->aux_lo() == 0) {
            if (vrkobject* obj = object_of(cell)) obj->release();
        } else {
            // Thread handles, callback handles and non-counting handles all end
            // in the callback queue under their value word.
            callback_fire(static_cast<uint64_t>(cell->value.i), true);
        }
        cell->value.i = 0;
        cell->aux = 0;
        cell->handle_index = 0;
    }
    cell->attrs &= static_cast<uint16_t>(~attr::RESULT_BITS);
}

}  // namespace vrk
