// Run-time copies of blocks: making a copy (through the saved record, or an
// instance's data directly), choosing an idle block for a call, loading a
// lambda's captured values, and making a class instance.
#include "vm/copies.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/context.h"
#include "base/log.h"
#include "base/script_lock.h"
#include "values/cell.h"
#include "values/closure.h"
#include "values/value_context.h"
#include "vm/block.h"
#include "vm/block_image.h"
#include "vm/engine.h"
#include "vm/run.h"
#include "vm/sleep.h"

namespace vrk {

namespace {

// Declaration bits of a parameter cell. The saved record writes parameters as
// blank cells; a copy takes these from its source so that it binds, converts
// and defaults its parameters the way the source does.
constexpr uint16_t kParameterAttrs = attr::BY_REF_PARAM | attr::OWNS_RESULT;

// The parameter cell `i` of `source` as declared. While a caller has bound its
// arguments, the caller holds the source's own cells in `params` (last
// argument first) and the variables hold the arguments.
vrkvar* declared_parameter(vrkblock* source, std::size_t i) {
    vrkblock* caller = source->caller;
    if (caller && caller != source && block_alive(caller) && caller->params_bound &&
        caller->callee == source) {
        const std::size_t n = caller->params.size();
        if (i < n) {
            vrkvar* own = caller->params[n - 1 - i];
            return is_marker(own, 11) ? nullptr : own;
        }
    }
    return i < source->vars.size() ? source->vars[i] : nullptr;
}

void restore_parameters(vrkblock* source, vrkblock* copy) {
    const std::size_t count = std::min<std::size_t>(
        static_cast<std::size_t>(std::max<int16_t>(source->param_count, 0)), copy->vars.size());
    for (std::size_t i = 0; i < count; ++i) {
        const vrkvar* declared = declared_parameter(source, i);
        vrkvar* cell = copy->vars[i];
        if (!declared || !cell || (cell->flags & flag::CAPTURED)) continue;
        if (declared->flags & flag::FIXED_TYPE) reset(cell, declared->type);
        cell->flags = declared->flags;
        cell->attrs = static_cast<uint16_t>(cell->attrs | (declared->attrs & kParameterAttrs));
    }
}

// What a copy takes from its source beyond the record, for the copy and for
// each of its children paired with the source child at the same saved
// position: the source text and name table (shared), the line and file
// tables (copied), and the entry of an extern function, which the reader has
// pointed at the copy and which belongs to the source.
void share_with_source(vrkblock* source, vrkblock* copy, bool root) {
    if (!root) {
        if (source->names) {
            copy->names = source->names;
            copy->names_shared = 1;
        }
        if (source->code_text) {
            if (copy->code_text && !copy->text_shared) string_free(copy->code_text);
            copy->code_text = source->code_text;
            copy->text_shared = 1;
        }
        if (source->full_source) {
            if (copy->full_source && !copy->source_shared) string_free(copy->full_source);
            copy->full_source = source->full_source;
            copy->source_shared = 1;
        }
    }
    if (source->line_table)
        copy->line_table = std::make_unique<std::map<uint32_t, vrkline_entry>>(*source->line_table);
    if (source->file_table)
        copy->file_table = std::make_unique<std::vector<vrkfile_entry>>(*source->file_table);
    if (copy->kind & kind::EXTERN) {
        if (auto* externs = engine_extern_blocks(copy->engine)) {
            for (auto& entry : *externs) {
                if (entry.second == copy) entry.second = source;
            }
        }
    }
    if (!copy->children) return;
    for (int32_t position = 0;; ++position) {
        if (!block_image().saved_child) break;
        vrkblock* from = block_image().saved_child(source, position);
        vrkblock* to = block_image().saved_child(copy, position);
        if (!from || !to) break;
        share_with_source(from, to, false);
    }
}

// Drops the dead entries of the copies of `source` (a copy that ran as a
// script thread may have been deleted when its run ended).
[[gnu::noinline]] void drop_dead_copies(vrkblock* source, std::vector<vrkblock*>& copies,
                                        uint64_t destroyed) {
    copies.erase(
        std::remove_if(copies.begin(), copies.end(), [](vrkblock* c) { return !block_alive(c); }),
        copies.end());
    for (std::size_t i = 0; i < copies.size(); ++i) {
        if (copies[i]->copy_of == source) copies[i]->copy_position = static_cast<uint32_t>(i);
    }
    source->copies_checked = destroyed;
}

// The copies of `source` that still exist. The list is checked against the
// live blocks only when some block has been destroyed since its last check: a
// recursive call looks at it on every call.
std::vector<vrkblock*>& live_copies(vrkblock* source) {
    std::vector<vrkblock*>& copies = source->copies ? *source->copies : source->get_copies();
    const uint64_t destroyed = value_context().blocks_destroyed;
    if (source->copies_checked != destroyed) drop_dead_copies(source, copies, destroyed);
    return copies;
}

const char* source_text(const vrkblock* b) {
    if (b->full_source) return b->full_source->c_str();
    if (b->code_text) return b->code_text->c_str();
    return "";
}

// The function cell of a class's constructor slot, or null.
vrkvar* constructor_cell(vrkblock* blueprint) {
    if (blueprint->vars.empty()) return nullptr;
    vrkvar* slot = blueprint->vars[static_cast<std::size_t>(ClassSlot::constructor)];
    if (is_marker(slot, 11)) return nullptr;
    slot = deref(slot);
    return slot->type == Tag::FUNCTION && block_alive(slot->block) ? slot : nullptr;
}

// An instance lists the cells that hold it, so that its tear-down can empty
// them. When its value moves from one cell to another, the entry moves along:
// left behind, it would name a cell that is freed before the instance goes.
void move_instance_cell(vrkvar* from, vrkvar* to) {
    if (from->type != Tag::CLASS || !(from->attrs & attr::INSTANCE_CELL) || !from->block ||
        !block_alive(from->block) || !from->block->class_data)
        return;
    auto& cells = from->block->class_data->cells;
    std::replace(cells.begin(), cells.end(), from, to);
    from->attrs &= static_cast<uint16_t>(~attr::INSTANCE_CELL);
    to->attrs |= attr::INSTANCE_CELL;
}

// Moves the arguments a construction stored into the constructor's own
// parameters over to the block that runs it. A parameter that received a value
// counts as passed, so its declared default does not replace it; one that
// received nothing is marked as a parameter again, since the running copy may
// be one that an earlier construction with more arguments used.
void hand_over_arguments(vrkblock* from, vrkblock* to) {
    const std::size_t count = std::min(
        {static_cast<std::size_t>(std::max<int16_t>(from->param_count, 0)), from->vars.size(),
         to->vars.size()});
    for (std::size_t i = 0; i < count; ++i) {
        vrkvar* src = from->vars[i];
        vrkvar* dst = to->vars[i];
        if (!src || !dst) continue;
        const bool given = src->type != Tag::VOID;
        reset(dst, Tag::INT);
        move_instance_cell(src, dst);
        dst->type = src->type;
        dst->value = src->value;
        dst->aux = src->aux;
        dst->block = src->block;
        if (given)
            dst->flags &= static_cast<uint16_t>(~kParameterFlag);
        else
            dst->flags |= kParameterFlag;
        src->type = Tag::VOID;
        src->value.i = 0;
        src->aux = 0;
        src->block = nullptr;
    }
}

// The data of an instance starts as the blueprint's: the class body ran once
// when the class was compiled, and its field values are the initial values of
// every instance. The record carries constants only, so the plain fields are
// copied here (deeply: an instance owns its lists).
void copy_fields(vrkblock* blueprint, vrkblock* instance, vrkblock* caller) {
    const std::size_t count = std::min(blueprint->vars.size(), instance->vars.size());
    for (std::size_t i = kClassSlotCount; i < count; ++i) {
        const auto index = static_cast<int32_t>(i);
        if (index == blueprint->this_index || index == blueprint->self_index) continue;
        vrkvar* from = blueprint->vars[i];
        vrkvar* to = instance->vars[i];
        if (!from || !to || from->constant || to->constant) continue;
        if (from->type == Tag::FUNCTION || from->type == Tag::CLASS || from->type == Tag::REF)
            continue;
        if (from->flags & flag::CAPTURED) continue;
        assign(to, from, caller);
    }
}

// The caller of a construction that goes on asynchronously waits until woken.
void park(vrkblock* caller) {
    if (!caller || !block_alive(caller)) return;
    caller->suspended = 2;
    sleep(caller, kSleepUntilWoken, false, 0);
}

void wake(vrkblock* caller) {
    if (caller && block_alive(caller)) sleep(caller, 0, false, 0);
}

// The constructor's run with the instance as `this`. The count held during
// the run keeps the instance alive should the constructor drop its last
// holder; it is given back when the run ends, possibly later.
void run_constructor(vrkblock* instance, vrkblock* ctor, vrkvar* cell, vrkblock* caller) {
    vrkclass_data& data = instance->get_class_data();
    ++data.refs;
    const uint64_t destroyed = value_context().blocks_destroyed;
    vrkvar* r = run(ctor, nullptr, 0, cell);
    if (r != kSuspended) {
        // No block died during the run: the instance is still there.
        const bool alive = value_context().blocks_destroyed == destroyed || block_alive(instance);
        if (alive && instance->class_data) --instance->class_data->refs;
        return;
    }
    park(caller);
    const vrkblock_handle held = vrkblock_handle::of(instance);
    ctor->get_completion().on_finish = [held, caller](vrkblock*, vrkvar*) {
        if (vrkblock* alive = held.get(); alive && alive->class_data) --alive->class_data->refs;
        wake(caller);
    };
}

}  // namespace

namespace {

// clone_block for a source known to be alive; call with the script lock
// held. `spare`, when given, is a renewed block (block_renew) to fill instead
// of a new one: its variables hold blank cells, as many as the source has,
// which the direct copy fills in place.
vrkblock* copy_live_block(vrkblock* source, vrkblock* owner, bool as_copy, CopyPath path,
                          vrkblock* spare = nullptr) {
    vrkblock* copy = spare ? spare : block_new(source->engine);
    bool cells_ready = spare != nullptr;
    if (cells_ready && (copy->vars.size() != source->vars.size() || as_copy ||
                        path != CopyPath::direct || !block_image().copy_through_record)) {
        cells_free(copy->vars);
        cells_ready = false;
    }
    copy->code_text = source->code_text;
    copy->text_shared = source->code_text ? 1 : 0;
    copy->full_source = source->full_source;
    copy->source_shared = source->full_source ? 1 : 0;
    copy->parent = source->parent;
    if (source->names) {
        copy->names = source->names;
        copy->names_shared = 1;
    }

    // Without the saved form installed a copy carries only what is set here,
    // whichever way it would have been made.
    if (auto through_record = block_image().copy_through_record) {
        const bool direct = !as_copy && path == CopyPath::direct &&
                            copy_data_directly(source, copy, cells_ready);
        if (!direct) {
            if (cells_ready) cells_free(copy->vars);
            through_record(source, copy, as_copy);
        }
    }
    share_with_source(source, copy, true);
    restore_parameters(source, copy);

    if (owner == nullptr) {
        if (source->parent) {
            source->parent->get_children().push_back(copy);
        } else {
            // A block without a parent has no tree to join; the copy goes
            // when its source goes.
            if (block_image().adopt_block) block_image().adopt_block(source, copy);
        }
    } else if (owner == kNoOwner) {
        copy->parent = nullptr;
    } else {
        owner->get_children().push_back(copy);
        copy->parent = owner;
    }

    if (copy->kind & kind::CLASS_OR_INSTANCE) {
        copy->kind = static_cast<uint8_t>((copy->kind & ~kind::CLASS) | kind::INSTANCE);
    }
    copy->kind |= kind::COPY;
    copy->options = static_cast<uint8_t>((copy->options & ~1u) | (source->options & 1u));
    return copy;
}

// A dead instance of `blueprint` made live again for its next instance, or
// null (none kept, or the short paths are off).
vrkblock* renewed_spare(vrkblock* blueprint) {
    if (!value_context().instance_paths || !blueprint->class_data) return nullptr;
    std::vector<vrkspare_block>& spares = blueprint->class_data->spares;
    if (spares.empty()) return nullptr;
    vrkspare_block spare = std::move(spares.back());
    spares.pop_back();
    block_renew(spare.block, blueprint->engine, std::move(spare.node));
    return spare.block;
}

}  // namespace

vrkblock* clone_block(vrkblock* source, vrkblock* owner, bool as_copy, CopyPath path) {
    if (!block_alive(source)) return nullptr;
    ScriptLock lock;
    return copy_live_block(source, owner, as_copy, path);
}

vrkblock* first_idle_copy(const std::vector<vrkblock*>& copies, std::size_t from,
                          std::size_t& leading) {
    leading = from;
    for (std::size_t i = from; i < copies.size(); ++i) {
        vrkblock* c = copies[i];
        if (!c->busy()) return c;
        if (leading == i && c->running && !c->native) leading = i + 1;
    }
    return nullptr;
}

vrkblock* get_instance(vrkblock* block, vrkvar* function_cell, bool force, bool source_alive) {
    vrkblock* source = block;
    if (function_cell) {
        if (is_marker(function_cell, 11)) return nullptr;
        vrkvar* cell = chain_end(function_cell);
        if (cell->type != Tag::FUNCTION || !cell->block) return nullptr;
        source = cell->block;
    }
    if (!(source_alive && source == block) && !block_alive(source)) return nullptr;

    vrkblock* chosen = nullptr;
    if (!force && !source->busy()) chosen = source;
    // A native function keeps its callable outside the record, so a copy of
    // it could not call anything: a busy one has no instance.
    if (!chosen && source->native) return nullptr;
    if (!chosen) {
        std::vector<vrkblock*>& copies = live_copies(source);
        // The first idle copy is taken. A recursion keeps a chain of copies
        // running, one per level, so the search remembers how many leading
        // copies it saw running. A running copy stays busy until its run
        // ends, and the end of a copy's run moves its source's count back to
        // that copy's place (end_running), so the next search starts at the
        // first copy that may have become idle: at the copy the last return
        // freed, in a recursion. A block that dies may shift the list, so
        // then the search starts from the front. Without that, every call of
        // a recursion would look at every copy made for the levels above it.
        std::size_t from = 0;
        if (source->running_copies_destroyed == value_context().blocks_destroyed)
            from = std::min<std::size_t>(source->running_copies, copies.size());
        std::size_t leading = 0;
        chosen = first_idle_copy(copies, from, leading);
        source->running_copies = static_cast<uint32_t>(leading);
        source->running_copies_destroyed = value_context().blocks_destroyed;
        if (!chosen) {
            if (copies.size() > kCopyWarningLimit) {
                log().log("over 1000 copy instances for function block!");
                log().log("Source: %s\n", source_text(source));
            }
            ScriptLock lock;
            chosen = copy_live_block(source, nullptr, true, CopyPath::direct);
            if (!chosen) return nullptr;
            std::vector<vrkblock*>& list = live_copies(source);
            chosen->copy_of = source;
            chosen->copy_position = static_cast<uint32_t>(list.size());
            list.push_back(chosen);
        }
    }
    load_closure(function_cell, chosen);
    return chosen;
}

void load_closure(vrkvar* function_cell, vrkblock* target, vrkblock* caller) {
    if (is_marker(function_cell, 11) || !target || function_cell->type != Tag::FUNCTION) return;
    if ((function_cell->attrs & attr::NATIVE_FUNCTION) || !function_cell->value.closure) return;
    const auto& pairs = function_cell->value.closure->pairs;
    if (pairs.size() >= target->vars.size()) return;
    for (const vrkcapture& capture : pairs) {
        if (capture.var_index >= target->vars.size() || !capture.cell) continue;
        vrkvar* v = target->vars[capture.var_index];
        if (!v) continue;
        v->constant = 0;
        v->flags |= flag::CAPTURED;
        assign(v, capture.cell, caller);
    }
}

vrkblock* copyConstruct(vrkvar* dest, vrkblock* blueprint, vrkblock* caller) {
    ScriptLock lock;
    if (!dest || !block_alive(blueprint)) return nullptr;
    vrkblock* instance = copy_live_block(blueprint, kNoOwner, false, CopyPath::direct,
                                         renewed_spare(blueprint));
    if (!instance) return nullptr;

    if (!blueprint->is_class_or_instance()) {
        // A plain function as a blueprint: its copy runs once, and the cell
        // holds no instance.
        vrkvar* r = run(instance, nullptr, 0, kSelfUnchanged);
        if (r != kSuspended) {
            block_delete(instance);
            return nullptr;
        }
        park(caller);
        instance->get_completion().on_finish = [caller](vrkblock* finished, vrkvar*) {
            wake(caller);
            engine_block_finished(finished->engine, finished);
        };
        return nullptr;
    }

    vrkclass_data& data = instance->get_class_data();
    data.blueprint = blueprint;
    if (blueprint->class_data && blueprint->class_data->name) {
        // A renewed block keeps the record of its last name.
        if (data.name)
            *data.name = *blueprint->class_data->name;
        else
            data.name = std::make_unique<std::string>(*blueprint->class_data->name);
    } else {
        data.name.reset();
    }

    reset(dest, Tag::INT);
    dest->type = Tag::CLASS;
    dest->block = instance;
    data.refs = (dest->flags & flag::MOVABLE) ? 0 : 1;
    dest->attrs |= attr::INSTANCE_CELL;
    data.cells.push_back(dest);

    // Functions and nested classes stay the blueprint's: each call of a
    // method runs in a block of its own anyway.
    const std::size_t shared = std::min(instance->vars.size(), blueprint->vars.size());
    for (std::size_t i = 0; i < shared; ++i) {
        vrkvar* v = instance->vars[i];
        if (v && (v->type == Tag::FUNCTION || v->type == Tag::CLASS)) {
            v->block = nullptr;
            set_ref(v, blueprint->vars[i]);
        }
    }
    copy_fields(blueprint, instance, caller);

    vrkblock* ctor = nullptr;
    if (vrkvar* slot = constructor_cell(blueprint)) {
        // The constructor's block has just been found alive; it still is for
        // the second choice unless a block died while the first was made.
        const uint64_t destroyed = value_context().blocks_destroyed;
        vrkblock* runs = get_instance(slot->block, slot, true, true);
        vrkblock* holds = get_instance(slot->block, slot, false,
                                       value_context().blocks_destroyed == destroyed);
        if (runs && holds) {
            if (runs != holds) hand_over_arguments(holds, runs);
            ctor = runs;
        }
    }

    // The field set-up of the instance, with no `this`.
    vrkvar* r = run(instance, nullptr, 0, kSelfUnchanged);
    if (r == kSuspended) {
        park(caller);
        if (ctor) ctor->running = 1;  // held until the set-up has finished
        instance->get_completion().on_finish = [ctor, dest, caller](vrkblock* finished, vrkvar*) {
            if (ctor && block_alive(ctor)) {
                end_running(ctor);
                run_constructor(finished, ctor, dest, caller);
            }
            wake(caller);
        };
        return instance;
    }
    if (ctor) run_constructor(instance, ctor, dest, caller);
    return instance;
}

}  // namespace vrk
