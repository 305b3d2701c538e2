// Array builtins that sort: by element value, by element key, or by the value
// each record element holds under a key.
//
// All four run an insertion sort with adjacent swaps over the element
// pointers, so no cell is copied and equal elements keep their order. Arrays
// sorted from script are small; the quadratic sort is the intended one.
#include <cctype>
#include <string>
#include <utility>
#include <vector>

#include "builtins/arrays.h"
#include "builtins/arrays_support.h"
#include "values/operators.h"

namespace vrk::lib {

using arrays::answer_int;
using arrays::arg;
using arrays::json_of;
using arrays::key_of;
using arrays::report;

namespace {

// Order test codes of values/operators.h: code 5 tests a > b, code 4 a < b.
constexpr int kGreater = 5;
constexpr int kLess = 4;

enum class Direction { high_to_low, low_to_high };

// Moves each entry down past its predecessors while `before(entry,
// predecessor)` holds.
template <class T, class Before>
void insertion_sort(std::vector<T>& items, Before before) {
    for (std::size_t i = 1; i < items.size(); ++i) {
        for (std::size_t j = i; j > 0 && before(items[j], items[j - 1]); --j)
            std::swap(items[j], items[j - 1]);
    }
}

// Case-blind text order, byte by byte; of a text and its prefix the shorter
// comes first.
bool key_less(const std::string& a, const std::string& b) {
    const std::size_t n = a.size() < b.size() ? a.size() : b.size();
    for (std::size_t i = 0; i < n; ++i) {
        const int x = std::tolower(static_cast<unsigned char>(a[i]));
        const int y = std::tolower(static_cast<unsigned char>(b[i]));
        if (x != y) return x < y;
    }
    return a.size() < b.size();
}

// The value under `key` in a record element, or null when the element is not
// a record or has no such key. Nothing is created.
vrkvar* field_of(vrkelement* element, const std::string& key) {
    vrkjson* record = json_of(element);
    if (!record) return nullptr;
    for (vrkelement* field : record->elements) {
        if (field->key && !field->key->empty() && json_key_equal(*field->key, key)) return field;
    }
    return nullptr;
}

vrkvar* sort_by_value(vrkblock* block, std::vector<vrkvar*>& args, vrkvar& result,
                      Direction direction) {
    vrkjson* array = args.size() == 1 ? json_of(arg(args, 0)) : nullptr;
    if (!array) {
        report(block, "invalid params!");
        return answer_int(result, 0);
    }
    const int code = direction == Direction::high_to_low ? kGreater : kLess;
    insertion_sort(array->elements, [code](vrkelement* entry, vrkelement* previous) {
        return order_test(code, entry, previous);
    });
    return answer_int(result, 1);
}

vrkvar* sort_by_key(vrkblock* block, std::vector<vrkvar*>& args, vrkvar& result,
                    Direction direction) {
    vrkjson* array = args.size() == 1 || args.size() == 2 ? json_of(arg(args, 0)) : nullptr;
    if (!array) {
        report(block, "invalid params!");
        return answer_int(result, 0);
    }
    const bool descending = direction == Direction::high_to_low;

    if (args.size() == 1) {
        for (vrkelement* element : array->elements) key_of(element);
        insertion_sort(array->elements, [descending](vrkelement* entry, vrkelement* previous) {
            return descending ? key_less(*previous->key, *entry->key)
                              : key_less(*entry->key, *previous->key);
        });
        return answer_int(result, 1);
    }

    // Every element must be a record with the key, or nothing moves.
    const std::string key = to_string(arg(args, 1));
    std::vector<std::pair<vrkelement*, vrkvar*>> rows;
    rows.reserve(array->elements.size());
    for (vrkelement* element : array->elements) {
        vrkvar* field = field_of(element, key);
        if (!field) {
            report(block, "sort key missing in element!");
            return answer_int(result, 0);
        }
        rows.emplace_back(element, field);
    }
    const int code = descending ? kGreater : kLess;
    insertion_sort(rows, [code](const auto& entry, const auto& previous) {
        return order_test(code, entry.second, previous.second);
    });
    for (std::size_t i = 0; i < rows.size(); ++i) array->elements[i] = rows[i].first;
    return answer_int(result, 1);
}

}  // namespace

VRK_BUILTIN(sorthl) { return sort_by_value(block, args, result, Direction::high_to_low); }
VRK_BUILTIN(sortlh) { return sort_by_value(block, args, result, Direction::low_to_high); }
VRK_BUILTIN(sortkeyhl) { return sort_by_key(block, args, result, Direction::high_to_low); }
VRK_BUILTIN(sortkeylh) { return sort_by_key(block, args, result, Direction::low_to_high); }

}  // namespace vrk::lib
