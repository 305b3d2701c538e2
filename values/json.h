// The JSON value: an ordered list and a keyed map in one record.
//
// Elements are cells with a key (vrkelement); keyed and positional elements mix
// freely, keys are not unique (the first match wins, erasure removes all
// matches), and look-up by key is a linear scan. That is deliberate: script
// records are small and read the same key over and over, so the position of the
// last hit (`last_hit`, or the hint word an INDEX instruction carries) turns a
// repeated read into a single compare. Element order is visible in JSON text.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "values/cell.h"

namespace vrk {

struct vrkjson {
    std::vector<vrkelement*> elements;  // in insertion order, owned
    int64_t last_hit = -1;              // count of keyed elements before the last key found; -1 new
};

// Normalises an index (negative counts from the end) and grows the array with
// INT 0 elements until a non-negative index is valid.
int64_t json_position(vrkjson* json, int64_t i);
// The element at position i, created if needed.
vrkelement* json_at(vrkjson* json, int64_t i);
// The element with that key, appended (INT 0) if absent.
vrkelement* json_find(vrkjson* json, const std::string& key);
// The same, with the caller's hint word in place of last_hit.
vrkelement* json_find_hinted(vrkjson* json, const std::string& key, int64_t& hint);
// Appends a copy of value (blank INT 0 when null).
vrkelement* json_append(vrkjson* json, vrkvar* value, vrkblock* block);
vrkelement* json_append_keyed(vrkjson* json, vrkvar* value, const std::string& key,
                              vrkblock* block);
// Erases by position (INT/FLOAT key) or every element with a key (STRING key).
void json_erase(vrkjson* json, vrkvar* key_cell);
// Frees all elements.
void json_clear(vrkjson* json);
// Key comparison of look-up and erasure: length first, then eight bytes at a
// time. Inline: a hinted keyed read is this one compare.
inline bool json_key_equal(const std::string& a, const std::string& b) {
    const std::size_t n = a.size();
    if (n != b.size()) return false;
    const char* p = a.data();
    const char* q = b.data();
    std::size_t i = 0;
    for (; i + 8 <= n; i += 8) {
        uint64_t x = 0;
        uint64_t y = 0;
        std::memcpy(&x, p + i, 8);
        std::memcpy(&y, q + i, 8);
        if (x != y) return false;
    }
    for (; i < n; ++i) {
        if (p[i] != q[i]) return false;
    }
    return true;
}

}  // namespace vrk
