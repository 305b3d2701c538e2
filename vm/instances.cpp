// Reference counting of class instances and the run of their destructors.
#include "vm/instances.h"

#include <algorithm>

#include "base/log.h"
#include "base/script_lock.h"
#include "values/cell.h"
#include "values/error_report.h"
#include "values/value_context.h"
#include "vm/block.h"
#include "vm/copies.h"
#include "vm/run.h"

namespace vrk {

namespace {

void forget_cell(vrkblock* block, vrkvar* cell) {
    if (!cell || !block->class_data) return;
    auto& cells = block->class_data->cells;
    auto it = std::find(cells.begin(), cells.end(), cell);
    if (it != cells.end()) cells.erase(it);
}

// Blanks a CLASS cell without releasing anything.
void blank(vrkvar* cell) {
    cell->type = Tag::INT;
    cell->value.i = 0;
    cell->block = nullptr;
    cell->attrs &= static_cast<uint16_t>(~attr::INSTANCE_CELL);
}

// Most dead instances a class keeps for reuse.
constexpr std::size_t kKeptInstances = 8;

// True when the dead instance `block` may be kept by its class: a plain
// instance (data only: no code, children, copies, `die` functions or pending
// run) of a class that still lives and keeps fewer than kKeptInstances, with
// as many variables as the class, on the pool thread.
bool keepable(const vrkblock* block) {
    if (!value_context().instance_paths) return false;
    if (block->kind != (kind::INSTANCE | kind::COPY) || !block->class_data) return false;
    const vrkblock* blueprint = block->class_data->blueprint;
    if (!blueprint || !blueprint->class_data ||
        blueprint->class_data->spares.size() >= kKeptInstances)
        return false;
    if (block->vars.size() != blueprint->vars.size() || !block->code.empty()) return false;
    if ((block->children && !block->children->empty()) ||
        (block->copies && !block->copies->empty()) || block->die_blocks || block->completion ||
        block->params_bound || block->busy())
        return false;
    return pool_thread();
}

// The end of an instance whose destructor has run (or that has none): its
// block is deleted, or torn down the same way and kept by its class for the
// next instance (vm/copies.h, copyConstruct).
void dispose(vrkblock* block) {
    if (!keepable(block)) {
        block_delete(block);
        return;
    }
    vrkblock* blueprint = block->class_data->blueprint;
    const vrkblock_handle held = vrkblock_handle::of(blueprint);
    vrklive_node node = block_retire(block);
    // The tear-down may run script code (destructors of what the instance
    // held): the class may have gone meanwhile, or filled its list.
    if (registry_get(held.index, held.id) != blueprint ||
        blueprint->class_data->spares.size() >= kKeptInstances) {
        block_delete(block);
        return;
    }
    blueprint->class_data->spares.push_back({block, std::move(node)});
}

// Runs the script destructor of an instance whose last holder let go, then
// deletes the instance. Returns false when the destructor reference was invalid.
bool destroy_instance(vrkblock* block, vrkblock* caller, uint16_t attrs) {
    vrkclass_data& data = block->get_class_data();
    if (data.destructing) {
        log().error("class is already being destructed!");
        return true;
    }
    data.destructing = 1;

    vrkvar* d = nullptr;
    if (block->is_class_or_instance() &&
        block->vars.size() > static_cast<std::size_t>(ClassSlot::destructor))
        d = block->vars[static_cast<std::size_t>(ClassSlot::destructor)];
    if (!d || d->type == Tag::VOID || (attrs & attr::NO_DESTRUCTOR)) {
        dispose(block);
        return true;
    }
    vrkvar* fn = deref(d);
    if (!fn || fn->type == Tag::REF) {
        report_error(caller, "free", "invalid destructor reference!");
        block_delete(block);
        return false;
    }
    vrkblock* own = fn->type == Tag::FUNCTION ? fn->block : nullptr;
    vrkblock* inst = own ? get_instance(own, fn, true) : nullptr;
    if (!own || !inst) {
        block_delete(block);
        return true;
    }

    // `this` of the destructor is the dying instance, without a count.
    vrkvar* self = inst->this_var();
    if (self) {
        reset(self, Tag::INT);
        self->type = Tag::CLASS;
        self->block = block;
        self->flags |= flag::NO_COUNT;
    }
    // Hand the declared defaults of the destructor's parameters over.
    if (inst != own) {
        std::size_t n = std::min<std::size_t>(
            static_cast<std::size_t>(std::max<int16_t>(own->param_count, 0)),
            std::min(inst->vars.size(), own->vars.size()));
        for (std::size_t i = 0; i < n; ++i) {
            vrkvar* from = own->vars[i];
            vrkvar* to = inst->vars[i];
            std::swap(from->type, to->type);
            std::swap(from->value, to->value);
            std::swap(from->aux, to->aux);
            std::swap(from->block, to->block);
            from->type = Tag::VOID;
            from->value.i = 0;
            from->block = nullptr;
        }
    }

    vrkvar* r = run(inst, nullptr, 0, kSelfUnchanged);
    if (self) blank(self);
    if (r == kSuspended) {
        // The destructor sleeps: the instance lives until it has finished, and a
        // caller waits for it.
        if (caller) {
            caller->suspended = 2;
            caller->sleep_ms = -1;
        }
        inst->get_completion().on_finish = [block, caller](vrkblock*, vrkvar*) {
            block_delete(block);
            if (caller && block_alive(caller)) caller->sleep_ms = 0;
        };
        return true;
    }
    dispose(block);
    return true;
}

}  // namespace

void instance_copy(vrkvar* dest, vrkblock* source, vrkblock* caller) {
    if ((source->kind & kind::CLASS) && !(source->kind & kind::SINGLETON)) {
        dest->block = copyConstruct(dest, source, caller);
        return;
    }
    // A singleton is shared as it is; anything else joins the instance's cells
    // and, unless the cell is a non-counting one, counts as a holder.
    dest->block = source;
    if (!(source->kind & kind::SINGLETON)) instance_hold(dest, source);
}

void instance_text(const vrkblock* block, std::string& out) {
    if (block->class_data) {
        if (block->class_data->name) out += *block->class_data->name;
    } else {
        out += "CLASS";
    }
}

void instance_hold(vrkvar* cell, vrkblock* block) {
    if (!block || (block->kind & kind::SINGLETON)) return;
    vrkclass_data& data = block->get_class_data();
    if (!(cell->flags & flag::NON_COUNTING)) ++data.refs;
    cell->attrs |= attr::INSTANCE_CELL;
    data.cells.push_back(cell);
}

void instance_release(vrkblock* block, vrkvar* cell, vrkblock* caller, uint16_t saved_flags,
                      uint16_t saved_attrs) {
    if (!block || !block_alive(block)) return;
    ScriptLock lock;
    forget_cell(block, cell);
    if ((block->kind & (kind::CLASS | kind::SINGLETON)) ||
        (saved_flags & (flag::NO_COUNT | flag::CAPTURED)))
        return;
    vrkclass_data& data = block->get_class_data();
    if (!(saved_flags & flag::MOVABLE)) --data.refs;
    if (data.refs > 0) return;
    if (data.refs < 0) {
        log().error("class ref < 0!");
        return;
    }
    destroy_instance(block, caller, saved_attrs);
}

void instance_release_cell(vrkvar* cell, vrkblock* caller, bool force) {
    if (!cell || cell->type != Tag::CLASS || !cell->block) return;
    vrkblock* block = cell->block;
    if (!block_alive(block)) {
        blank(cell);
        return;
    }
    ScriptLock lock;
    forget_cell(block, cell);
    uint16_t flags = cell->flags;
    uint16_t attrs = cell->attrs;
    bool stop = (block->kind & (kind::CLASS | kind::SINGLETON)) ||
                (flags & (flag::NO_COUNT | flag::CAPTURED));
    if (!stop) {
        vrkclass_data& data = block->get_class_data();
        if (!(flags & flag::MOVABLE)) --data.refs;
        if (data.refs < 0) {
            log().error("class ref < 0!");
        } else if (data.refs == 0 || force) {
            // The cell lets go before the destructor runs, so the instance's
            // tear-down finds nothing that still points at it.
            blank(cell);
            destroy_instance(block, caller, attrs);
        }
    }
    blank(cell);
}

}  // namespace vrk
