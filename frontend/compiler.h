// The token compiler: private interface shared by the files of the front end.
//
// A statement reaches the compiler as a string, a "token". There is no lexer and
// no syntax tree: `compile_token` looks for structural characters in a fixed
// order and either emits instructions or cuts the token into smaller strings
// and calls itself on them. Precedence, associativity and even the difference
// between a statement and an expression come out of that order:
//
//   markers and comma lists first, then list literals and block references,
//   keywords without operands, then the split point (the first depth-0 "=", "("
//   or "{"), binary operators (split at the first operator kind of
//   "&|<>+-*/^" found at depth 0, so every operator is right-associative),
//   assignments and comparisons, bodies, calls and statements, and last the
//   atoms: names, literals, subscripts.
//
// Every value lives in a cell of some block's `vars`; an instruction names a
// cell by (block in `ref`, index in `arg`). Constants are hidden cells of the
// block, cached by their text for the block being compiled. The functions
// return the cell the token denotes when the compiler knows it (used as
// compile-time type knowledge), or null.
//
// The companions live in their own files: assignment (assign.cpp), calls
// (calls.cpp), function declarations (functions.cpp), control statements
// (statements.cpp), list literals, block references and subscripts
// (literals.cpp), name resolution (names.cpp), classes, singletons and
// structs (classes.cpp).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "frontend/compile_state.h"
#include "values/cell.h"
#include "vm/block.h"
#include "vm/instruction.h"

namespace vrk {

// ---- the token compiler (expressions.cpp) ------------------------------------------

// Compiles one token. `in_class`: the token is the right side of a class
// declaration. `block_index`, may be null: receives the index of the child block
// the token stands for; -2 on entry marks a class body. `lazy`: a child made
// here from plain text is not compiled yet.
vrkvar* compile_token(vrkblock* b, std::string token, bool in_class, int32_t* block_index,
                      bool lazy);

// The usual recursive form: not in a class, not lazy.
inline vrkvar* compile_text(vrkblock* b, const std::string& text, int32_t* block_index = nullptr) {
    return compile_token(b, text, false, block_index, false);
}

// `a == b`, `a != b`, `a >= b`, `a <= b` and the compound assignments `a += b`
// and their kind; `s` is the position of the "=".
vrkvar* token_compound(vrkblock* b, std::size_t s, std::string& token, std::string& raw_token,
                       int32_t* block_index, std::string& left, std::string& right);

// Fills `cell` from literal text (numbers, quoted strings); false when the text
// is no literal, the cell then holding the text as a STRING. Malformed numbers
// are reported and count as no literal.
bool fill_literal(vrkvar* cell, const std::string& text);

// ---- assignment (assign.cpp) ---------------------------------------------------------

// A plain "=": declarations, stores, subscripted and dereferenced targets.
vrkvar* token_assign(vrkblock* b, std::string& token, std::string& raw_token, int32_t* block_index,
                     std::string& left, std::string& right);

// ---- calls and statements (calls.cpp, statements.cpp) --------------------------------

// Every token whose first structural character is "(": parentheses, calls and
// the statements `if`, `else`, `while`, `for`. `s` is the position of the "(".
vrkvar* token_call(vrkblock* b, std::size_t s, bool in_class, std::string& token,
                   std::string& raw_token, int32_t* block_index, std::string& left,
                   std::string& right);

// True when `head` names a control statement handled by token_statement.
bool is_statement_head(const std::string& head);

// `if`, `else if`, `else (c)`, `while` and `for`: `condition` is the text in the
// parentheses, `body` the text behind them.
vrkvar* token_statement(vrkblock* b, const std::string& head, bool in_class, int32_t* block_index,
                        std::string& condition, std::string& body);

// ---- function declarations (functions.cpp) --------------------------------------------

// What the text in front of a parameter list says about the function, and the
// cell the name stands for, as the callee search (calls.cpp) found or made it.
struct function_head {
    std::string name;               // the function's name or member path; empty when anonymous
    std::string captures;           // text of a lambda's capture list; empty: a plain function
    bool is_global = false;         // `global`: the function is a global of the engine
    bool is_extern = false;         // `extern`: entered in the engine's extern table
    bool is_locked = false;         // `locked`: its calls take turns
    bool has_return_type = false;   // a word named the return type
    bool returns_array = false;     // the return type word ended in "[]"
    vrkvar* return_type = nullptr;  // the cell that stands for the return type, or null
    bool indexed_name = false;      // the name has subscripts: the function is stored through them
    bool reserved_slot = false;     // the name is one of the reserved functions of a class
    vrkvar* target = nullptr;       // the cell that receives the function, or null
    int64_t index = -1;             // its index in `owner`, -1 when it has none
    vrkblock* owner = nullptr;      // the block that holds it, or null
};

// The words in front of a declared function's name: attributes and the return
// type. `token` is the whole statement, named in the messages.
void read_function_attributes(vrkblock* b, const std::vector<std::string>& words,
                              function_head& head, const std::string& token);

// A function declaration `name(params) {...}` or `name(params) = {...}`:
// `body` is the text behind the parameter list, `params` the parameter texts.
// Returns the cell that receives the function, or null.
vrkvar* token_function_declaration(vrkblock* b, function_head& head, std::string body,
                                   const std::vector<std::string>& params, bool in_class,
                                   const std::string& token);

// ---- list literals, block references and subscripts (literals.cpp) ------------------

// `[...]` list literal; `close` is the position of its "]".
vrkvar* token_list_literal(vrkblock* b, const std::string& token, std::size_t close);
// "##BLKn": the FUNCTION cell that stands for child n; stores n in `block_index`.
vrkvar* token_block_ref(vrkblock* b, const std::string& token, int32_t* block_index);
// The subscripts of `a[1]["x"]`, with the cell of `a` (or null) as `start`;
// `is_target` makes the last subscript select an element for a store.
vrkvar* token_index_chain(vrkblock* b, vrkvar* start, std::vector<std::string>& list,
                          bool is_target);

// ---- name resolution (names.cpp) -------------------------------------------------------

// A name as this block sees it: its own table, then the enclosing blocks, then
// the engine's globals and registered functions. `index` and `owner` receive
// where the cell lives (-1 and null when it has no address).
vrkvar* find_variable(vrkblock* b, const std::string& name, int64_t* index, vrkblock** owner);
vrkvar* find_in_parents(vrkblock* b, const std::string& name, int64_t* index, vrkblock** owner);
vrkvar* find_global(vrkblock* b, const std::string& name, int64_t* index, vrkblock** owner);
// True when a bare name inside a method means a member of the enclosing class.
bool needs_this(vrkblock* b, std::string name);
// The cell that stands for a type word of a declaration, or null.
vrkvar* resolve_type(vrkblock* b, std::string text);
// Turns a dotted path `a.b.$c` into subscripts, in place: members of a class
// known at compile time become positions (`a[12]`), members of a struct
// layout become element positions, anything else a key looked up at run time
// (`a["b"]`, `a[c]`). Returns the cell the compiler knows the last piece to
// be (a struct element, the element type of a typed array), or null; the
// subscripts the path became meet a class member's type again when compiled.
vrkvar* rewrite_member_path(vrkblock* b, std::string& token);
// A member of a class block (`cls`, or `b` itself when null) by name: true and
// its index when the class has it. The reserved slots answer to their names.
bool find_member(vrkblock* b, vrkblock* cls, const std::string& name, int64_t& index);
// The declared return type of the function block `fn` as the compile of `b`
// and its enclosing blocks recorded it, or null.
const std::pair<vrkvar*, uint8_t>* declared_return_type(vrkblock* b, vrkblock* fn);

// A member of a native script type, as its member records describe it.
struct native_member {
    std::string position;     // the member's position in decimal; empty for the open record
    std::string result_type;  // type name of what the member gives, or empty
};
// Looks `name` up among the member records of the native type `type_name`:
// the record with that name, or the open record that ends the table. False
// when the type is unknown or has neither.
bool find_native_member(const std::string& type_name, const std::string& name, native_member& hit);

// ---- classes, singletons and structs (classes.cpp) -------------------------------------

// The class block a compile-time cell stands for: the block of a CLASS cell or
// of a cell with a class hint; null for anything else.
vrkblock* known_class(vrkvar* cell);
// The CLASS cell that declares the class `b` belongs to (the nearest block
// with the class bit, `b` included), or null.
vrkvar* enclosing_class_cell(vrkblock* b);
// The struct block a compile-time cell is laid out by (a struct variable or a
// cell with a struct hint), or null.
vrkblock* known_struct(vrkvar* cell);
// The layout of a struct block: the variables a record of it holds, in order,
// each with its name (empty for a hidden one).
std::vector<std::pair<std::string, vrkvar*>> struct_layout(vrkblock* layout);
// A member of the record a compile-time cell describes (the layout of its
// struct, or the elements of a JSON value the compiler holds), by key with its
// position, or by position; null when there is none.
vrkvar* layout_member(vrkvar* cell, const std::string& key, int64_t& position);
vrkvar* layout_member_at(vrkvar* cell, int64_t position);
// `class name = {...}` and `singleton name = {...}`: `cell` becomes the class
// whose body is child `child` of `b`; the body is compiled and run at once.
// Returns the class block, or null when the right side was no body.
vrkblock* declare_class(vrkblock* b, vrkvar* cell, const std::string& name, int32_t child,
                        bool singleton);
// The part of a class declaration that follows the type hint of the new
// variable: the cell is made the class cell of `cls` again.
void finish_class_declaration(vrkblock* b, vrkvar* cell, vrkblock* cls, const std::string& name);
// `struct name = {...}`: `cell` becomes the struct whose body is child `child`.
void declare_struct(vrkblock* b, vrkvar* cell, int32_t child);
// `left op right` with a left operand known to be a class that defines the
// operator (`opadd`, `opsub`, `opmult`, `opdiv`): compiled as the call
// `left.opadd(right)`. False, with nothing compiled, otherwise.
bool class_operator(vrkblock* b, char op, const std::string& left, const std::string& right,
                    int32_t* block_index, vrkvar*& result);

// ---- driver helpers (compile.cpp) -----------------------------------------------------

// Frees every instruction and every variable of the block: the reaction to a
// body that cannot be compiled.
void discard_block(vrkblock* b);

// ---- small helpers -------------------------------------------------------------------------

// `flags` bit of a cell that stands for a value of a native type.
inline constexpr uint16_t kNativeValueFlag = 0x0040;

// The `ref` operand that names a block.
inline uint64_t ref_of(const vrkblock* b) { return reinterpret_cast<uint64_t>(b); }

// Appends a fresh cell to the block's variables and returns its index.
inline uint32_t append_cell(vrkblock* b, Tag tag = Tag::INT) {
    const uint32_t index = static_cast<uint32_t>(b->vars.size());
    b->vars.push_back(cell_new(tag));
    return index;
}

// Number of blanks at the front of `text`.
inline std::size_t leading_blanks(const std::string& text) {
    std::size_t n = 0;
    while (n < text.size() && text[n] == ' ') ++n;
    return n;
}
inline void trim_leading_blanks(std::string& text) { text.erase(0, leading_blanks(text)); }
inline void trim_trailing_blanks(std::string& text) {
    std::size_t end = text.size();
    while (end > 0 && text[end - 1] == ' ') --end;
    text.resize(end);
}
inline void trim_blanks(std::string& text) {
    trim_trailing_blanks(text);
    trim_leading_blanks(text);
}
// True when `text` holds nothing but blanks (or nothing).
inline bool all_blanks(const std::string& text) { return leading_blanks(text) == text.size(); }
inline bool starts_with(const std::string& text, const char* prefix) {
    return text.rfind(prefix, 0) == 0;
}

// Reads a decimal integer the way the classic string-to-int routine does:
// leading white space, a sign, digits, anything behind them ignored. False
// when there are no digits or the value does not fit in 32 bits.
bool read_decimal(const std::string& text, int32_t& out);

// Collects the subscript texts of `token` from the "[" at `open`: the text
// inside each bracket pair at depth 0 behind it. False when a "]" is missing;
// `list` then holds the subscripts read so far.
bool collect_subscripts(const std::string& token, std::size_t open, std::vector<std::string>& list);

}  // namespace vrk
