// SET, SET_DEREF and MAKE_REF: stores into variables and elements, parameter
// binding by pointer swap, and rebinding of references.
//
// A store names its destination by (block in `ref`, index in `arg`). Two
// negative indexes take the destination from the stack instead ([.. src dst]):
// -1, and -2 which also hands the source temp back afterwards. `ref` -1 stores
// into the function of the call being prepared: that is parameter binding, and
// it copies nothing. A script callee's variable pointer is saved in `params`
// and the argument cell itself takes its place in the callee's variables, to
// be put back after the call; a native callee just collects the arguments.
#include "values/value_context.h"
#include "vm/element_store.h"
#include "vm/errors.h"
#include "vm/fused_paths.h"
#include "vm/ops.h"

namespace vrk {

namespace {

// The function block of the call being prepared, or null.
vrkblock* callee_in_preparation(vrkblock* b) {
    if (b->callblocks.empty()) return nullptr;
    vrkvar* cell = b->callblocks.back();
    if (is_marker(cell, kMarkerLimit)) return nullptr;
    cell = deref(cell);
    if (cell->type != Tag::FUNCTION && cell->type != Tag::CLASS) return nullptr;
    return cell->block;
}

// A store with no pending index. Storing the erase constant into an object
// handle lets the object go.
void store_value(vrkblock* b, vrkvar* dst, vrkvar* src) {
    if (src == erase_value() && dst->type == Tag::PTR) {
        release_object(dst);
        assign(dst, erase_value(), b);
        return;
    }
    checked_assign(b, dst, src);
}

// SET of a number into a plain number or VOID variable, named by the
// instruction or taken from the stack, where the dispatch's own number store
// (vm/fused_paths.h) is switched off or did not apply (a VOID destination, a
// change of number type): the general store below comes down to the number
// copy of `assign` and the same slots. False, with nothing changed, for
// anything else.
[[gnu::always_inline]] inline bool store_plain_number(vrkblock* b, const vrkinstr& ins) {
    if (ins.arg >= 0) return ins.ref != kRefMinusOne && fused::store_number<true>(b, ins);
    if (ins.arg != -1 && ins.arg != -2) return false;
    return fused::store_number_below<true>(b, ins.arg == -2);
}

}  // namespace

Flow store(run_state& rs, const vrkinstr& ins, bool through_ref) {
    vrkblock* b = rs.b;
    // A store may free the container or instance a subscript in front of it
    // read from; the owner of a member call never reaches past one.
    b->member_owner = nullptr;
    b->owner_transient = 0;
    if (!through_ref && value_context().instance_paths && store_plain_number(b, ins))
        return Flow::next;
    const bool for_callee = ins.ref == kRefMinusOne;
    vrkblock* target = for_callee ? callee_in_preparation(b) : operand_block(ins);
    if (ins.arg >= 0 && !has_var(target, ins.arg)) {
        runtime_error("INVALID_VAR_C1", b);
        top_slot(b) = void_value();
        return Flow::next;
    }

    vrkvar* src = top_slot(b);
    vrkvar* dst = nullptr;
    bool frees_src = false;
    if (ins.arg == -1 || ins.arg == -2) {
        if (b->stack.size() < 2) {
            runtime_error("STACK_CORRUPTION", b);
            return Flow::next;
        }
        dst = src;
        b->stack.pop_back();
        src = top_slot(b);
        frees_src = ins.arg == -2;
    } else if (for_callee && ins.arg >= 0) {
        bind_parameter(b, target, ins.arg, src);
        return Flow::next;
    } else {
        dst = var_at(target, ins.arg);
    }

    Flow flow = Flow::next;
    if (!dst) {
        runtime_error("INVALID_VAR_C0", b);
        top_slot(b) = void_value();
    } else if (dst->attrs & attr::BY_REF_PARAM) {
        // Storing into a by-reference parameter rebinds it instead.
        rebind(b, ins);
    } else {
        if (through_ref) {
            if (dst->type == Tag::REF && dst->value.ref) {
                dst = dst->value.ref;
            } else {
                runtime_error("VAR_NO_REF", b);
                dst = nullptr;
            }
        }
        if (dst && src) {
            if (has_pending_index(b)) {
                const bool suspended = element_store(b, dst, src, &ins);
                b->pending_index = -1;
                top_slot(b) = dst;
                if (suspended) {
                    // The object finishes the store elsewhere; the run goes on
                    // after this instruction once it has.
                    b->resume_at = rs.ip + 1;
                    flow = Flow::suspend;
                }
            } else {
                store_value(b, dst, src);
                top_slot(b) = dst;
            }
        }
    }
    if (frees_src) free_temp(b, src);
    return flow;
}

void rebind(vrkblock* b, const vrkinstr& ins) {
    vrkvar*& slot = top_slot(b);
    vrkvar* target = is_marker(slot, kMarkerLimit) ? nullptr : slot;
    if (ins.ref == kRefMinusOne) {
        vrkvar* v = var_at(callee_in_preparation(b), ins.arg);
        if (!v) {
            runtime_error("INVALID_VAR_C4", b);
            slot = void_value();
            return;
        }
        if (target) {
            set_ref(v, target);
            slot = v;
        }
        return;
    }
    if (ins.ref == 0 && ins.arg == 0) {
        // The wrapper is the block's result cell, unless that is what is being
        // wrapped.
        vrkvar* wrapper = slot == &b->result ? &b->scratch : &b->result;
        set_ref(wrapper, target);
        slot = wrapper;
        return;
    }
    runtime_error("INVALID_VAR_C3", b);
    slot = void_value();
}

}  // namespace vrk
