// Pieces shared by the string builtins (builtins/strings*.cpp): reading text
// and number arguments, the two forms of a wrong-call report, and the answers.
//
// A text argument is read through the value's to-string form, so a number
// passed as text works; a STRING argument is read in place, without a copy.
// Arguments are never written: a row that passes its arguments as plain
// references would otherwise change the caller's variables. Every body first
// computes its answer into a local and only then writes the result cell,
// because the result cell may be one of the arguments (a call's value passed
// on at once).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "values/cell.h"
#include "values/json.h"
#include "vm/errors.h"

namespace vrk::lib::strings {

// The text of a cell: the STRING payload itself, or its to-string form kept in
// `scratch`. The reference is valid while the cell and `scratch` are.
inline const std::string& text_of(const vrkvar* cell, std::string& scratch) {
    if (cell->type == Tag::STRING && cell->value.str) return *cell->value.str;
    scratch = to_string(cell);
    return scratch;
}

// The to-string form of argument `i`, or `fallback` when the call has fewer.
inline std::string text_arg(const std::vector<vrkvar*>& args, std::size_t i,
                            const std::string& fallback = std::string()) {
    return i < args.size() ? to_string(args[i]) : fallback;
}

// Argument `i` as an integer, or `fallback` when the call has fewer.
inline int64_t int_arg(const std::vector<vrkvar*>& args, std::size_t i, int64_t fallback) {
    return i < args.size() ? to_int(args[i]) : fallback;
}

// A start offset: negative counts as 0; past the end stays past the end, where
// every search finds nothing.
inline std::size_t start_offset(int64_t start) {
    return start < 0 ? 0 : static_cast<std::size_t>(start);
}

// A found offset as the script sees it: -1 for nothing.
inline int64_t offset_value(std::size_t pos) {
    return pos == std::string::npos ? -1 : static_cast<int64_t>(pos);
}

// The logged report of a wrong call: "wrong params!" against the calling block.
inline void wrong_params(vrkblock* block, const char* area = "external_function") {
    report_error(block, area, "wrong params!");
}

// The raised report of a wrong call, naming the builtin.
inline void wrong_params_raised(vrkblock* block, const char* name) {
    report_errorf(block, "external_function", "wrong params! %s", name);
}

inline vrkvar* answer_int(vrkvar& result, int64_t value) {
    set_int(&result, value);
    return &result;
}

inline vrkvar* answer_text(vrkvar& result, const std::string& text) {
    set_string(&result, text);
    return &result;
}

// The result cell as an empty STRING for a body to write its answer into
// directly, when that is the same as answer_text: the cell holds a plain
// integer (as every call hands it over), so no argument's text can live in it.
// Null otherwise; the body then answers with answer_text. Read the arguments
// first: an argument that is the result cell itself was read as its text.
inline std::string* result_text(vrkvar& result) {
    if (result.type != Tag::INT || result.constant) return nullptr;
    reset(&result, Tag::STRING);
    return result.type == Tag::STRING ? result.value.str : nullptr;
}

// set_string of `size` bytes at `text` into a fresh element, which the text
// cannot live in, without set_string's safety copy.
inline void put_text(vrkelement* element, const char* text, std::size_t size) {
    if (element->type == Tag::INT && !element->constant) {
        reset(element, Tag::STRING);
        if (element->type == Tag::STRING) {
            element->value.str->assign(text, size);
            return;
        }
    }
    set_string(element, text, size);
}

// The result as a JSON array of STRING elements, one per piece, replacing
// whatever the result held.
inline vrkvar* answer_pieces(vrkvar& result, const std::vector<std::string>& pieces) {
    reset(&result, Tag::JSON);
    if (result.type != Tag::JSON) return &result;
    for (const std::string& piece : pieces) {
        vrkelement* element = element_new();
        set_string(element, piece);
        result.value.json->elements.push_back(element);
    }
    return &result;
}

}  // namespace vrk::lib::strings
