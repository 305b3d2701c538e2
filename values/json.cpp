// Storage and look-up of the JSON value: positions, keys, appends and erasure.
#include "values/json.h"

#include <cstring>

#include "base/log.h"
#include "values/pools.h"

namespace vrk {

namespace {

// Beyond this many elements past the end, growing by index is worth a warning:
// it is almost always a script indexing with the wrong number.
constexpr int64_t kBigGrowth = 100;

// Appends plain INT 0 elements until `count` elements exist.
void grow_to(vrkjson* json, std::size_t count) {
    // The vector grows geometrically: filling an array by index one element at
    // a time must not copy the whole array at every store.
    while (json->elements.size() < count) json->elements.push_back(element_new());
}

// The scan behind json_find: the first element whose key equals `key`, or null.
// `keyed_before` receives the number of keyed elements in front of the match;
// elements without a key are not counted, elements with an empty key are counted
// but never compared.
vrkelement* scan(const vrkjson* json, const std::string& key, int64_t& keyed_before) {
    int64_t keyed = 0;
    for (vrkelement* element : json->elements) {
        if (!element->key) continue;
        if (!element->key->empty() && json_key_equal(*element->key, key)) {
            keyed_before = keyed;
            return element;
        }
        ++keyed;
    }
    return nullptr;
}

// The element at `hint` if it carries exactly this (non-empty) key.
vrkelement* hinted(const vrkjson* json, const std::string& key, int64_t hint) {
    if (hint < 0 || static_cast<uint64_t>(hint) >= json->elements.size()) return nullptr;
    vrkelement* element = json->elements[static_cast<std::size_t>(hint)];
    if (!element->key || element->key->empty() || !json_key_equal(*element->key, key))
        return nullptr;
    return element;
}

// Removes and frees the element at `pos`, closing the gap.
void erase_at(vrkjson* json, std::size_t pos) {
    element_free(json->elements[pos]);
    json->elements.erase(json->elements.begin() + static_cast<std::ptrdiff_t>(pos));
}

}  // namespace

int64_t json_position(vrkjson* json, int64_t i) {
    const uint64_t size = json->elements.size();
    if (size == 0) return i < 0 ? 0 : i;
    if (i < 0) {
        // |i| computed unsigned, so the most negative index is no overflow.
        const uint64_t k = (uint64_t{0} - static_cast<uint64_t>(i)) % size;
        return k != 0 ? static_cast<int64_t>(size - k) : 0;
    }
    if (static_cast<uint64_t>(i) >= size) {
        if (static_cast<uint64_t>(i) - size > static_cast<uint64_t>(kBigGrowth))
            log().warn("allocating big json array by index!");
        grow_to(json, static_cast<std::size_t>(i) + 1);
    }
    return i;
}

vrkelement* json_at(vrkjson* json, int64_t i) {
    const int64_t pos = json_position(json, i);
    // Only an empty array gets here with a position still missing.
    grow_to(json, static_cast<std::size_t>(pos) + 1);
    return json->elements[static_cast<std::size_t>(pos)];
}

vrkelement* json_find(vrkjson* json, const std::string& key) {
    return json_find_hinted(json, key, json->last_hit);
}

vrkelement* json_find_hinted(vrkjson* json, const std::string& key, int64_t& hint) {
    if (vrkelement* element = hinted(json, key, hint)) return element;

    // A hit records the count of keyed elements before it, which equals its
    // position only while every element in front is keyed; with plain elements
    // mixed in the next hinted read misses and scans again.
    int64_t keyed_before = 0;
    if (vrkelement* element = scan(json, key, keyed_before)) {
        hint = keyed_before;
        json->last_hit = keyed_before;
        return element;
    }

    const auto size = static_cast<int64_t>(json->elements.size());
    hint = size;
    json->last_hit = size;
    vrkelement* element = element_new_keyed(key);
    json->elements.push_back(element);
    return element;
}

vrkelement* json_append(vrkjson* json, vrkvar* value, vrkblock* block) {
    vrkelement* element = element_new();
    json->elements.push_back(element);
    if (value) assign(element, value, block);
    return element;
}

vrkelement* json_append_keyed(vrkjson* json, vrkvar* value, const std::string& key,
                              vrkblock* block) {
    vrkelement* element = element_new_keyed(key);
    json->elements.push_back(element);
    if (value) assign(element, value, block);
    return element;
}

void json_erase(vrkjson* json, vrkvar* key_cell) {
    if (is_marker(key_cell)) return;
    switch (key_cell->type) {
        case Tag::INT:
        case Tag::FLOAT: {
            // An index past the end grows the array first, exactly as a store
            // there would, and then removes the element it made.
            const int64_t pos = json_position(json, to_int(key_cell));
            if (pos >= 0 && static_cast<uint64_t>(pos) < json->elements.size())
                erase_at(json, static_cast<std::size_t>(pos));
            return;
        }
        case Tag::STRING: {
            if (!key_cell->value.str) {
                log().error("erase: invalid key.");
                return;
            }
            // Keys need not be unique: every match goes, in order. An empty key
            // never matches, as in look-up.
            const std::string key = *key_cell->value.str;
            if (key.empty()) return;
            std::size_t kept = 0;
            for (vrkelement* element : json->elements) {
                if (element->key && json_key_equal(*element->key, key)) {
                    element_free(element);
                } else {
                    json->elements[kept++] = element;
                }
            }
            json->elements.resize(kept);
            return;
        }
        case Tag::DATA: log().error("erase: invalid key."); return;
        default: return;
    }
}

void json_clear(vrkjson* json) {
    for (vrkelement* element : json->elements) element_free(element);
    json->elements.clear();
    json->last_hit = -1;
}

}  // namespace vrk
