// The instruction record and the opcode table of the stack machine.
//
// A block's code is a flat vector of fixed-size records. A slot of the value
// stack holds a pointer to a cell, never a value: loading a variable pushes the
// variable's own cell so the next instruction can read it or write through it.
// There is no constant pool: constants are hidden variables of the block, marked
// `constant`, loaded like any variable.
//
// The opcode numbers are written into compiled programs: they never move. Any
// number without a case (44 and up, and the never-emitted aliases) acts as LOAD.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace vrk {

struct vrkvar;
struct vrkblock;

enum class Op : uint8_t {
    SET = 0,             // checked store
    SET_DEREF = 1,       // store through a REF destination
    MAKE_REF = 2,        // wrap top in a REF
    DEREF = 3,           // top := target of a REF top
    LOAD_ALIAS = 4,      // never emitted; acts as LOAD
    ADD_TMP = 5,         // left operand step of +
    ADD = 6,             // +
    INC = 7,             // in place +1
    SUB_TMP = 8,         // left operand step of -
    SUB = 9,             // -
    DEC = 10,            // in place -1
    MULT_TMP = 11,       // left operand step of *
    MULT = 12,           // *
    DIV_TMP = 13,        // left operand step of /
    DIV = 14,            // /
    EXP_TMP = 15,        // left operand step of ^
    EXP = 16,            // ^
    CALL = 17,           // call the prepared function
    CALL_PREP = 18,      // check the callee / start binding
    RUN_CHILD = 19,      // run a nested block in line
    EXTERNAL = 20,       // a native block's only instruction
    TMP = 21,            // plain operand step; emitted by no front end path
    PUSH = 22,           // push slots / copy top into a movable temp
    ARG = 23,            // wrap top as an argument
    POP = 24,            // pop slots in one of four modes
    FREE_TOP = 25,       // free the temp in top
    JMP = 26,            // relative jump
    JMP_FALSE = 27,      // jump if top is false
    JMP_FALSE_LOOP = 28, // loop exit test
    NOP = 29,            // nothing
    LOAD_ALIAS2 = 30,    // never emitted; acts as LOAD
    LOAD = 31,           // load a variable, or a sub-code
    BREAK = 32,          // break / continue
    CMP = 33,            // comparison
    INDEX = 34,          // subscript
    SWAP = 35,           // swap two slots
    BIT_TMP = 36,        // left operand step of bit operators
    BIT_OR = 37,         // |
    BIT_XOR = 38,        // bitwise exclusive or
    BIT_AND = 39,        // &
    NOT = 40,            // logical not
    INVERT = 41,         // bitwise not
    RESET = 42,          // clear pending index / pop object stack
    CLASS_ACCESS = 43,   // member by index
};
inline constexpr int kOpcodeCount = 44;

// One instruction; the field order is that of the saved form.
struct vrkinstr {
    uint8_t op = 0;    // opcode (Op)
    uint64_t ref = 0;  // a vrkblock*, a small mode number, all ones (-1), or an owned operand
    int64_t arg = 0;   // variable index, count, relative distance or sub-code

    Op opcode() const { return static_cast<Op>(op); }
    vrkblock* ref_block() const { return reinterpret_cast<vrkblock*>(ref); }
    int64_t ref_signed() const { return static_cast<int64_t>(ref); }
};

// `ref` value meaning -1.
inline constexpr uint64_t kRefMinusOne = ~uint64_t{0};

// A `ref` from 0 to 100 is a number (a mode, a count); from here on it is a
// block, unless it is all ones.
inline constexpr uint64_t kFirstBlockRef = 101;

// Signature of a builtin: the calling block, the arguments, the registration's
// user value, the result cell to fill. Returns the result cell, or null/1 for
// "no value".
using vrkbuiltin_fn = std::function<vrkvar*(vrkblock*, std::vector<vrkvar*>&, void*, vrkvar&)>;

// Operand of EXTERNAL: what a native block calls.
struct vrknative {
    vrkbuiltin_fn fn;         // the callable
    void* user = nullptr;     // user value handed to every call
    bool deref_args = false;  // arguments are replaced by the end of their REF chains
};

// Look-up cache of INDEX on class members and native object members (operand of op 34).
struct vrkindex_cache {
    const std::string* key_ptr = nullptr;  // text pointer of the key last looked up
    std::string key;                       // its text
    vrkblock* block = nullptr;             // block it was found in
    const void* object = nullptr;          // member table of a native type it was found in
    uint32_t index = 0;                    // variable index found
};

// Appends an instruction (honours the compile state's emission switch and keeps
// the debug tables when the block has them).
void emit(vrkblock* block, Op op, int64_t arg, uint64_t ref);

// Frees the owned operands of a block's code (native records, look-up caches).
void free_code_operands(std::vector<vrkinstr>& code);

}  // namespace vrk
