// The cell form and the JSON list form of values, and native objects inside them.
#include "saved/value_form.h"

#include <string>
#include <utility>
#include <vector>

#include "base/log.h"
#include "base/script_lock.h"
#include "saved/block_form.h"
#include "saved/block_links.h"
#include "values/cache.h"
#include "values/cell.h"
#include "values/json.h"
#include "values/object.h"
#include "vm/block.h"
#include "vm/instruction.h"

namespace vrk {

namespace {

// `aux` of a PTR cell that holds a counted handle into the object registry.
constexpr uint16_t kHandleAux = 0xFF00;

// Report of data nested beyond kMaxNesting; such data reads as if it ended there.
constexpr const char* kTooDeep = "saved data nested too deeply!";

object_associator& associator_slot() {
    static object_associator fn = nullptr;  // installed once by the object model at start-up
    return fn;
}

// Makes `cell` (already a PTR) a counted handle of a freshly read object and,
// inside a saved program, ties the object to the program's block. A cell that
// refused the tag lets the object go again.
void hold_object(vrkvar* cell, vrkobject* object, vrkblock* contextBlock) {
    object->addRef();
    if (cell->type != Tag::PTR) {
        object->release();
        return;
    }
    cell->value.i = static_cast<int64_t>(object->registry_id);
    cell->handle_index = object->registry_index;
    cell->aux = kHandleAux;
    if (contextBlock) {
        if (object_associator associate = associator_slot()) associate(object, contextBlock);
    }
}

// ---- numeric sets of the cell form ----------------------------------------------------

template <class T, class Write>
void write_set(ScriptCacheWriter& w, const std::vector<T>* set, Write write) {
    const std::size_t n = set ? set->size() : 0;
    w.compact_u64(n);
    for (std::size_t i = 0; i < n; ++i) write((*set)[i]);
}

// A set whose count cannot fit in what is left of the buffer (each element
// takes at least `min_bytes`) is left empty, as a DATA payload is, and nothing
// more is consumed. Otherwise the set takes the count; elements past the end
// of the data read as 0.
template <class T, class Read>
void read_set(ScriptCacheReader& r, std::vector<T>* set, std::size_t min_bytes, Read read) {
    const uint64_t n = r.compact_u64();
    if (n > r.remaining() / min_bytes) return;
    if (set) set->assign(static_cast<std::size_t>(n), T{});
    for (uint64_t i = 0; i < n; ++i) {
        const T v = read();
        if (set) (*set)[static_cast<std::size_t>(i)] = v;
    }
}

// ---- functions inside lists --------------------------------------------------------------

// A function cell for `block`, as its declaration would hold it: a native
// function's cell also carries the native record, which it never owns.
void set_function(vrkvar* cell, vrkblock* block) {
    if (!block || cell->type != Tag::FUNCTION) return;
    cell->block = block;
    cell->aux = static_cast<uint16_t>(block->param_count);
    if (block->native && !block->code.empty() && block->code.front().opcode() == Op::EXTERNAL) {
        cell->attrs |= attr::NATIVE_FUNCTION;
        cell->value.native = reinterpret_cast<vrknative*>(block->code.front().ref);
    }
}

// The reference of a function inside a list that belongs to a saved program.
void write_function_reference(vrkblock* target, ScriptCacheWriter& w, vrkblock* contextBlock) {
    const int32_t child = saved_child_index(contextBlock, target);
    if (child >= 0) {
        w.u8(0);
        w.compact_s32(child);
        return;
    }
    if (target->native) {
        w.u8(1);
        w.compact_string(block_name(target));
        return;
    }
    // Up from the program block's parent: the level itself, then its children.
    int32_t level = 0;
    for (vrkblock* at = contextBlock->parent; at; at = at->parent, ++level) {
        const int32_t index = at == target ? -1 : saved_child_index(at, target);
        if (at == target || index >= 0) {
            w.u8(2);
            w.compact_s32(level);
            w.compact_s32(index);
            return;
        }
    }
    log().error("error finding block for cache!");
    w.u8(2);
    w.compact_s32(level);
    w.compact_s32(-1);
}

// A FUNCTION element: whole without a program, by reference inside one. A
// function whose block is already being written (a constant of its own block)
// is written as a function without a block: nothing at all.
void write_function(vrkvar* cell, ScriptCacheWriter& w, vrkblock* contextBlock) {
    vrkblock* target = cell->block;
    if (!block_alive(target)) return;
    if (!contextBlock) {
        if (w.blocks_open.count(target) || w.depth >= kMaxNesting) {
            log().error("error finding block for cache!");
            return;
        }
        w.u8(static_cast<uint8_t>(Tag::FUNCTION));
        w.u8(1);
        toCache(target, w, true);
        return;
    }
    w.u8(static_cast<uint8_t>(Tag::FUNCTION));
    w.u8(0);
    write_function_reference(target, w, contextBlock);
}

// Reads the payload of a FUNCTION element; false when the data ended.
bool read_function(vrkvar* cell, ScriptCacheReader& r, vrkblock* contextBlock) {
    if (!r.can_read(1)) return false;
    if (r.u8() == 1) {
        // A whole function: a block of its own, owned by the program block.
        vrkblock* block = block_new(contextBlock ? contextBlock->engine : nullptr);
        block->parent = contextBlock;
        fromCache(block, r);
        if (contextBlock) {
            adopt_block(contextBlock, block);
            set_function(cell, block);
        } else {
            block_delete(block);
        }
        return true;
    }
    if (!r.can_read(1)) return false;
    const uint8_t kind = r.u8();
    if (kind == 0) {
        set_function(cell, saved_child(contextBlock, r.compact_s32()));
    } else if (kind == 1) {
        set_function(cell, find_named_block(contextBlock, r.compact_string()));
    } else if (kind == 2) {
        const int32_t level = r.compact_s32();
        const int32_t index = r.compact_s32();
        vrkblock* at = contextBlock ? contextBlock->parent : nullptr;
        if (!at) {
            log().error("cannot construct program.");
        } else {
            for (int32_t i = 0; i < level; ++i) {
                if (!at->parent) {
                    log().error("cannot construct program.");
                    break;
                }
                at = at->parent;
            }
        }
        if (at && index != -1) at = saved_child(at, index);
        set_function(cell, at);
    }
    return true;
}

// ---- the list form ------------------------------------------------------------------

void write_list(const vrkjson* json, ScriptCacheWriter& w, vrkblock* contextBlock) {
    if (!json) {
        w.u32(0);
        return;
    }
    if (w.depth >= kMaxNesting) {
        log().error("%s", kTooDeep);
        w.u32(0);
        return;
    }
    ++w.depth;
    w.u32(static_cast<uint32_t>(json->elements.size()));
    for (vrkelement* element : json->elements) {
        if (element->key) {
            w.u32(static_cast<uint32_t>(element->key->size()));
            w.raw(element->key->data(), element->key->size());
        } else {
            w.u32(0);
        }
        vrkvar* v = deref(element);
        switch (v->type) {
            case Tag::INT:
                w.u8(static_cast<uint8_t>(Tag::INT));
                w.compact_s64(v->value.i);
                break;
            case Tag::FLOAT:
                w.u8(static_cast<uint8_t>(Tag::FLOAT));
                w.f64(v->value.f);
                break;
            case Tag::STRING: {
                w.u8(static_cast<uint8_t>(Tag::STRING));
                const std::string* s = v->value.str;
                w.u32(s ? static_cast<uint32_t>(s->size()) : 0);
                if (s) w.raw(s->data(), s->size());
                break;
            }
            case Tag::DATA: {
                w.u8(static_cast<uint8_t>(Tag::DATA));
                const std::vector<uint8_t>* d = v->value.data;
                w.u32(d ? static_cast<uint32_t>(d->size()) : 0);
                if (d) w.raw(d->data(), d->size());
                break;
            }
            case Tag::FLOATSET: {
                w.u8(static_cast<uint8_t>(Tag::FLOATSET));
                const std::vector<float>* f = v->value.floatset;
                w.u32(f ? static_cast<uint32_t>(f->size()) : 0);
                if (f) {
                    for (float x : *f) w.f32(x);
                }
                break;
            }
            case Tag::JSON:
                w.u8(static_cast<uint8_t>(Tag::JSON));
                write_list(v->value.json, w, nullptr);
                break;
            case Tag::FUNCTION: write_function(v, w, contextBlock); break;
            case Tag::PTR:
                w.u8(static_cast<uint8_t>(Tag::PTR));
                if (vrkobject* object = object_of(v)) object->serialize(w);
                break;
            default:
                // No payload and no tag: the key stands alone.
                break;
        }
    }
    --w.depth;
}

bool read_list(vrkjson* json, ScriptCacheReader& r, vrkblock* contextBlock);

// Reads the payload of one element of tag `tag`; false when a fixed read would
// have passed the end of the buffer.
bool read_element(vrkelement* child, Tag tag, ScriptCacheReader& r, vrkblock* contextBlock) {
    switch (tag) {
        case Tag::INT: child->value.i = r.compact_s64(); return true;
        case Tag::FLOAT:
            if (!r.can_read(8)) return false;
            child->value.f = r.f64();
            return true;
        case Tag::STRING: {
            if (!r.can_read(4)) return false;
            const uint32_t n = r.u32();
            if (!r.can_read(n)) return false;
            child->value.str->resize(n);
            return r.raw(child->value.str->data(), n);
        }
        case Tag::DATA: {
            if (!r.can_read(4)) return false;
            const uint32_t n = r.u32();
            if (!r.can_read(n)) return false;
            child->value.data->resize(n);
            return r.raw(child->value.data->data(), n);
        }
        case Tag::FLOATSET: {
            if (!r.can_read(4)) return false;
            const uint32_t n = r.u32();
            if (n > r.remaining() / 4) return false;
            child->value.floatset->resize(n);
            for (uint32_t i = 0; i < n; ++i) (*child->value.floatset)[i] = r.f32();
            return true;
        }
        case Tag::JSON: return read_list(child->value.json, r, contextBlock);
        case Tag::FUNCTION: return read_function(child, r, contextBlock);
        case Tag::PTR: {
            vrkobject* object = instantiate_object(r);
            if (!object) {
                log().error("cannot instantiate vrkobject!");
                return true;
            }
            hold_object(child, object, contextBlock);
            return true;
        }
        default: return true;
    }
}

// The list reader. Any fixed read that would pass the end of the buffer, here
// or in a list inside, empties the list and stops the reading: false.
bool read_list(vrkjson* json, ScriptCacheReader& r, vrkblock* contextBlock) {
    json_clear(json);
    if (!r.can_read(4)) return false;
    const auto count = static_cast<int32_t>(r.u32());
    if (count < 1) return true;
    if (r.depth >= kMaxNesting) {
        log().error("%s", kTooDeep);
        r.exhaust();
        return false;
    }
    ++r.depth;
    bool complete = true;
    for (int32_t i = 0; i < count && complete; ++i) {
        complete = false;
        if (!r.can_read(4)) break;
        const uint32_t name_length = r.u32();
        if (!r.can_read(name_length)) break;
        std::string name(name_length, '\0');
        r.raw(name.data(), name_length);
        if (!r.can_read(1)) break;
        const auto tag = static_cast<Tag>(r.u8());
        vrkelement* child = name_length ? element_new_keyed(name) : element_new();
        json->elements.push_back(child);
        reset(child, tag);
        complete = read_element(child, tag, r, contextBlock);
    }
    --r.depth;
    if (!complete) json_clear(json);
    return complete;
}

}  // namespace

// ---- native objects ---------------------------------------------------------------------

void set_object_associator(object_associator associator) { associator_slot() = associator; }

// ---- the cell form ----------------------------------------------------------------------

void serialize(vrkvar* cell, ScriptCacheWriter& w, vrkblock* contextBlock, bool withTrailer) {
    ScriptLock lock;
    w.u16(kCellMarker);
    w.u16(static_cast<uint16_t>(cell->type));
    switch (cell->type) {
        case Tag::INT: w.compact_s64(cell->value.i); break;
        case Tag::FLOAT: w.f64(cell->value.f); break;
        case Tag::STRING: {
            const std::string* s = cell->value.str;
            w.compact_text(s ? s->c_str() : nullptr, s ? s->size() : 0);
            break;
        }
        case Tag::PTR:
            if (vrkobject* object = object_of(cell)) object->serialize(w);
            break;
        case Tag::JSON: write_list(cell->value.json, w, contextBlock); break;
        case Tag::DATA: {
            const std::vector<uint8_t>* d = cell->value.data;
            w.compact_u64(d ? d->size() : 0);
            if (d) w.raw(d->data(), d->size());
            break;
        }
        case Tag::FLOATSET: write_set(w, cell->value.floatset, [&w](float x) { w.f32(x); }); break;
        case Tag::DOUBLESET:
            write_set(w, cell->value.doubleset, [&w](double x) { w.f64(x); });
            break;
        case Tag::INTSET:
            write_set(w, cell->value.intset, [&w](int32_t x) { w.compact_s32(x); });
            break;
        case Tag::BIGINTSET:
            write_set(w, cell->value.bigintset, [&w](int64_t x) { w.compact_s64(x); });
            break;
        default:
            // FUNCTION, CLASS, EXT, VOID, REF, ERR and unknown tags: the tag alone.
            break;
    }
    if (withTrailer) {
        w.u8(cell->constant);
        w.u16(cell->flags);
        w.u16(cell->attrs);
        w.u8(cell->aux_lo());
        w.u8(cell->aux_hi());
    }
}

void deserialize(vrkvar* cell, ScriptCacheReader& r, vrkblock* contextBlock, bool withTrailer) {
    ScriptLock lock;
    const bool whole = r.can_read(2);
    const uint16_t marker = r.u16();
    if (!whole || marker != kCellMarker) {
        log().error("vorkavar program error! %i", static_cast<int>(static_cast<int16_t>(marker)));
        set_int(cell, 0);
        return;
    }
    const auto tag = static_cast<Tag>(r.u16());
    reset(cell, tag);
    // A constant cell keeps its own type; its payload is read and dropped so
    // that the stream stays in step.
    const bool taken = cell->type == tag;

    switch (tag) {
        case Tag::INT: {
            const int64_t v = r.compact_s64();
            if (taken) cell->value.i = v;
            break;
        }
        case Tag::FLOAT: {
            const double v = r.f64();
            if (taken) cell->value.f = v;
            break;
        }
        case Tag::STRING: {
            std::string text = r.compact_string();
            if (taken) *cell->value.str = std::move(text);
            break;
        }
        case Tag::PTR:
            if (vrkobject* object = instantiate_object(r)) hold_object(cell, object, contextBlock);
            break;
        case Tag::JSON:
            if (taken) {
                dataToJson(cell->value.json, r, contextBlock);
            } else {
                vrkjson dropped;
                dataToJson(&dropped, r, contextBlock);
                json_clear(&dropped);
            }
            break;
        case Tag::DATA: {
            // Read only when the whole count fits; otherwise left empty.
            const uint64_t n = r.compact_u64();
            if (n > r.remaining()) break;
            if (taken) {
                cell->value.data->resize(static_cast<std::size_t>(n));
                r.raw(cell->value.data->data(), static_cast<std::size_t>(n));
            } else {
                r.skip(static_cast<std::size_t>(n));
            }
            break;
        }
        case Tag::FLOATSET:
            read_set(r, taken ? cell->value.floatset : nullptr, 4, [&r] { return r.f32(); });
            break;
        case Tag::DOUBLESET:
            read_set(r, taken ? cell->value.doubleset : nullptr, 8, [&r] { return r.f64(); });
            break;
        case Tag::INTSET:
            read_set(r, taken ? cell->value.intset : nullptr, 1, [&r] { return r.compact_s32(); });
            break;
        case Tag::BIGINTSET:
            read_set(r, taken ? cell->value.bigintset : nullptr, 1,
                     [&r] { return r.compact_s64(); });
            break;
        default: break;
    }

    if (withTrailer) {
        const uint8_t constant = r.u8();
        const uint16_t flags = r.u16();
        const uint16_t attrs = r.u16();
        const uint8_t aux_lo = r.u8();
        const uint8_t aux_hi = r.u8();
        if (taken) {
            cell->constant = constant;
            cell->flags = flags;
            cell->attrs = attrs;
            cell->set_aux(aux_lo, aux_hi);
        }
    }
}

// ---- the list form ----------------------------------------------------------------------

void jsonToData(const vrkjson* json, ScriptCacheWriter& writer, vrkblock* contextBlock) {
    ScriptLock lock;
    write_list(json, writer, contextBlock);
}

void jsonToData(const vrkjson* json, std::vector<uint8_t>& out, vrkblock* contextBlock) {
    ScriptCacheWriter writer(out);
    jsonToData(json, writer, contextBlock);
}

void dataToJson(vrkjson* json, ScriptCacheReader& r, vrkblock* contextBlock) {
    ScriptLock lock;
    read_list(json, r, contextBlock);
}

void dataToJson(vrkjson* json, const std::vector<uint8_t>& bytes, uint32_t& position,
                vrkblock* contextBlock) {
    ScriptCacheReader reader(bytes, position);
    dataToJson(json, reader, contextBlock);
    position = reader.position;
}

}  // namespace vrk
