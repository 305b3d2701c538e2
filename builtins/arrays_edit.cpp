// Array builtins that change a container in its middle: circular buffers,
// erasing by position, key or value, and inserting before a position.
#include <string>
#include <vector>

#include "builtins/arrays.h"
#include "builtins/arrays_support.h"

namespace vrk::lib {

using arrays::answer_int;
using arrays::arg;
using arrays::json_of;
using arrays::report;
using arrays::with_vector;

namespace {

// n - 1 without overflow at the lowest integer: the answer erase gives so that
// a loop stepping upwards continues at the same place.
int64_t before(int64_t n) { return static_cast<int64_t>(static_cast<uint64_t>(n) - 1); }

// Empties the array and fills it with `count` fresh elements that carry an
// empty key.
void rebuild(vrkjson* array, uint64_t count) {
    json_clear(array);
    array->elements.reserve(static_cast<std::size_t>(count));
    for (uint64_t i = 0; i < count; ++i)
        array->elements.push_back(element_new_keyed(std::string()));
}

// A value that may live in the array a rebuild is about to release: a copy
// of it outlives the rebuild.
class kept_value {
public:
    kept_value(vrkvar* value, vrkblock* block) {
        copy = cell_new();
        arrays::copy_without_move(copy, value, block);
    }
    ~kept_value() { cell_free(copy); }
    kept_value(const kept_value&) = delete;
    kept_value& operator=(const kept_value&) = delete;

    vrkvar* copy;
};

// Removes `count` entries of a vector from `pos` on, fewer at the end; false
// when `pos` is not an entry.
template <class V>
bool erase_entries(V& values, int64_t pos, int64_t count) {
    if (pos < 0 || static_cast<uint64_t>(pos) >= values.size() || count < 0) return false;
    const uint64_t room = values.size() - static_cast<uint64_t>(pos);
    const uint64_t n = static_cast<uint64_t>(count) < room ? static_cast<uint64_t>(count) : room;
    values.erase(values.begin() + pos, values.begin() + pos + static_cast<int64_t>(n));
    return true;
}

vrkvar* erase_in_array(vrkblock* block, vrkjson* array, vrkvar* index, vrkvar& result) {
    std::vector<vrkelement*>& elements = array->elements;
    if (elements.empty()) return answer_int(result, 0);
    if (index->type == Tag::INT || index->type == Tag::FLOAT) {
        const int64_t i = to_int(index);
        const int64_t pos = i == -1 ? static_cast<int64_t>(elements.size()) - 1 : i;
        if (pos >= 0 && static_cast<uint64_t>(pos) < elements.size()) {
            element_free(elements[static_cast<std::size_t>(pos)]);
            elements.erase(elements.begin() + pos);
        } else {
            report(block, "index out of range!");
        }
        return answer_int(result, before(i));
    }
    if (index->type == Tag::STRING) {
        // Every element with this key goes.
        json_erase(array, index);
        return answer_int(result, 0);
    }
    report(block, "invalid type in erase");
    return answer_int(result, 0);
}

vrkvar* erase_in_text(vrkblock* block, std::vector<vrkvar*>& args, std::string& text,
                      vrkvar& result) {
    vrkvar* index = arg(args, 1);
    // With a count (the third argument, -1 meaning none) a run of bytes goes.
    if (args.size() > 2 && to_int(arg(args, 2)) != -1) {
        const int64_t pos = to_int(index);
        const int64_t count = to_int(arg(args, 2));
        if (pos < 0 || static_cast<uint64_t>(pos) > text.size() || count < 0)
            report(block, "index out of range!");
        else
            text.erase(static_cast<std::size_t>(pos), static_cast<std::size_t>(count));
        return answer_int(result, before(pos));
    }
    if (index->type == Tag::STRING) {
        const std::string piece = to_string(index);
        const std::size_t at = text.find(piece);
        if (at == std::string::npos) return answer_int(result, -1);
        text.erase(at, piece.size());
        return answer_int(result, static_cast<int64_t>(at));
    }
    const int64_t pos = to_int(index);
    if (pos >= 0 && static_cast<uint64_t>(pos) < text.size())
        text.erase(static_cast<std::size_t>(pos), 1);
    return answer_int(result, before(pos));
}

}  // namespace

VRK_BUILTIN(cycle) {
    if (args.size() < 2) {
        report(block, "invalid params!");
        return answer_int(result, -1);
    }
    vrkvar* target = arg(args, 0);
    vrkjson* array = as_json(target);
    if (!array) {
        report(block, "invalid params!");
        return answer_int(result, -1);
    }
    const int64_t max = args.size() > 2 ? to_int(arg(args, 2))
                                        : static_cast<int64_t>(array->elements.size());
    if (max < 0) report(block, "index out of range!");
    if (max <= 0) return answer_int(result, 0);

    const kept_value value(arg(args, 1), block);
    // The buffer holds max + 1 elements (the last one counts writes), but it is
    // compared with max: each call that names max starts from a fresh buffer.
    if (array->elements.size() != static_cast<uint64_t>(max))
        rebuild(array, static_cast<uint64_t>(max) + 1);

    // The oldest element moves to the end of the window and takes the value.
    std::vector<vrkelement*>& elements = array->elements;
    const auto window = static_cast<std::size_t>(max);
    vrkelement* oldest = elements[0];
    for (std::size_t i = 1; i < window; ++i) elements[i - 1] = elements[i];
    elements[window - 1] = oldest;
    assign(oldest, value.copy, block);
    return answer_int(result, 0);
}

VRK_BUILTIN(cycle_get) {
    if (args.size() != 2) {
        report(block, "invalid params!");
        return answer_int(result, -1);
    }
    vrkvar* target = arg(args, 0);
    vrkjson* array = as_json(target);
    if (!array) {
        report(block, "invalid params!");
        return answer_int(result, -1);
    }
    // The second argument is the ring's capacity and also the value written.
    const int64_t capacity = to_int(arg(args, 1));
    if (capacity == 0) return answer_int(result, 0);
    if (capacity < 0) {
        report(block, "index out of range!");
        return answer_int(result, -1);
    }
    const kept_value value(arg(args, 1), block);
    const auto slots = static_cast<uint64_t>(capacity);
    if (array->elements.size() != slots + 1) rebuild(array, slots + 1);

    // The element behind the ring counts the writes.
    vrkelement* counter = array->elements[static_cast<std::size_t>(slots)];
    const int64_t written = to_int(counter);
    set_int(counter, written);
    const int64_t pos = ((written % capacity) + capacity) % capacity;
    assign(array->elements[static_cast<std::size_t>(pos)], value.copy, block);
    set_int(counter, static_cast<int64_t>(static_cast<uint64_t>(written) + 1));
    return answer_int(result, 0);
}

VRK_BUILTIN(erase) {
    if (args.size() < 2) {
        report(block, "invalid params in erase!");
        return answer_int(result, 0);
    }
    vrkvar* target = arg(args, 0);
    if (vrkjson* array = json_of(target)) return erase_in_array(block, array, arg(args, 1), result);
    if (target->type == Tag::STRING && target->value.str)
        return erase_in_text(block, args, *target->value.str, result);

    const int64_t pos = to_int(arg(args, 1));
    int64_t count = args.size() > 2 ? to_int(arg(args, 2)) : 1;
    if (count == -1) count = 1;
    bool erased = false;
    if (!with_vector(target, [&](auto& values) { erased = erase_entries(values, pos, count); })) {
        report(block, "invalid type in erase2");
        return answer_int(result, 0);
    }
    if (!erased) report(block, "index out of range!");
    return answer_int(result, 0);
}

VRK_BUILTIN(erase_value) {
    if (args.size() < 2) {
        report(block, "invalid params!");
        return answer_int(result, 0);
    }
    vrkvar* target = arg(args, 0);
    if (vrkjson* array = json_of(target)) {
        // The text first: the value may be one of the elements that go.
        const std::string text = to_string(arg(args, 1));
        std::vector<vrkelement*>& elements = array->elements;
        std::size_t kept = 0;
        for (vrkelement* element : elements) {
            if (to_string(element) == text)
                element_free(element);
            else
                elements[kept++] = element;
        }
        elements.resize(kept);
        return answer_int(result, 0);
    }
    report(block, target->type == Tag::STRING ? "strings not supported with this function."
                                              : "invalid type rease value");
    return answer_int(result, 0);
}

VRK_BUILTIN(insert) {
    if (args.size() < 3) {
        report(block, "invalid params!");
        return answer_int(result, 0);
    }
    vrkvar* target = arg(args, 0);
    const int64_t index = to_int(arg(args, 1));
    vrkvar* value = arg(args, 2);
    if (vrkjson* array = json_of(target)) {
        std::vector<vrkelement*>& elements = array->elements;
        if (index < 0) {
            report(block, "index out of range!");
        } else if (static_cast<uint64_t>(index) <= elements.size()) {
            // Past the size nothing happens; at the size the element is appended.
            const arrays::value_snapshot snapshot(value, target, block);
            vrkelement* element = element_new();
            assign(element, snapshot.of(value), block);
            elements.insert(elements.begin() + index, element);
        }
    } else if (target->type == Tag::STRING && target->value.str) {
        std::string& text = *target->value.str;
        const std::string piece = to_string(value);
        if (index < 0 || static_cast<uint64_t>(index) > text.size())
            report(block, "index out of range!");
        else
            text.insert(static_cast<std::size_t>(index), piece);
    }
    return answer_int(result, 0);
}

}  // namespace vrk::lib
