// Reflection builtins: type inspection, references, shared and allocated
// cells, and the lifetime of class instances and native objects.
#include "builtins/reflection.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include "base/context.h"
#include "base/log.h"
#include "base/script_lock.h"
#include "values/cell.h"
#include "values/classref.h"
#include "values/object.h"
#include "values/pools.h"
#include "values/value_context.h"
#include "vm/block.h"
#include "vm/errors.h"

namespace vrk::lib {

namespace {

// Names handed to the silent wrong-call report.
const char* const kIsrunningName = "isrunning";
const char* const kDbgIsconstName = "dbg_isconst";
const char* const kIsvalidName = "isvalid";

vrkvar* answer_int(vrkvar& result, int64_t value) {
    set_int(&result, value);
    return &result;
}

vrkvar* answer_text(vrkvar& result, const std::string& text) {
    set_string(&result, text);
    return &result;
}

// The report of a wrong call against the calling block.
void wrong_params(vrkblock* block, const char* name) {
    report_errorf(block, "external_function", "wrong params! %s", name);
}

// A REF that has a target stands for that target, one level deep.
vrkvar* through_one_ref(vrkvar* cell) {
    if (cell->type == Tag::REF && cell->value.ref) return cell->value.ref;
    return cell;
}

// True when `cell` is one of the calling block's temporaries (an argument
// passed by value).
bool is_caller_temp(vrkblock* block, const vrkvar* cell) {
    if (!block) return false;
    const auto& all = block->temp_pool.all;
    return std::find(all.begin(), all.end(), cell) != all.end();
}

// The value an argument of `vtype` or `vscripttype` stands for. The call
// hands over a temporary of the caller: a reference to the variable written in
// the call, or a copy of a computed value. That step is undone first, then a
// reference the value itself holds is followed once, so that `vtype(r)` names
// what `r` refers to and only a reference without a target is named "REF".
vrkvar* argument_seen(vrkblock* block, vrkvar* arg) {
    if (arg->type == Tag::REF && arg->value.ref && is_caller_temp(block, arg)) arg = arg->value.ref;
    return through_one_ref(arg);
}

// The registry id a PTR handle carries.
uint32_t handle_id(const vrkvar* cell) {
    return static_cast<uint32_t>(static_cast<uint64_t>(cell->value.i) & 0xFFFFFFFFu);
}

// Makes the result a fresh handle of `object` that holds one reference.
vrkvar* answer_handle(vrkvar& result, vrkobject* object) {
    object->addRef();
    reset(&result, Tag::PTR);
    result.value.i = static_cast<int64_t>(object->registry_id);
    result.handle_index = object->registry_index;
    result.set_aux(0, kHandleMark);
    result.attrs |= attr::FRESH_RESULT;
    return &result;
}

vrkvar* answer_tag_test(std::vector<vrkvar*>& args, vrkvar& result, Tag a, Tag b) {
    if (args.size() != 1) return answer_int(result, 0);
    return answer_int(result, args[0]->type == a || args[0]->type == b ? 1 : 0);
}

// The busy test of a function value: its block is running, suspended, waiting,
// sleeping or held.
bool function_busy(const vrkvar* cell) {
    if (cell->type != Tag::FUNCTION || !cell->block || !block_alive(cell->block)) return false;
    return cell->block->busy();
}

// The top of the block tree a block belongs to: the root block of its script.
vrkblock* script_root(vrkblock* block) {
    vrkblock* root = block;
    while (root && root->parent && block_alive(root->parent)) root = root->parent;
    return root;
}

// The nearest block, from `block` outwards, that carries a script context cell.
vrkvar* context_cell(vrkblock* block) {
    for (vrkblock* b = block; b && block_alive(b); b = b->parent) {
        if (b->shared_value && b->shared_value->cell) return b->shared_value->cell;
    }
    return nullptr;
}

// The handle under which an allocated cell is listed on its script's root
// block: the cell's address.
uint64_t allocation_handle(const vrkvar* cell) { return reinterpret_cast<uint64_t>(cell); }

// Frees a cell made by allocate, with what it holds.
void free_allocated(vrkvar* cell) {
    reset(cell, Tag::INT);
    cell_free(cell);
}

// The clean-up record of an allocated cell. Fired by the end of the script,
// it frees the cell. Fired by `deallocate` while the script goes on, it
// releases the value at once but keeps the cell itself until the script ends,
// so that a reference the script still holds reads an empty cell rather than
// freed memory; the cell is then listed under handle 0, which nothing fires.
void list_allocation(vrkvar* cell, vrkblock* root) {
    callback_add(
        [cell, root](uint64_t) {
            if (block_alive(root) && root->destructing == 0) {
                reset(cell, Tag::INT);
                callback_add([cell](uint64_t) { free_allocated(cell); }, 0, root, 1);
                return;
            }
            free_allocated(cell);
        },
        allocation_handle(cell), root, 1);
}

// True when the code of `block`, or of a block that called it, belongs to
// `instance`: a block of its tree, or a method running with it as `this`.
// Deleting the instance under such code would pull its blocks away while they run.
bool runs_inside(vrkblock* block, vrkblock* instance) {
    constexpr int kMostSteps = 100000;  // bounds the walk should the links ever loop
    int steps = 0;
    for (vrkblock* run = block; run && block_alive(run) && steps < kMostSteps; ++steps) {
        for (vrkblock* b = run; b && block_alive(b) && steps < kMostSteps; b = b->parent, ++steps) {
            if (b == instance) return true;
            const vrkvar* self = b->this_var();
            if (self && self->type == Tag::CLASS && self->block == instance) return true;
            if (b->self_cell && !is_marker(b->self_cell) && b->self_cell->type == Tag::CLASS &&
                b->self_cell->block == instance)
                return true;
        }
        if (run->caller == run) break;
        run = run->caller;
    }
    return false;
}

// `free` of a class instance held by a counting cell: its destructor runs now
// and the instance goes, whoever else holds it.
vrkvar* free_instance(vrkblock* block, vrkvar* cell, vrkvar& result) {
    vrkblock* instance = cell->block;
    if (!instance || !block_alive(instance) || instance->destructing) return answer_int(result, 1);
    if (instance->class_data && instance->class_data->destructing) {
        log().error("class is already being destructed!");
        return &result;
    }
    if (runs_inside(block, instance)) {
        report_error(block, "free", "cannot free a class from inside itself!");
        return answer_int(result, 0);
    }
    clearblock(cell, block, true);
    return answer_int(result, 1);
}

// A CLASS cell that holds an instance as one of its counted holders.
bool owns_instance(const vrkvar* cell) {
    if (cell->type != Tag::CLASS || (cell->flags & flag::NON_COUNTING)) return false;
    if (!cell->block) return true;
    if (!block_alive(cell->block)) return true;
    return (cell->block->kind & kind::INSTANCE) && !(cell->block->kind & kind::SINGLETON);
}

}  // namespace

// ---- type inspection -----------------------------------------------------------------

VRK_BUILTIN(vtype) {
    if (args.size() != 1) return answer_int(result, 0);
    vrkvar* value = argument_seen(block, args[0]);
    if (value->type != Tag::PTR) return answer_text(result, tag_name(value->type));
    set_string(&result, "PTR");
    if (vrkobject* object = object_of(value)) return answer_text(result, object->type_name);
    log().warn("invalid object ptr.");
    log().warn("ID: %i INDEX: %i\n", static_cast<int>(handle_id(value)),
               static_cast<int>(value->handle_index));
    return &result;
}

VRK_BUILTIN(vtype2) {
    if (args.size() != 1) return &result;
    vrkvar* value = args[0];
    if (value->type == Tag::PTR) {
        vrkobject* object = object_of(value);
        return answer_text(result, object ? object->type_name : "invalid_object");
    }
    const auto n = static_cast<unsigned>(value->type);
    if (n > static_cast<unsigned>(Tag::ERR))
        return answer_text(result, "unknown_type_" + std::to_string(n));
    return answer_text(result, tag_name(value->type));
}

VRK_BUILTIN(vscripttype) {
    if (args.size() != 1) return answer_int(result, 0);
    vrkvar* value = argument_seen(block, args[0]);
    if (value->type == Tag::CLASS) return answer_text(result, to_string(value));
    vrkobject* object = object_of(value);
    return answer_text(result, object ? object->type_name : "err");
}

VRK_BUILTIN(is_function) { return answer_tag_test(args, result, Tag::FUNCTION, Tag::FUNCTION); }
VRK_BUILTIN(is_void) { return answer_tag_test(args, result, Tag::VOID, Tag::VOID); }
VRK_BUILTIN(is_float) { return answer_tag_test(args, result, Tag::FLOAT, Tag::FLOAT); }
VRK_BUILTIN(is_int) { return answer_tag_test(args, result, Tag::INT, Tag::INT); }
VRK_BUILTIN(is_string) { return answer_tag_test(args, result, Tag::STRING, Tag::STRING); }
VRK_BUILTIN(is_number) { return answer_tag_test(args, result, Tag::INT, Tag::FLOAT); }

VRK_BUILTIN(function_code) {
    if (args.size() != 1) return answer_int(result, 0);
    vrkvar* fn = args[0];
    if (fn->type != Tag::FUNCTION || !fn->block || !block_alive(fn->block))
        return answer_text(result, std::string());
    if (!fn->block->code_text) fn->block->code_text = string_new();
    return answer_text(result, *fn->block->code_text);
}

VRK_BUILTIN(function_pcount) {
    if (args.size() != 1 || args[0]->type != Tag::FUNCTION || !args[0]->block ||
        !block_alive(args[0]->block))
        return answer_int(result, 0);
    return answer_int(result, args[0]->block->param_count);
}

VRK_BUILTIN(isrunning) {
    if (args.size() != 1) {
        log().errorNamed(&kIsrunningName, "invalid params!");
        return answer_int(result, 0);
    }
    return answer_int(result, function_busy(args[0]) ? 1 : 0);
}

VRK_BUILTIN(is_busy) {
    if (args.size() != 1) return answer_int(result, 0);
    return answer_int(result, function_busy(deref(args[0])) ? 1 : 0);
}

VRK_BUILTIN(dbg_isconst) {
    if (args.size() != 1) {
        log().errorNamed(&kDbgIsconstName, "invalid params!");
        return answer_int(result, 0);
    }
    return answer_int(result, args[0]->constant);
}

VRK_BUILTIN(isvalid) {
    if (args.size() != 1) {
        log().errorNamed(&kIsvalidName, "invalid parameter count");
        return answer_int(result, 0);
    }
    return answer_int(result, object_of(args[0]) ? 1 : 0);
}

// Blocks share the pointer registry with objects, so the entry registered last
// is often a block: then the object with the highest id stands for it.
VRK_BUILTIN(getlastobject) {
    ScriptLock lock;
    vrkregistry& registry = value_context().registry;
    vrkobject* last = dynamic_cast<vrkobject*>(registry.last_registered);
    if (!last) {
        for (const vrkregistry_slot& slot : registry.slots) {
            if (!slot.ptr) continue;
            auto* object = dynamic_cast<vrkobject*>(slot.ptr);
            if (object && (!last || slot.id > last->registry_id)) last = object;
        }
    }
    if (!last) return answer_int(result, 0);
    return answer_handle(result, last);
}

VRK_BUILTIN(class_ref_count) {
    if (args.size() != 1) return answer_int(result, 0);
    vrkvar* value = args[0];
    if (value->type != Tag::CLASS || !value->block || !block_alive(value->block) ||
        !value->block->class_data) {
        report_error(block, "class_refs", "not a class instance with references");
        return &result;
    }
    const vrkclass_data& data = *value->block->class_data;
    log().log("ref count: %i ref array size: %i", static_cast<int>(data.refs),
              static_cast<int>(data.cells.size()));
    return answer_int(result, data.refs);
}

VRK_BUILTIN(vaddress) {
    if (args.size() != 1) return answer_int(result, 0);
    return answer_text(result, std::to_string(reinterpret_cast<uint64_t>(args[0])));
}

VRK_BUILTIN(vaddress_obj) {
    if (args.size() != 1) return answer_int(result, 0);
    const auto address = reinterpret_cast<uintptr_t>(object_of(args[0]));
    return answer_int(result, static_cast<int64_t>(address));
}

VRK_BUILTIN(vaddress_class) {
    if (args.size() != 1) return answer_int(result, 0);
    const auto address = reinterpret_cast<uintptr_t>(args[0]->value.ptr);
    return answer_int(result, static_cast<int64_t>(address));
}

// ---- references and cells ------------------------------------------------------------

// A reference reaches the caller's own cell only when the argument was passed
// by reference (`ref(#x)`). Passed plainly, the argument is a temporary copy
// that the caller reuses after the call: a reference to it would point at
// whatever the next call leaves there, so the answer is then the value itself.
VRK_BUILTIN(ref) {
    if (args.size() != 1) return &result;
    if (is_caller_temp(block, args[0])) {
        assign(&result, args[0], block);
        return &result;
    }
    set_ref(&result, args[0]);
    return &result;
}

VRK_BUILTIN(deref) {
    if (args.size() != 1) return &result;
    vrkvar* target = through_one_ref(args[0]);
    if (target->type == Tag::REF) return &result;
    assign(&result, target, block);
    return &result;
}

VRK_BUILTIN(gvar) {
    if (args.size() != 1) return answer_int(result, 0);
    const std::string name = to_string(args[0]);
    vrkvar* cell;
    {
        ScriptLock lock;
        vrknamed_cell& named = value_context().named_cells[name];
        if (!named.cell) named.cell = cell_new(Tag::VOID);
        ++named.holders;
        cell = named.cell;
    }
    callback_add(
        [name](uint64_t) {
            ScriptLock lock;
            auto& cells = value_context().named_cells;
            auto found = cells.find(name);
            if (found == cells.end() || --found->second.holders > 0) return;
            vrkvar* gone = found->second.cell;
            cells.erase(found);
            reset(gone, Tag::INT);
            cell_free(gone);
        },
        reinterpret_cast<uint64_t>(cell) | 1, block, 1);  // never an allocation's key
    set_ref(&result, cell);
    return &result;
}

VRK_BUILTIN(allocate) {
    vrkvar* cell = cell_new(Tag::INT);
    if (args.size() == 1) assign(cell, args[0], block);
    list_allocation(cell, script_root(block));
    set_ref(&result, cell);
    return &result;
}

VRK_BUILTIN(deallocate) {
    if (args.size() != 1) return answer_int(result, 0);
    vrkvar* cell = deref(args[0]);
    if (!callback_fire(allocation_handle(cell), true)) {
        report_error(block, "external_function", "variable was not allocated!");
        return answer_int(result, 0);
    }
    return answer_int(result, 1);
}

VRK_BUILTIN(make_ref) {
    if (args.size() != 1) {
        wrong_params(block, "make_ref");
        return &result;
    }
    assign(&result, through_one_ref(args[0]), block);
    return &result;
}

// ---- lifetime -------------------------------------------------------------------------

// The handle keeps one reference more than its holders, and the object is
// marked detached, so that neither the last release nor a deletion at the end
// of its block ends it: only `free` does. The call's value is the argument
// cell itself.
VRK_BUILTIN(new_) {
    if (args.size() != 1) return answer_int(result, 0);
    if (vrkobject* object = object_of(args[0])) {
        object->addRef();
        object->object_flags |= object_flag::DETACHED;
    }
    return args[0];
}

VRK_BUILTIN(copy) {
    if (args.size() != 1) {
        report_error(block, "copy", "wrong params!");
        return answer_int(result, 0);
    }
    if (vrkobject* object = object_of(args[0])) {
        vrkobject* twin = object->clone();
        if (!twin) return answer_int(result, 0);
        return answer_handle(result, twin);
    }
    assign(&result, args[0], block);
    return &result;
}

VRK_BUILTIN(free_) {
    if (args.size() != 1) {
        report_errorf(block, "external_function", "invalid parameters (or already deleted)! %s",
                      "free");
        return answer_int(result, 0);
    }
    vrkvar* value = args[0];
    if (owns_instance(value)) return free_instance(block, value, result);
    if (value->type == Tag::PTR && value->aux_hi() == kHandleMark) {
        vrkobject* object = object_of(value);
        if (!object) {
            report_errorf(block, "external_function", "invalid parameters (or already deleted)! %s",
                          "free");
            return answer_int(result, 0);
        }
        if (object->object_flags & object_flag::GLOBAL) {
            log().error("cannot delete global var %s !", object->type_name);
            return answer_int(result, 0);
        }
        // Freeing is the one way out of detachment.
        object->object_flags &= ~object_flag::DETACHED;
        object->destroy();
        return answer_int(result, 1);
    }
    // Any other value may be the key of a clean-up record (a callback handle):
    // forgetting it runs the clean-up. A zero word is no key.
    if (value->value.i == 0) return answer_int(result, 0);
    return answer_int(result, callback_fire(static_cast<uint64_t>(value->value.i), true) ? 1 : 0);
}

VRK_BUILTIN(get_context) {
    vrkvar* cell = context_cell(block);
    if (!cell) return answer_int(result, 0);
    set_ref(&result, cell);
    return &result;
}

VRK_BUILTIN(has_context) { return answer_int(result, context_cell(block) ? 1 : 0); }

}  // namespace vrk::lib
