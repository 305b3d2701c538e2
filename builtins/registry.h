// The builtin library's registration: one table of every builtin, entered into
// an engine in table order.
//
// The language has no standard library written in itself; every library
// function is a native body registered under its script name. The table
// (builtins/table.cpp) lists all of them in their fixed registration order,
// with what the compiler and `help` need to know: the declared parameter count,
// the two argument switches, and the description text. The two global
// variables of the library (`os` and `M_PI`) are rows of the same table, so the
// order of the whole name space is visible in one place.
//
// A body receives the engine that registered it in front of the usual builtin
// arguments; registration wraps it into a callable that captures the engine.
// Rows of families that are not built yet have no body and are skipped.
//
// The declared parameter count informs the compiler only (16 means "up to
// 16"): every body looks at the real size of its argument vector.
// `plain_args` makes the compiler pass every argument as a plain reference to
// the caller's cell; `deref_args` makes the call replace REF arguments by the
// end of their chains first.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace vrk {

class vrkengine;
struct vrkblock;
struct vrkvar;

// The native body of a builtin: the engine that registered it, the calling
// block, the arguments in declared order, the registration's user value and
// the result cell to fill. Returns the result cell, another cell that is then
// the call's value, or null/1 for "no value".
using vrkbuiltin_body = vrkvar* (*)(vrkengine* engine, vrkblock* block, std::vector<vrkvar*>& args,
                                    void* user, vrkvar& result);

// Declares (or, followed by a body, defines) a builtin body of that name. A
// body uses what it needs of its arguments.
#define VRK_BUILTIN(name)                                                                  \
    vrkvar* name([[maybe_unused]] vrkengine* engine, [[maybe_unused]] vrkblock* block,     \
                 [[maybe_unused]] std::vector<vrkvar*>& args, [[maybe_unused]] void* user, \
                 [[maybe_unused]] vrkvar& result)

// Sets up the cell of a global variable after its registration.
using vrkvariable_setup = void (*)(vrkengine* engine, vrkvar* cell);

// What a row registers.
enum class vrkrow_kind : uint8_t {
    function,     // a global function
    constructor,  // a global function that makes a native object of type `constructs`
    variable,     // a global variable
};

// One row of the builtin table.
struct vrkbuiltin_row {
    const char* name;         // script name; its address keys the description map
    vrkrow_kind kind;         // function, constructor or variable
    int16_t param_count;      // declared parameters (0 for a variable)
    bool plain_args;          // arguments arrive as plain references to the caller's cells
    bool deref_args;          // REF arguments are replaced by the end of their chains
    const char* description;  // help text, kept as it stands
    vrkbuiltin_body body;     // function body; null while its family is not built
    vrkvariable_setup setup;  // variable set-up; null while its value type is not built
    const char* constructs;   // script type name a constructor makes, else null
};

// The whole table, in registration order.
std::span<const vrkbuiltin_row> builtin_table();

// Registers every row of the table that has a body (or, for a variable, a
// set-up) into the engine, in table order. Called once by the engine's
// constructor.
void init_builtins(vrkengine* engine);

}  // namespace vrk
