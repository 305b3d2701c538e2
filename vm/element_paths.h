// Subscript sequences of the run loop run in one step (private to vm/).
//
// The compiler lays out every read and every store of an element in fixed
// sequences around INDEX:
//
//   PUSH 1; LOAD k; INDEX h; RESET 0              read c[k] (c in the top slot)
//   X_TMP 0; LOAD c; PUSH 1; LOAD k; INDEX h; RESET 0; X
//                                                 `v op= c[k]` (v in the top slot)
//   PUSH 0; LOAD c; PUSH 1; LOAD k; INDEX -1; SET -2; RESET 0
//                                                 `c[k] = v` (v in the top slot)
//   PUSH 1; LOAD k; INDEX -1; SET -2; RESET 0     the same, v already in its temp
//
// Run one at a time they open and fill slots, make the key wait in the block
// for the store, take a temp for the operand or the value and give it back,
// and go through the general subscript and store routines: several hundred
// machine instructions for one element. For a JSON value indexed by a
// position inside it (a store may also append at the end) or by a key that
// the hint word (the instruction's for a read, the value's own for a store)
// already points at, and plain numbers where a number is copied or
// computed, the dispatch runs the whole sequence in one step, leaving exactly
// what the single instructions leave: the same top slot, the same element
// written or appended, the same owner of a following member call, the same
// element remembered as read out of a transient value, nothing pending.
//
// Each step counts every instruction it replaces against the step budget and
// is not taken when the budget could run out inside it. Nothing it does can
// suspend the block or report an error; anything else (other containers,
// keys that would grow an array by more than one element, add a key or move a
// hint, constants, references to parameters, values other than numbers where
// a copy is made, fresh results) runs the single instructions. The steps are
// switched by `vrkvalue_context::data_paths` together with the fused number
// steps (`fused_paths`).
#pragma once

#include <cstdint>
#include <vector>

#include "values/json.h"
#include "values/pools.h"
#include "values/value_context.h"
#include "vm/fused_paths.h"
#include "vm/ops.h"

namespace vrk {

namespace element_paths {

// The element a read of `json` by `key` finds without growing the array or
// adding a key: a position inside the array, or the element the hint word
// names when it carries the key. Null when the read needs the general path,
// which then finds, grows or appends exactly as before.
[[gnu::always_inline]] inline vrkelement* existing_element(const vrkjson* json, const vrkvar* key,
                                                           int64_t hint) {
    if (!json) return nullptr;
    const std::vector<vrkelement*>& elements = json->elements;
    if (key->type == Tag::INT) {
        const int64_t i = key->value.i;
        if (static_cast<uint64_t>(i) >= elements.size()) return nullptr;
        return elements[static_cast<std::size_t>(i)];
    }
    if (key->type != Tag::STRING || !key->value.str) return nullptr;
    if (static_cast<uint64_t>(hint) >= elements.size()) return nullptr;
    vrkelement* element = elements[static_cast<std::size_t>(hint)];
    if (!element->key || element->key->empty() || !json_key_equal(*element->key, *key->value.str))
        return nullptr;
    return element;
}

// The key cell of `LOAD k` (a named variable, not a marker), followed along
// its references as INDEX follows it; null for anything else.
[[gnu::always_inline]] inline vrkvar* key_of(const vrkinstr& load) {
    vrkvar* key = fused::loaded_var(load);
    if (is_marker(key, kMarkerLimit)) return nullptr;
    return chain_end(key);
}

// The JSON container an INDEX reads from when `cell` is in its slot, or null.
[[gnu::always_inline]] inline vrkvar* json_container(vrkvar* cell) {
    if (is_marker(cell, kMarkerLimit)) return nullptr;
    vrkvar* c = chain_end(cell);
    return c->type == Tag::JSON && c->value.json ? c : nullptr;
}

// True for `INDEX h` in read mode followed by `RESET 0` at code[at].
[[gnu::always_inline]] inline bool read_tail(const vrkinstr* code, std::size_t at) {
    const vrkinstr& index = code[at];
    const vrkinstr& reset = code[at + 1];
    return index.opcode() == Op::INDEX && index.arg != -1 && reset.opcode() == Op::RESET &&
           reset.arg == 0;
}

// What INDEX leaves after reading `element` out of container `c`: the owner of
// a member call right behind it, the element remembered when the container is
// transient, and (with the RESET behind it) no index pending.
[[gnu::always_inline]] inline void note_read(vrkblock* b, vrkvar* c, vrkelement* element) {
    const bool transient = is_transient(b, c);
    b->member_owner = c;
    b->owner_transient = transient ? 1 : 0;
    b->transient_element = transient ? element : nullptr;
    b->pending_index = -1;
}

// `PUSH 1; LOAD k; INDEX h; RESET 0` at rs.ip, the container in the top slot:
// the element takes the slot. Answers false, having done nothing, when the
// read needs the single instructions.
[[gnu::always_inline]] inline bool read_step(run_state& rs, const vrkinstr* code, std::size_t count,
                                             uint64_t& steps) {
    constexpr uint32_t kLength = 4;
    if (rs.ip + std::size_t{kLength} > count || steps < kLength) return false;
    vrkblock* b = rs.b;
    vrkvar* c = json_container(top_slot(b));
    if (!c || code[rs.ip].ref != 0 || !read_tail(code, rs.ip + 2)) return false;
    vrkvar* key = key_of(code[rs.ip + 1]);
    if (!key || !value_context().data_paths) return false;
    vrkelement* element = existing_element(c->value.json, key, code[rs.ip + 2].arg);
    if (!element) return false;
    note_read(b, c, element);
    top_slot(b) = element;
    steps -= kLength - 1;
    rs.next = rs.ip + kLength;
    return true;
}

// `X_TMP 0; LOAD c; PUSH 1; LOAD k; INDEX h; RESET 0; X` at rs.ip, a plain
// number in the top slot and a number element: the top cell receives top op
// element, as the operator writes it, and the read leaves what it leaves. The
// container may not be transient: the operator's temp given back would forget
// such an owner on one path and not on another. Answers false, having done
// nothing, for anything else.
[[gnu::noinline]] inline bool arithmetic_step(run_state& rs, const vrkinstr* code,
                                              std::size_t count, uint64_t& steps) {
    constexpr uint32_t kLength = 7;
    if (rs.ip + std::size_t{kLength} > count || steps < kLength) return false;
    // The PUSH and the container first: most operand steps are followed by
    // something else, and most subscripts behind one are not of JSON values.
    const vrkinstr& push = code[rs.ip + 2];
    if (push.opcode() != Op::PUSH || push.arg != 1 || push.ref != 0) return false;
    vrkvar* c = json_container(fused::loaded_var(code[rs.ip + 1]));
    if (!c || !read_tail(code, rs.ip + 4)) return false;
    const vrkinstr& step = code[rs.ip];
    const Op op = code[rs.ip + 6].opcode();
    if (step.ref != 0 || step.arg == -2 || !fused::completes(step.opcode(), op)) return false;
    vrkblock* b = rs.b;
    vrkvar* res = top_slot(b);
    if (!fused::is_number(res) || res->constant || (res->attrs & attr::FRESH_RESULT)) return false;
    if (op == Op::ADD && rs.kept_left != nullptr) return false;
    if (is_transient(b, c)) return false;
    vrkvar* key = key_of(code[rs.ip + 3]);
    if (!key || !value_context().data_paths) return false;
    vrkelement* element = existing_element(c->value.json, key, code[rs.ip + 4].arg);
    if (!element || !fused::is_number(element) || (element->attrs & attr::FRESH_RESULT))
        return false;
    fused::apply_numbers(res, res, element, op);
    // note_read for a container found not transient above: the number written
    // cannot change that.
    b->member_owner = c;
    b->owner_transient = 0;
    b->transient_element = nullptr;
    b->pending_index = -1;
    steps -= kLength - 1;
    rs.next = rs.ip + kLength;
    return true;
}

// True for `INDEX -1; SET -2; RESET 0` at code[at].
[[gnu::always_inline]] inline bool store_tail(const vrkinstr* code, std::size_t at) {
    const vrkinstr& index = code[at];
    const vrkinstr& set = code[at + 1];
    const vrkinstr& reset = code[at + 2];
    return index.opcode() == Op::INDEX && index.arg == -1 && set.opcode() == Op::SET &&
           set.arg == -2 && set.ref != kRefMinusOne && reset.opcode() == Op::RESET &&
           reset.arg == 0;
}

// The element a store of a number into `c` by `key` writes, when the store
// comes down to assign's number copy into an element holding a plain number
// or nothing: one inside the array, a new one appended at its end (INT 0, as
// growing the array makes it), or the one with the key where the container's
// own hint (`last_hit`) points, which the store's look-up takes without a
// scan. Null, having changed nothing, for anything else.
[[gnu::always_inline]] inline vrkelement* stored_element(vrkvar* c, const vrkvar* key,
                                                         const vrkvar* src) {
    if (c->attrs & attr::BY_REF_PARAM) return nullptr;
    if (src == erase_value() || (src->flags & flag::BOUND_OBJECT)) return nullptr;
    if (!value_context().data_paths) return nullptr;
    vrkjson* json = c->value.json;
    const std::size_t size = json->elements.size();
    vrkelement* element = nullptr;
    if (key->type == Tag::INT) {
        const int64_t i = key->value.i;
        if (static_cast<uint64_t>(i) > size) return nullptr;
        if (static_cast<std::size_t>(i) == size) {
            // What growing the array by one position does (json_at): a blank
            // element, INT 0, which the number copy may write.
            vrkelement* added = element_new();
            json->elements.push_back(added);
            return added;
        }
        element = json->elements[static_cast<std::size_t>(i)];
    } else {
        if (key->type != Tag::STRING) return nullptr;
        element = existing_element(json, key, json->last_hit);
        if (!element) return nullptr;
    }
    if (element == src || element->constant || (element->flags & flag::FIXED_TYPE) ||
        (element->attrs & attr::BY_REF_PARAM))
        return nullptr;
    if (element->type != Tag::INT && element->type != Tag::FLOAT && element->type != Tag::VOID)
        return nullptr;
    return element;
}

// What the store leaves: nothing pending, no owner for a member call, no
// element remembered; the container in the top slot.
[[gnu::always_inline]] inline void note_store(vrkblock* b, vrkvar* c) {
    b->member_owner = nullptr;
    b->owner_transient = 0;
    b->transient_element = nullptr;
    b->pending_index = -1;
    top_slot(b) = c;
}

// `PUSH 0; LOAD c; PUSH 1; LOAD k; INDEX -1; SET -2; RESET 0` at rs.ip, a
// plain number in the top slot (not the erase constant, no fresh result): the
// element receives the number, the container takes the slot. The temp PUSH 0
// would copy the number into is given back by the SET, so the number is
// copied once, straight into the element.
[[gnu::always_inline]] inline bool store_step(run_state& rs, const vrkinstr* code,
                                              std::size_t count, uint64_t& steps) {
    constexpr uint32_t kLength = 7;
    if (rs.ip + std::size_t{kLength} > count || steps < kLength) return false;
    const vrkinstr& push = code[rs.ip + 2];
    if (code[rs.ip].ref != 0 || push.opcode() != Op::PUSH || push.arg != 1 || push.ref != 0 ||
        !store_tail(code, rs.ip + 4))
        return false;
    vrkblock* b = rs.b;
    vrkvar* v = top_slot(b);
    if (!fused::is_number(v) || (v->attrs & attr::FRESH_RESULT)) return false;
    vrkvar* c = json_container(fused::loaded_var(code[rs.ip + 1]));
    if (!c) return false;
    vrkvar* key = key_of(code[rs.ip + 3]);
    if (!key) return false;
    vrkelement* element = stored_element(c, key, v);
    if (!element) return false;
    copy_number<true>(element, v);
    note_store(b, c);
    steps -= kLength - 1;
    rs.next = rs.ip + kLength;
    return true;
}

// `PUSH 1; LOAD k; INDEX -1; SET -2; RESET 0` at rs.ip, [.. t c] on the stack
// with a number in the temp t: the element receives it, the temp goes back to
// the pool and the container takes its slot, as the SET leaves them.
[[gnu::always_inline]] inline bool store_from_temp_step(run_state& rs, const vrkinstr* code,
                                                        std::size_t count, uint64_t& steps) {
    constexpr uint32_t kLength = 5;
    if (rs.ip + std::size_t{kLength} > count || steps < kLength) return false;
    if (code[rs.ip].ref != 0 || !store_tail(code, rs.ip + 2)) return false;
    vrkblock* b = rs.b;
    const std::size_t size = b->stack.size();
    if (size < 2) return false;
    vrkvar* c = json_container(b->stack[size - 1]);
    vrkvar* src = b->stack[size - 2];
    if (!c || !fused::is_number(src)) return false;
    vrkvar* key = key_of(code[rs.ip + 1]);
    if (!key) return false;
    vrkelement* element = stored_element(c, key, src);
    if (!element) return false;
    copy_number<true>(element, src);
    b->stack.pop_back();
    note_store(b, c);
    free_temp(b, src);
    steps -= kLength - 1;
    rs.next = rs.ip + kLength;
    return true;
}

// PUSH at rs.ip: the store of `PUSH 0` or the read or store of `PUSH 1`.
[[gnu::noinline]] inline bool push_step(run_state& rs, const vrkinstr* code, std::size_t count,
                                        uint64_t& steps) {
    const int64_t pushed = code[rs.ip].arg;
    if (pushed == 0) return store_step(rs, code, count, steps);
    if (pushed != 1 || rs.ip + std::size_t{2} >= count) return false;
    if (code[rs.ip + 2].arg == -1) return store_from_temp_step(rs, code, count, steps);
    return read_step(rs, code, count, steps);
}

// The test the dispatch makes in line before it calls push_step or
// arithmetic_step: the instruction two on is the one each sequence has
// there (a PUSH behind PUSH 0 and behind an operand step, an INDEX behind
// PUSH 1), so that every other PUSH and operand step costs no call.
[[gnu::always_inline]] inline bool may_start(const vrkinstr* code, std::size_t count, uint32_t ip,
                                             bool operand_step) {
    if (ip + std::size_t{4} > count) return false;
    const Op second = code[ip + 2].opcode();
    if (operand_step) return second == Op::PUSH;
    const int64_t pushed = code[ip].arg;
    return pushed == 0 ? second == Op::PUSH : pushed == 1 && second == Op::INDEX;
}

// The shape of the PUSH at `ip` (fused::shape): the start of an element step,
// of a member store, or of neither, worked out the first time and noted.
[[gnu::noinline]] inline uint8_t note_push_shape(const vrkinstr* code, std::size_t count,
                                                 uint32_t ip) {
    uint8_t s = fused::shape::none;
    if (may_start(code, count, ip, false))
        s = fused::shape::element;
    else if (fused::is_member_store(code, count, ip))
        s = fused::shape::member_store;
    code[ip].shape = s;
    return s;
}

// The shape of the operand step at `ip`: its arithmetic, the start of an
// element step, or neither, worked out the first time and noted.
[[gnu::noinline]] inline uint8_t note_operand_shape(const vrkinstr* code, std::size_t count,
                                                    uint32_t ip) {
    uint8_t s = fused::shape::none;
    if (fused::is_arithmetic(code, count, ip))
        s = fused::shape::arithmetic;
    else if (may_start(code, count, ip, true))
        s = fused::shape::element;
    code[ip].shape = s;
    return s;
}

[[gnu::always_inline]] inline uint8_t operand_shape(const vrkinstr* code, std::size_t count,
                                                    uint32_t ip) {
    const uint8_t s = code[ip].shape;
    return s != fused::shape::unknown ? s : note_operand_shape(code, count, ip);
}

[[gnu::always_inline]] inline uint8_t push_shape(const vrkinstr* code, std::size_t count,
                                                 uint32_t ip) {
    const uint8_t s = code[ip].shape;
    return s != fused::shape::unknown ? s : note_push_shape(code, count, ip);
}

}  // namespace element_paths

}  // namespace vrk
