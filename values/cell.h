// The value cell `vrkvar`: the one record that holds everything a script can hold.
//
// Variables, constants, temporaries, JSON elements and the results of native
// functions are all cells. A cell is small and fixed in size: a scalar (INT,
// FLOAT, EXT) sits in the cell itself, everything else sits behind the pointer in
// `value`, owned by the cell (except the target of a REF). Blocks own vectors of
// pointers to cells, the value stack holds pointers to cells, and instructions
// work on those pointers, so loading a variable means putting its own cell on the
// stack, where the next instruction can read it or write through it.
//
// There is one set of conversions, one assignment routine (`assign`) and one
// type-change routine (`set_type`/`reset`); nothing else writes `type` by hand.
// Cells come from and return to the free lists of values/pools.h.
//
// Tag numbers, and the bits of `flags` and `attrs`, are written into saved
// values and compiled programs: they must never change.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vrk {

struct vrkblock;
struct vrkjson;
struct vrkclosure;
struct vrknative;
struct vrkslab;

// Type tags; the numbers are part of the file formats.
enum class Tag : uint8_t {
    INT = 0,
    FLOAT = 1,
    STRING = 2,
    FUNCTION = 3,
    CLASS = 4,
    EXT = 5,
    VOID = 6,
    PTR = 7,
    REF = 8,
    JSON = 9,
    DATA = 10,
    FLOATSET = 11,
    DOUBLESET = 12,
    INTSET = 13,
    BIGINTSET = 14,
    ERR = 15,
};

// Declaration flags (`flags`).
namespace flag {
inline constexpr uint16_t FIXED_TYPE = 0x0001;  // declared with a type keyword: assignment converts
inline constexpr uint16_t CAPTURED =
    0x0002;  // captured or stored copy; such this/self is kept at a call
inline constexpr uint16_t STATIC_BUFFER = 0x0004;  // DATA sized by staticbuffer( at compile time
inline constexpr uint16_t STRUCT_VAR =
    0x0008;  // JSON laid out by a struct block (`block` is the struct)
inline constexpr uint16_t CLASS_HINT = 0x0010;  // compile-time type knowledge (front end only)
inline constexpr uint16_t MOVABLE =
    0x0020;  // payload may be stolen by an assignment from this cell
inline constexpr uint16_t VALUE_HINT = 0x0080;  // compile-time type knowledge (front end only)
inline constexpr uint16_t DECLARED_FUNCTION =
    0x0100;  // variable that stands for a declared function
inline constexpr uint16_t BOUND_OBJECT =
    0x0200;  // assigning from it takes the top of the object stack
inline constexpr uint16_t GLOBAL_SLOT = 0x0400;  // global cell revived from a retired name
inline constexpr uint16_t NO_COUNT = 0x0800;     // holds CLASS or PTR without taking a reference
inline constexpr uint16_t KEEP_HINT = 0x1000;    // compile-time type knowledge (front end only)
// A CLASS cell with any of these does not count as a holder of its instance.
inline constexpr uint16_t NON_COUNTING = NO_COUNT | CAPTURED | MOVABLE;
}  // namespace flag

// Run-time attributes (`attrs`).
namespace attr {
inline constexpr uint16_t SHARED_CLOSURE = 0x0002;  // FUNCTION cell does not own its closure record
inline constexpr uint16_t NO_DESTRUCTOR =
    0x0004;  // releasing this CLASS cell runs no script destructor
inline constexpr uint16_t INSTANCE_CELL = 0x0008;  // CLASS cell listed in its class data's cells
inline constexpr uint16_t CLASS_HINT2 = 0x0010;    // compile-time type knowledge (front end only)
inline constexpr uint16_t OWNS_RESULT = 0x0020;    // scoped, or took over a fresh native result
inline constexpr uint16_t BY_REF_PARAM = 0x0040;   // by-reference parameter: a store rebinds it
inline constexpr uint16_t NO_REF_WRAP =
    0x0080;  // an argument taken from it is copied, never wrapped
inline constexpr uint16_t NATIVE_FUNCTION = 0x0400;  // FUNCTION whose `value` is a native record
inline constexpr uint16_t FRESH_RESULT = 0x2000;     // result a native function has just created
// Bits that survive an assignment or a type reset.
inline constexpr uint16_t KEEP_MASK = 0x00C2;
// Bits cleared whenever a PTR payload is released.
inline constexpr uint16_t RESULT_BITS = OWNS_RESULT | FRESH_RESULT;
}  // namespace attr

// `aux_hi` of a PTR cell that is a handle into the object registry.
inline constexpr uint8_t kHandleMark = 255;
// `aux` of a PTR cell that is a script thread handle: its block word names the
// thread's block, and it holds no reference of anything.
inline constexpr uint16_t kThreadHandleAux = 0xFFFF;

// The payload word of a cell; which member is live is decided by the tag.
union vrkpayload {
    int64_t i;                        // INT, EXT, PTR (low 32 bits: object id or callback handle)
    double f;                         // FLOAT
    std::string* str;                 // STRING, ERR
    vrkclosure* closure;              // FUNCTION (script): closure record or null
    vrknative* native;                // FUNCTION with NATIVE_FUNCTION: the native record
    struct vrkvar* ref;               // REF: target, not owned, may be null
    vrkjson* json;                    // JSON
    std::vector<uint8_t>* data;       // DATA
    std::vector<float>* floatset;     // FLOATSET
    std::vector<double>* doubleset;   // DOUBLESET
    std::vector<int32_t>* intset;     // INTSET
    std::vector<int64_t>* bigintset;  // BIGINTSET
    void* ptr;                        // any pointer payload, untyped
};

struct vrkvar {
    Tag type = Tag::INT;   // type tag
    uint8_t constant = 0;  // non-zero: refuses assignment and type change
    uint16_t flags = 0;    // declaration flags (namespace flag)
    uint16_t attrs = 0;    // run-time attributes (namespace attr)
    vrkpayload value{0};   // scalar or owned payload, by tag
    uint16_t aux = 0;      // FUNCTION: parameter count; PTR: handle marks (aux_hi, aux_lo)
    union {
        vrkblock* block = nullptr;  // FUNCTION, CLASS: the block
        uint64_t handle_index;      // PTR: index of the object in the registry
    };

    uint8_t aux_lo() const { return static_cast<uint8_t>(aux & 0xFF); }
    uint8_t aux_hi() const { return static_cast<uint8_t>(aux >> 8); }
    void set_aux(uint8_t lo, uint8_t hi) { aux = static_cast<uint16_t>(lo | (hi << 8)); }

    bool is(Tag t) const { return type == t; }
};

// A JSON element: a cell followed by its key (null for a positional element).
struct vrkelement : vrkvar {
    std::string* key = nullptr;  // the element's key, owned; null when reached by position only
    vrkslab* slab = nullptr;     // chunk the record was cut from (values/element_slabs.h); null:
                                 // made alone on the heap
};

// One captured variable of a lambda: where it goes, where it came from, the copy.
struct vrkcapture {
    uint32_t var_index;     // index of the lambda's variable that receives it
    uint32_t source_index;  // index of the variable it was captured from
    vrkvar* cell;           // the captured copy, owned by the closure
};

// Captured values of a FUNCTION cell; shared by cells marked SHARED_CLOSURE.
struct vrkclosure {
    std::vector<vrkcapture> pairs;  // captured cells in capture order
    uint32_t refs = 1;              // number of owners
};

// True for pointer values that are no-value markers rather than cells.
inline bool is_marker(const void* p, uintptr_t below = 10) {
    return reinterpret_cast<uintptr_t>(p) < below;
}

// ---- the five shared constant cells ---------------------------------------
// Each is a cell for the life of the process, recognised by its address. The
// records are function-local statics of a trivially destructible type made
// when the program is loaded (constant initialisation): the hot paths that
// hand them out, a comparison's answer among them, take no first-use test, and
// nothing tears them down at exit, so worker threads that outlive main still
// find them.
constexpr vrkvar constant_cell(Tag tag, int64_t v) {
    vrkvar c;
    c.type = tag;
    c.constant = 1;
    c.value.i = v;
    return c;
}
// The shared cell number `kWhich`, holding `kValue` under `kTag`.
template <int kWhich, Tag kTag, int64_t kValue>
inline vrkvar* shared_constant() {
    static constinit vrkvar cell = constant_cell(kTag, kValue);
    return &cell;
}
// INT 0: stands in where an operation has no result.
inline vrkvar* void_value() { return shared_constant<0, Tag::INT, 0>(); }
// INT 1.
inline vrkvar* true_value() { return shared_constant<1, Tag::INT, 1>(); }
// INT 0.
inline vrkvar* false_value() { return shared_constant<2, Tag::INT, 0>(); }
// INT 0, recognised by address: storing it into an element erases it.
inline vrkvar* erase_value() { return shared_constant<3, Tag::INT, 0>(); }
// VOID: keywords none, None.
inline vrkvar* none_value() { return shared_constant<4, Tag::VOID, 0>(); }

// ---- creation and destruction (pooled; see values/pools.h) ----------------
vrkvar* cell_new(Tag tag = Tag::INT);
void cell_free(vrkvar* cell);
vrkelement* element_new();
vrkelement* element_new_keyed(const std::string& key);
void element_free(vrkelement* cell);

// ---- typed access -----------------------------------------------------------
void set_int(vrkvar* cell, int64_t v);
void set_float(vrkvar* cell, double v);
void set_string(vrkvar* cell, const std::string& text);
void set_string(vrkvar* cell, const char* text, std::size_t size);
void set_ref(vrkvar* cell, vrkvar* target);
void bind_ref(vrkvar* cell, vrkvar* source);
vrkjson* as_json(vrkvar* cell);
std::vector<uint8_t>* as_data(vrkvar* cell);
std::vector<float>* as_floatset(vrkvar* cell);
std::vector<double>* as_doubleset(vrkvar* cell);
std::vector<int32_t>* as_intset(vrkvar* cell);
std::vector<int64_t>* as_bigintset(vrkvar* cell);
// Follows a REF chain to its end; a REF with a null target is returned itself.
vrkvar* deref(vrkvar* cell);
// deref where most cells are no reference (the call paths): such a cell is its
// own end, found without a call.
[[gnu::always_inline]] inline vrkvar* chain_end(vrkvar* cell) {
    return cell->type == Tag::REF ? deref(cell) : cell;
}

// ---- changing type ------------------------------------------------------------
// The raw change: releases what the cell held and allocates the new payload.
void set_type(vrkvar* cell, Tag tag, vrkblock* block = nullptr);
// The same with a fast path that keeps and empties a payload of the same tag.
void reset(vrkvar* cell, Tag tag);
// Releases an object payload (PTR) and clears attrs RESULT_BITS.
void release_object(vrkvar* cell);

// ---- assignment -------------------------------------------------------------------
// The one copy routine; `block` is the running block or null.
void assign(vrkvar* dest, vrkvar* src, vrkblock* block = nullptr);

// ---- conversions (none changes its source) -----------------------------------------
int64_t to_int(const vrkvar* cell);
double to_float(const vrkvar* cell);
std::string to_string(const vrkvar* cell);
// Appends the text form to `out` (saves a temporary string on hot paths).
void append_string(const vrkvar* cell, std::string& out);
// `==` of the language.
bool equals(vrkvar* a, vrkvar* b);
// Turns source text into a constant value; true if it was a literal. Throws the
// standard exceptions of number parsing for malformed numbers.
bool parse_literal(vrkvar* cell, const std::string& text);

// Name of a tag as the builtin vtype gives it ("INT", ..., "unknown type N").
std::string tag_name(Tag tag);

}  // namespace vrk
