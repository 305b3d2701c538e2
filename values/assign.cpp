// `assign`, the one copy routine between cells, and the payload copy by tag.
//
// The order of the steps matters. Fixed-type cells convert instead of taking the
// source's type; movable sources give their payload away; object handles are
// re-counted; and a destination that holds a class instance, a JSON record or an
// object keeps that old payload alive until the copy is done, because the
// source may be an element or member of it.
#include <string>

#include "base/log.h"
#include "values/block_hooks.h"
#include "values/cell.h"
#include "values/classref.h"
#include "values/closure.h"
#include "values/json.h"
#include "values/object.h"
#include "values/pools.h"

namespace vrk {

namespace {

// Deepest nesting of lists a copy follows. Deeper lists come out empty: a
// struct whose member is laid out by the struct itself would nest for ever.
constexpr int kMaxCopyDepth = 256;

void assign_at(vrkvar* dest, vrkvar* src, vrkblock* block, int depth);

// Makes the key of `dest` match the key of `src`: copied, or removed.
void match_key(vrkelement* dest, const vrkelement* src) {
    if (!src->key) {
        if (dest->key) {
            string_free(dest->key);
            dest->key = nullptr;
        }
        return;
    }
    if (!dest->key) dest->key = string_new();
    *dest->key = *src->key;
}

// JSON payload copy into the fresh record of `dest`.
void copy_json(vrkvar* dest, vrkvar* src, vrkblock* caller, int depth) {
    if ((src->flags & flag::MOVABLE) && src->value.json) {
        // A temporary gives its record away instead of being copied.
        if (dest->value.json) json_free(dest->value.json);
        dest->value.json = src->value.json;
        src->type = Tag::INT;
        src->value.i = 0;
        return;
    }
    vrkjson* to = dest->value.json;
    if (depth >= kMaxCopyDepth) {
        log().error("json nested too deeply!");
        return;
    }
    if ((src->flags & flag::STRUCT_VAR) && src->block) {
        // A struct variable is laid out by its struct block: one keyed element
        // per plain member, in declaration order.
        vrkblock* layout = src->block;
        const vrkblock_hooks& blocks = block_hooks();
        const std::vector<vrkvar*>& members = blocks.variables(layout);
        for (std::size_t i = 0; i < members.size(); ++i) {
            vrkvar* member = members[i];
            if (!member || (member->flags & flag::STRUCT_VAR) ||
                (member->attrs & attr::NO_DESTRUCTOR) || member->constant) {
                continue;
            }
            vrkelement* e = element_new_keyed(
                blocks.variable_name(layout, static_cast<uint32_t>(i)));
            to->elements.push_back(e);
            assign_at(e, member, caller, depth + 1);
        }
        return;
    }
    const vrkjson* from = src->value.json;
    if (!from) return;
    std::vector<vrkelement*>& out = to->elements;
    while (out.size() > from->elements.size()) {
        element_free(out.back());
        out.pop_back();
    }
    while (out.size() < from->elements.size()) out.push_back(element_new());
    for (std::size_t i = 0; i < out.size(); ++i) {
        match_key(out[i], from->elements[i]);
        assign_at(out[i], from->elements[i], caller, depth + 1);
    }
}

// FUNCTION payload copy: the block and parameter count, then the closure.
void copy_function(vrkvar* dest, vrkvar* src, vrkblock* caller) {
    dest->aux = src->aux;
    dest->block = src->block;
    if (!src->block) log().error("funtion is not a function?");
    if (src->attrs & attr::SHARED_CLOSURE) {
        dest->attrs |= attr::SHARED_CLOSURE;
        if (src->attrs & attr::NATIVE_FUNCTION) {
            dest->attrs |= attr::NATIVE_FUNCTION;
            dest->value = src->value;
        }
        return;
    }
    // The copy owns whatever closure it gets; a sharing bit kept from an
    // earlier value would make that closure leak.
    dest->attrs &= static_cast<uint16_t>(~attr::SHARED_CLOSURE);
    closure_capture(dest, src, caller);
}

// CLASS payload copy: a blueprint is instantiated, anything else is shared
// (the block layer decides which, vm/instances.h).
void copy_class(vrkvar* dest, vrkvar* src, vrkblock* caller) {
    vrkblock* b = src->block;
    if (!b) {
        dest->block = nullptr;
        return;
    }
    block_hooks().copy_class(dest, b, caller);
}

// Copies the payload of `src` into `dest`, which already has src's tag and an
// empty payload of it.
void copy_payload(vrkvar* dest, vrkvar* src, vrkblock* caller, int depth) {
    switch (dest->type) {
        case Tag::INT:
        case Tag::FLOAT:
        case Tag::VOID: dest->value = src->value; break;
        case Tag::STRING:
        case Tag::ERR:
            // Assigned straight from the source's text (no temporary string in
            // between), so that the destination keeps its own buffer.
            if (src->value.str) {
                *dest->value.str = *src->value.str;
            } else {
                dest->value.str->clear();
            }
            break;
        case Tag::FUNCTION: copy_function(dest, src, caller); break;
        case Tag::CLASS: copy_class(dest, src, caller); break;
        case Tag::EXT:
            dest->value = src->value;
            dest->aux = src->aux;
            dest->handle_index = src->handle_index;
            dest->attrs = src->attrs & attr::KEEP_MASK;
            break;
        case Tag::PTR:
        case Tag::REF:
            dest->value = src->value;
            dest->aux = src->aux;
            dest->handle_index = src->handle_index;
            break;
        case Tag::JSON: copy_json(dest, src, caller, depth); break;
        case Tag::DATA: *dest->value.data = *src->value.data; break;
        case Tag::FLOATSET: *dest->value.floatset = *src->value.floatset; break;
        case Tag::DOUBLESET: *dest->value.doubleset = *src->value.doubleset; break;
        case Tag::INTSET: *dest->value.intset = *src->value.intset; break;
        case Tag::BIGINTSET: *dest->value.bigintset = *src->value.bigintset; break;
    }
    // A handle copied word for word is one more holder of its object.
    if (dest->type == Tag::PTR && dest->aux_hi() == kHandleMark) {
        if (vrkobject* obj = object_of(dest)) obj->addRef();
    }
}

// Step of a fixed-type destination: convert the source to the cell's own type.
// Returns false for a tag that has no conversion.
bool store_converted(vrkvar* dest, vrkvar* src) {
    switch (dest->type) {
        case Tag::INT: dest->value.i = to_int(src); return true;
        case Tag::FLOAT: dest->value.f = to_float(src); return true;
        case Tag::STRING:
            if (!dest->value.str) dest->value.str = string_new();
            *dest->value.str = to_string(src);
            return true;
        case Tag::REF: dest->value.ref = src; return true;
        default: return false;
    }
}

// A movable string or object handle changes hands without a copy.
void take_over(vrkvar* dest, vrkvar* src) {
    const Tag tag = src->type;
    const vrkpayload value = src->value;
    const uint16_t aux = src->aux;
    const uint64_t index = src->handle_index;
    const bool fresh = (src->attrs & attr::RESULT_BITS) != 0;
    // Blank the source before the destination lets go of its old payload: the
    // source may sit inside it.
    src->type = Tag::INT;
    src->value.i = 0;
    src->aux = 0;
    src->handle_index = 0;
    src->attrs = 0;

    reset(dest, Tag::INT);
    dest->type = tag;
    dest->value = value;
    dest->aux = aux;
    dest->handle_index = index;
    if (fresh)
        dest->attrs |= (dest->flags & flag::MOVABLE) ? attr::FRESH_RESULT : attr::OWNS_RESULT;
}

// A non-movable object handle: the destination takes its own reference.
void take_handle(vrkvar* dest, vrkvar* src) {
    // A script thread handle names a block and counts nothing: copied as it stands.
    if (src->aux == kThreadHandleAux) {
        reset(dest, Tag::PTR);
        dest->value.i = src->value.i;
        dest->aux = src->aux;
        dest->handle_index = src->handle_index;
        return;
    }
    vrkobject* obj = object_of(src);
    if (!obj) {
        set_int(dest, 0);
        return;
    }
    const bool counting = (dest->flags & flag::NO_COUNT) == 0;
    if (counting) {
        obj = obj->clone();
        if (!obj) {
            set_int(dest, 0);
            return;
        }
        obj->addRef();
    }
    reset(dest, Tag::PTR);
    dest->value.i = static_cast<int64_t>(obj->registry_id);
    dest->handle_index = obj->registry_index;
    dest->set_aux(counting ? 0 : 1, kHandleMark);
}

// The old payload of a destination that held a class, a JSON or an object,
// set aside until the copy is done.
struct held_payload {
    Tag type;          // tag the destination had
    vrkpayload value;  // its value word
    uint16_t aux;      // its aux word
    vrkblock* block;   // its block word (registry index for PTR)
    uint16_t flags;    // its flags while it held the payload
    uint16_t attrs;    // its attrs while it held the payload
};

void release_held(const held_payload& old, vrkvar* dest, vrkblock* caller) {
    switch (old.type) {
        case Tag::CLASS: clearblock(old.block, dest, caller, old.flags, old.attrs); break;
        case Tag::JSON:
            if (old.value.json) json_free(old.value.json);
            break;
        case Tag::PTR: {
            // release_object takes the global lock around the release.
            vrkvar handle;
            handle.type = Tag::PTR;
            handle.value = old.value;
            handle.aux = old.aux;
            handle.block = old.block;
            release_object(&handle);
            break;
        }
        default: break;
    }
}

void assign_at(vrkvar* dest, vrkvar* src, vrkblock* block, int depth) {
    if (src == dest || is_marker(src)) return;

    if (src->type == dest->type && (src->type == Tag::INT || src->type == Tag::FLOAT) &&
        !dest->constant && !(dest->flags & flag::FIXED_TYPE)) {
        // A number into a plain cell holding a number of the same type: of the
        // steps below only the attribute mask, the hand-over of a fresh result
        // and the same-tag copy apply.
        dest->attrs &= attr::KEEP_MASK;
        if (src->attrs & attr::FRESH_RESULT) {
            src->attrs &= static_cast<uint16_t>(~attr::FRESH_RESULT);
            dest->attrs |= attr::OWNS_RESULT;
        }
        dest->aux = 0;
        dest->block = nullptr;
        dest->value = src->value;
        return;
    }

    if (dest->constant && !(dest->flags & flag::FIXED_TYPE)) {
        log().error("tried to override const var!!");
        return;
    }

    if (dest->flags & flag::FIXED_TYPE) {
        if (store_converted(dest, src)) return;
        log().error("unknown const type!");
        // A constant cannot take the plain path: its type cannot change.
        if (dest->constant) return;
    }

    if ((src->type == Tag::STRING || src->type == Tag::PTR) && (src->flags & flag::MOVABLE)) {
        take_over(dest, src);
        return;
    }

    if (src->type == Tag::PTR) {
        take_handle(dest, src);
        return;
    }

    // The closure is judged by the attrs the cell had while it held it.
    const uint16_t held_attrs = dest->attrs;
    if (dest->type == Tag::FUNCTION) {
        closure_release(dest, held_attrs);
        // A builtin's record is not the cell's to release, and once the mask
        // below has taken the native bit away nothing tells it from a closure:
        // the type change or the next capture would release it as one (a
        // script storing into a builtin's name, `count = 2`).
        if (held_attrs & attr::NATIVE_FUNCTION) dest->value.native = nullptr;
    }
    dest->attrs &= attr::KEEP_MASK;
    // A fresh native result becomes owned by the destination; the bit is set
    // once the copy is done, as the type change clears result bits.
    const bool took_fresh = (src->attrs & attr::FRESH_RESULT) != 0;
    if (took_fresh) src->attrs &= static_cast<uint16_t>(~attr::FRESH_RESULT);

    if (dest->type == Tag::CLASS || dest->type == Tag::JSON || dest->type == Tag::PTR) {
        const held_payload old{dest->type,  dest->value, dest->aux,
                               dest->block, dest->flags, held_attrs};
        dest->type = Tag::INT;
        dest->value.i = 0;
        dest->aux = 0;
        dest->block = nullptr;
        set_type(dest, src->type, block);
        copy_payload(dest, src, block, depth);
        release_held(old, dest, block);
    } else if (dest->type != src->type) {
        set_type(dest, src->type, block);
        copy_payload(dest, src, block, depth);
    } else {
        dest->attrs &= static_cast<uint16_t>(~attr::RESULT_BITS);
        dest->aux = 0;
        dest->block = nullptr;
        copy_payload(dest, src, block, depth);
    }
    if (took_fresh) dest->attrs |= attr::OWNS_RESULT;
}

}  // namespace

void assign(vrkvar* dest, vrkvar* src, vrkblock* block) { assign_at(dest, src, block, 0); }

}  // namespace vrk
