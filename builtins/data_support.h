// Pieces shared by the data buffer builtins (builtins/data_*.cpp): the
// mapping from an element type to its buffer tag, the report of a wrong call,
// and the size check every growing operation makes.
//
// The five flat buffers differ only in their element type, so the makers and
// `subset` are written once as templates over the element type E; `buffer_of<E>`
// turns a cell into the buffer of that type (a cell of another tag is emptied
// and converted, a constant cell gives null).
#pragma once

#include <cstdint>
#include <type_traits>
#include <vector>

#include "builtins/arrays_support.h"
#include "builtins/data.h"
#include "values/cell.h"
#include "vm/errors.h"

namespace vrk::lib::data {

using arrays::arg;
using arrays::report;

// The buffer payload of `cell` for element type E, converting the cell first
// when it has another tag; null for a constant cell of another tag.
template <class E>
std::vector<E>* buffer_of(vrkvar* cell);
template <>
inline std::vector<uint8_t>* buffer_of(vrkvar* cell) {
    return as_data(cell);
}
template <>
inline std::vector<float>* buffer_of(vrkvar* cell) {
    return as_floatset(cell);
}
template <>
inline std::vector<double>* buffer_of(vrkvar* cell) {
    return as_doubleset(cell);
}
template <>
inline std::vector<int32_t>* buffer_of(vrkvar* cell) {
    return as_intset(cell);
}
template <>
inline std::vector<int64_t>* buffer_of(vrkvar* cell) {
    return as_bigintset(cell);
}

// A script value as an element of type E: floating elements take the float
// conversion, integer elements the integer conversion cut to their width.
template <class E>
E element_from(const vrkvar* cell) {
    if constexpr (std::is_floating_point_v<E>)
        return static_cast<E>(to_float(cell));
    else
        return static_cast<E>(to_int(cell));
}

// True when `count` elements of type E stay within the buffer limit.
template <class E>
bool fits(int64_t count) {
    return count >= 0 && static_cast<uint64_t>(count) <= kMaxBufferBytes / sizeof(E);
}

// The runtime report of a wrong call against the calling block; `format`
// holds one "%s" that receives the builtin's name.
inline void wrong_call(vrkblock* block, const char* format, const char* name) {
    report_errorf(block, "external_function", format, name);
}

// The runtime report of an index outside a buffer; both numbers print as
// 32-bit integers.
inline void out_of_bounds(vrkblock* block, int64_t index, uint64_t size) {
    report_errorf(block, "external_function", "index out of bounds! %i : %i",
                  static_cast<int>(index), static_cast<int>(size));
}

// The bytes of a DATA cell, or null for any other cell.
inline std::vector<uint8_t>* bytes_of(vrkvar* cell) {
    return cell->type == Tag::DATA ? cell->value.data : nullptr;
}

}  // namespace vrk::lib::data
