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
// time, the last word overlapping the one before it; a key of four to eight
// bytes is two overlapping four-byte words. In line: a hinted keyed read is
// this one compare.
[[gnu::always_inline]] inline bool json_key_equal(const std::string& a, const std::string& b) {
    const std::size_t n = a.size();
    if (n != b.size()) return false;
    const char* p = a.data();
    const char* q = b.data();
    if (n >= 8) {
        uint64_t x = 0;
        uint64_t y = 0;
        for (std::size_t i = 0; i + 8 < n; i += 8) {
            std::memcpy(&x, p + i, 8);
            std::memcpy(&y, q + i, 8);
            if (x != y) return false;
        }
        std::memcpy(&x, p + n - 8, 8);
        std::memcpy(&y, q + n - 8, 8);
        return x == y;
    }
    if (n >= 4) {
        uint32_t x = 0;
        uint32_t y = 0;
        uint32_t u = 0;
        uint32_t v = 0;
        std::memcpy(&x, p, 4);
        std::memcpy(&y, q, 4);
        std::memcpy(&u, p + n - 4, 4);
        std::memcpy(&v, q + n - 4, 4);
        return x == y && u == v;
    }
    for (std::size_t i = 0; i < n; ++i) {
        if (p[i] != q[i]) return false;
    }
    return true;
}

}  // namespace vrk
