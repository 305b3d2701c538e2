// Instructions that shape the value stack: the operand step, PUSH, ARG, POP,
// FREE_TOP, SWAP, RESET, DEREF and the constant sub-codes of LOAD.
#include <utility>

#include "base/log.h"
#include "values/value_context.h"
#include "vm/errors.h"
#include "vm/ops.h"

namespace vrk {

namespace {

// The erase constant of `a[k] = null` is recognised by its address when it
// reaches the element store. The store sequence first copies the value into a
// temp, which would lose that address, so that copying step leaves the erase
// constant itself in the slot; nothing frees it, since it is a constant.
bool keeps_erase(vrkvar* v) { return v == erase_value(); }

// One of the block's embedded cells (scratch, result, native_result).
bool is_embedded(const vrkblock* b, const vrkvar* cell) { return b->is_embedded(cell); }

// A list literal's variable marked to hand its list over (load_code::HAND_OVER).
bool hands_over(const vrkblock* b, const vrkvar* cell) {
    return (cell->flags & flag::MOVABLE) && !cell->constant && !is_embedded(b, cell);
}

// An argument goes by reference when the call asks for it (`arg` -1) or the
// parameter of the function being prepared is declared by reference, unless
// the value may not be wrapped (a result cell or a movable temp).
bool wraps_by_reference(vrkblock* b, const vrkinstr& ins, vrkvar* v) {
    if (is_transient(b, v)) return false;
    if (ins.arg == -1) return true;
    if (ins.arg < 1 || b->callblocks.empty()) return false;
    vrkvar* fn = b->callblocks.back();
    if (is_marker(fn, kMarkerLimit)) return false;
    fn = chain_end(fn);
    if (fn->type != Tag::FUNCTION) return false;
    vrkvar* param = var_at(fn->block, ins.arg - 1);
    return param && (param->attrs & attr::BY_REF_PARAM);
}

// The next free temp of `b` for the copy of the plain string `v` when that
// temp holds a string already, taken without its blanking, or null. The
// general way releases the temp's string, and the copy then takes a string
// from the pool only to fill it with the same text; kept, the temp's buffer
// takes the text and the cell ends as the general way leaves it: the tag
// STRING, `aux` and `attrs` zero, `block` as it was. A movable or fresh string
// (its text or its ownership bit changes hands) and typed or constant temps
// take the general way.
vrkvar* take_string_temp(vrkblock* b, const vrkvar* v) {
    if (v->type != Tag::STRING || !v->value.str || (v->flags & flag::MOVABLE) ||
        (v->attrs & attr::FRESH_RESULT))
        return nullptr;
    vrktemp_pool* pool = &b->temp_pool;
    if (!pool || pool->free.empty()) return nullptr;
    vrkvar* t = pool->free.back();
    if (!t || t == v || t->type != Tag::STRING || !t->value.str || t->constant ||
        (t->flags & flag::FIXED_TYPE))
        return nullptr;
    pool->free.pop_back();
    ++pool->in_use;
    *t->value.str = *v->value.str;
    t->aux = 0;
    t->attrs = 0;
    return t;
}

}  // namespace

bool pop_slot(vrkblock* b) {
    if (b->stack.size() <= 1) {
        log().log("stack underflow!!!");
        return false;
    }
    b->stack.pop_back();
    return true;
}

void operand_step(run_state& rs, const vrkinstr& ins) {
    vrkblock* b = rs.b;
    vrkvar* v = top_slot(b);
    vrkvar* t = take_temp(b);
    if (piece_appended_in_place(b->code.data(), b->code.size(), rs.ip, v)) {
        rs.kept_left = v;
        rs.kept_temp = t;
        rs.kept_at = rs.ip;
    } else if (!is_marker(v, kMarkerLimit)) {
        assign(t, v, b);
    }
    b->stack.push_back(t);
    b->stack.push_back(nullptr);
    slot_load(b, ins);
}

// Most slots one PUSH makes.
constexpr int64_t kMaxPushedSlots = 1 << 16;

void push_slots(vrkblock* b, const vrkinstr& ins) {
    if (ins.arg == 0) {
        vrkvar*& slot = top_slot(b);
        if (!keeps_erase(slot)) {
            vrkvar* t = take_temp(b);
            t->flags |= flag::MOVABLE;
            if (!is_marker(slot, kMarkerLimit)) assign(t, slot, b);
            slot = t;
        }
        b->stack.push_back(ins.ref != 0 ? take_temp(b) : nullptr);
        return;
    }
    // The compiler pushes one or two slots at a time; a count in the millions
    // comes from a damaged program file and would take the memory of the host.
    if (ins.arg > kMaxPushedSlots) {
        report_errorf(b, "internal", "cannot push %lld slots!", static_cast<long long>(ins.arg));
        return;
    }
    for (int64_t i = 0; i < ins.arg; ++i) b->stack.push_back(ins.ref != 0 ? take_temp(b) : nullptr);
}

void wrap_argument(vrkblock* b, const vrkinstr& ins) {
    vrkvar*& slot = top_slot(b);
    vrkvar* v = slot;
    if (is_marker(v, kMarkerLimit)) v = void_value();  // null and the no-value markers
    // Arguments are always taken into a temp of their own, the erase constant
    // too: only the store sequence (PUSH) keeps it, so `f(null)` passes 0.
    const bool fast = value_context().call_paths;
    const bool by_reference = wraps_by_reference(b, ins, v);
    // A string copied into a free temp that holds a string keeps its buffer.
    if (vrkvar* t = fast && !by_reference ? take_string_temp(b, v) : nullptr) {
        slot = t;
    } else {
        t = fast ? take_temp_fast(b) : take_temp(b);
        slot = t;
        if (by_reference) {
            set_ref(t, v);
        } else if (fast && v->type == Tag::INT && t->type == Tag::INT && !t->constant &&
                   !(t->flags & flag::FIXED_TYPE)) {
            // assign's own path for an integer into a blank INT temp.
            copy_number<false, true>(t, v);
        } else {
            assign(t, v, b);
        }
    }
    b->transient_element = nullptr;
    if (ins.ref != 0) b->stack.push_back(nullptr);
}

void pop_slots(vrkblock* b, const vrkinstr& ins) {
    // An underflow is reported once per instruction: the bottom slot stays, so
    // popping on would only repeat the report (a damaged count could ask for
    // millions).
    switch (ins.ref) {
        case 0:
            for (int64_t i = 0; i < ins.arg; ++i)
                if (!pop_slot(b)) return;
            return;
        case 2:
            for (int64_t i = 0; i < ins.arg; ++i) {
                free_temp(b, top_slot(b));
                if (!pop_slot(b)) return;
            }
            return;
        case 3: free_temp(b, top_slot(b)); return;
        default:
            for (int64_t i = 0; i < ins.arg; ++i) {
                if (!pop_slot(b)) return;
                free_temp(b, top_slot(b));
            }
            return;
    }
}

void free_top(vrkblock* b) {
    if (b->stack.size() <= 1) return;
    free_temp(b, top_slot(b));
    top_slot(b) = nullptr;
}

void swap_slots(vrkblock* b, const vrkinstr& ins) {
    const auto size = static_cast<int64_t>(b->stack.size());
    const auto depth_b = static_cast<int64_t>(ins.ref);
    if (ins.arg < 0 || depth_b < 0 || ins.arg >= size || depth_b >= size) {
        runtime_error("SWAP_ERROR", b);
        return;
    }
    vrkvar*& first = b->stack[static_cast<std::size_t>(size - 1 - ins.arg)];
    vrkvar*& second = b->stack[static_cast<std::size_t>(size - 1 - depth_b)];
    if (!first) return;
    std::swap(first, second);
}

void load_constant(vrkblock* b, const vrkinstr& ins) {
    vrkvar*& slot = top_slot(b);
    switch (ins.arg) {
        case load_code::TRUE: slot = true_value(); return;
        case load_code::FALSE: slot = false_value(); return;
        case load_code::UNDEFINED: slot = nullptr; return;
        case load_code::SCRATCH: slot = &b->scratch; return;
        case load_code::CLEAR_JSON:
            if (is_marker(slot, kMarkerLimit)) return;
            if (slot->type == Tag::JSON && slot->value.json) {
                json_clear(slot->value.json);
            } else if (hands_over(b, slot)) {
                // A list literal whose last list was taken starts a new one.
                reset(slot, Tag::JSON);
            }
            // While the literal fills its list, the list stays where it is.
            if (hands_over(b, slot)) slot->flags &= static_cast<uint16_t>(~flag::MOVABLE);
            return;
        case load_code::HAND_OVER:
            // The literal's finished list goes to whoever takes it next.
            if (!is_marker(slot, kMarkerLimit) && !slot->constant && !is_embedded(b, slot))
                slot->flags |= flag::MOVABLE;
            return;
        case load_code::NONE: slot = none_value(); return;
        case load_code::ERASE: slot = erase_value(); return;
        default: slot_load(b, ins); return;
    }
}

void deref_top(vrkblock* b) {
    vrkvar*& slot = top_slot(b);
    if (!is_marker(slot, kMarkerLimit) && slot->type == Tag::REF && slot->value.ref)
        slot = slot->value.ref;
}

}  // namespace vrk
