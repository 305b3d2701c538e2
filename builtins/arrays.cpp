// Array builtins that make containers, measure them, and add or take elements
// at the end; the object forwarding of count, push, pop, has_key and sync.
#include "builtins/arrays.h"

#include <string>
#include <vector>

#include "base/log.h"
#include "builtins/arrays_support.h"
#include "builtins/data.h"

namespace vrk::lib {

using arrays::answer_error;
using arrays::answer_int;
using arrays::answer_text;
using arrays::arg;
using arrays::json_of;
using arrays::key_of;
using arrays::report;
using arrays::with_vector;

namespace {

// Runs one container operation of the object behind the PTR `target`; `input`
// is the operation's argument, if any. The answer is INT 1 unless the
// operation writes one. False, after the report, when the handle is stale.
template <class Op>
bool forward(vrkblock* block, vrkvar* target, vrkvar& result, Op op,
             const vrkvar* input = nullptr) {
    vrkobject* object = arrays::live_object(block, target);
    if (!object) return false;
    // The handle or the argument may be the result cell itself (a call's value
    // passed on at once): the object then answers into a cell of its own, and
    // the result is overwritten only after the operation.
    vrkvar* scratch = target == &result || input == &result ? cell_new() : nullptr;
    vrkvar* answer = scratch ? scratch : &result;
    set_int(answer, 1);
    ScriptArrayReturn done = op(object, answer);
    // A deferred answer runs on a worker while the block sleeps; into a cell
    // of our own it must finish here.
    if (scratch)
        arrays::finish(std::move(done));
    else
        run_deferred(done, block, answer);
    if (scratch) {
        assign(&result, scratch, block);
        cell_free(scratch);
    }
    return true;
}

// The answer of a push onto an array: a REF to the new element, so that the
// script can go on writing through it. When the array is the result cell
// itself, the answer is the array.
vrkvar* answer_element(vrkvar* array, vrkelement* element, vrkvar& result) {
    if (array == &result) return &result;
    set_ref(&result, element);
    return &result;
}

// The index of the last element of a vector, as push answers it.
template <class V>
int64_t last_index(const V& values) {
    return static_cast<int64_t>(values.size()) - 1;
}

}  // namespace

VRK_BUILTIN(json) {
    if (args.empty()) {
        reset(&result, Tag::JSON);
        return &result;
    }
    vrkvar* target = arg(args, 0);
    vrkjson* array = as_json(target);
    if (!array) {
        report(block, "invalid params!");
        return target;
    }
    // Grows what is there; an existing array keeps its elements.
    const int64_t size = args.size() > 1 ? to_int(arg(args, 1)) : 0;
    for (int64_t i = 0; i < size; ++i) array->elements.push_back(element_new());
    return target;
}

VRK_BUILTIN(jsonvar) {
    reset(&result, Tag::JSON);
    return &result;
}

VRK_BUILTIN(count) {
    if (args.size() != 1) {
        log().log("no params passed to count() !");
        return answer_int(result, 0);
    }
    vrkvar* target = arg(args, 0);
    switch (target->type) {
        case Tag::STRING:
            return answer_int(
                result, target->value.str ? static_cast<int64_t>(target->value.str->size()) : 0);
        case Tag::JSON:
            return answer_int(result, static_cast<int64_t>(target->value.json->elements.size()));
        case Tag::PTR:
            if (!forward(block, target, result, [block](vrkobject* object, vrkvar* answer) {
                    return object->count(block, answer);
                }))
                return answer_int(result, 0);
            return &result;
        default: {
            // A set's size in bytes over its element width is its element count.
            int64_t size = 0;
            with_vector(target, [&size](const auto& values) {
                size = static_cast<int64_t>(values.size());
            });
            return answer_int(result, size);
        }
    }
}

VRK_BUILTIN(empty) {
    if (args.size() != 1) {
        report(block, "no argument passed");
        return answer_int(result, 1);
    }
    vrkvar* target = arg(args, 0);
    switch (target->type) {
        case Tag::STRING:
            return answer_int(result, !target->value.str || target->value.str->empty() ? 1 : 0);
        case Tag::JSON: return answer_int(result, target->value.json->elements.empty() ? 1 : 0);
        default: {
            // Anything that is not a container counts as empty.
            bool nothing = true;
            with_vector(target, [&nothing](const auto& values) { nothing = values.empty(); });
            return answer_int(result, nothing ? 1 : 0);
        }
    }
}

VRK_BUILTIN(clear) {
    if (args.size() == 1) {
        vrkvar* target = arg(args, 0);
        switch (target->type) {
            case Tag::STRING:
                if (target->value.str) target->value.str->clear();
                break;
            case Tag::JSON: json_clear(target->value.json); break;
            default: with_vector(target, [](auto& values) { values.clear(); }); break;
        }
    }
    return answer_int(result, 0);
}

VRK_BUILTIN(sync) {
    if (args.size() != 1) {
        log().log("no params passed to sync() !");
        return answer_int(result, 0);
    }
    vrkvar* target = arg(args, 0);
    if (target->type != Tag::PTR) {
        report(block, "no sync object passed!");
        return answer_int(result, 0);
    }
    if (!forward(block, target, result, [](vrkobject* object, vrkvar*) { return object->sync(); }))
        return answer_int(result, 0);
    return answer_int(result, 1);
}

VRK_BUILTIN(resize) {
    if (args.size() < 2) {
        report(block, "invalid params!");
        return answer_int(result, 0);
    }
    vrkvar* target = arg(args, 0);
    const int64_t size = to_int(arg(args, 1));
    if (target->type == Tag::JSON) {
        // A negative size leaves the array alone; growing appends INT 0s,
        // shrinking releases the surplus from the end.
        if (size >= 0) {
            std::vector<vrkelement*>& elements = target->value.json->elements;
            const auto wanted = static_cast<uint64_t>(size);
            while (elements.size() < wanted) elements.push_back(element_new());
            while (elements.size() > wanted) {
                element_free(elements.back());
                elements.pop_back();
            }
        }
    } else if (target->type == Tag::PTR) {
        arrays::live_object(block, target);
    } else if (size >= 0) {
        // New entries are zero; a negative size, like on an array, does nothing,
        // and a buffer is never grown past the buffer limit.
        bool too_large = false;
        with_vector(target, [size, &too_large](auto& values) {
            const auto wanted = static_cast<uint64_t>(size);
            too_large = wanted > kMaxBufferBytes / sizeof(values[0]);
            if (!too_large) values.resize(static_cast<std::size_t>(wanted));
        });
        if (too_large) report(block, "invalid buffer size!");
    }
    return answer_int(result, 1);
}

VRK_BUILTIN(push) {
    if (args.size() < 2) {
        report(block, "invalid params!");
        return answer_error(result, "invalid params");
    }
    vrkvar* target = arg(args, 0);
    vrkvar* value = arg(args, 1);
    switch (target->type) {
        case Tag::DATA: {
            std::vector<uint8_t>& bytes = *as_data(target);
            if (value->type == Tag::DATA) {
                if (bytes.size() + value->value.data->size() > kMaxBufferBytes) {
                    report(block, "invalid buffer size!");
                    return answer_int(result, last_index(bytes));
                }
                // A copy first: the bytes may be the target's own.
                const std::vector<uint8_t> more = *value->value.data;
                bytes.insert(bytes.end(), more.begin(), more.end());
            } else {
                bytes.push_back(static_cast<uint8_t>(to_int(value) & 0xFF));
            }
            return answer_int(result, last_index(bytes));
        }
        case Tag::FLOATSET:
            target->value.floatset->push_back(static_cast<float>(to_float(value)));
            return answer_int(result, last_index(*target->value.floatset));
        case Tag::DOUBLESET:
            target->value.doubleset->push_back(to_float(value));
            return answer_int(result, last_index(*target->value.doubleset));
        case Tag::INTSET:
            target->value.intset->push_back(static_cast<int32_t>(to_int(value)));
            return answer_int(result, last_index(*target->value.intset));
        case Tag::BIGINTSET:
            target->value.bigintset->push_back(to_int(value));
            return answer_int(result, last_index(*target->value.bigintset));
        case Tag::PTR:
            if (!forward(
                    block, target, result,
                    [block, value](vrkobject* object, vrkvar* answer) {
                        return object->push(block, answer, value);
                    },
                    value))
                return answer_error(result, "pointer invalid");
            return &result;
        default: break;
    }
    // Anything else becomes an array first: pushing onto a number makes a list.
    vrkjson* array = as_json(target);
    if (!array) {
        report(block, "invalid params!");
        return answer_error(result, "invalid params");
    }
    const arrays::value_snapshot snapshot(value, target, block);
    vrkelement* element = json_append(array, snapshot.of(value), block);
    return answer_element(target, element, result);
}

VRK_BUILTIN(push_ref) {
    if (args.size() < 2) {
        report(block, "invalid params!");
        return answer_error(result, "invalid params");
    }
    vrkvar* target = arg(args, 0);
    vrkvar* value = arg(args, 1);
    vrkjson* array = as_json(target);
    if (!array) {
        report(block, "invalid params!");
        return answer_error(result, "invalid params");
    }
    vrkelement* element = json_append(array, nullptr, block);
    set_ref(element, value);
    return answer_element(target, element, result);
}

VRK_BUILTIN(push_key) {
    if (args.size() != 3 || !json_of(arg(args, 0))) {
        report(block, "invalid params!");
        return answer_int(result, -1);
    }
    vrkvar* target = arg(args, 0);
    vrkvar* value = arg(args, 2);
    // Keys need not be unique: an existing element with this key stays.
    const std::string key = to_string(arg(args, 1));
    const arrays::value_snapshot snapshot(value, target, block);
    vrkjson* array = target->value.json;
    json_append_keyed(array, snapshot.of(value), key, block);
    return answer_int(result, last_index(array->elements));
}

VRK_BUILTIN(pop) {
    if (args.empty()) {
        report(block, "invalid params!");
        return answer_int(result, 0);
    }
    vrkvar* target = arg(args, 0);
    switch (target->type) {
        case Tag::JSON: {
            std::vector<vrkelement*>& elements = target->value.json->elements;
            if (elements.empty()) return answer_int(result, -1);
            element_free(elements.back());
            elements.pop_back();
            return answer_int(result, last_index(elements));
        }
        case Tag::STRING: {
            std::string* text = target->value.str;
            if (!text || text->empty()) {
                report(block, "index out of range!");
                return answer_int(result, -1);
            }
            text->pop_back();
            return answer_int(result, last_index(*text));
        }
        case Tag::PTR:
            if (!forward(block, target, result, [block](vrkobject* object, vrkvar* answer) {
                    return object->pop(block, answer);
                }))
                return answer_int(result, 0);
            return &result;
        default: break;
    }
    int64_t last = 0;
    bool was_empty = false;
    if (!with_vector(target, [&](auto& values) {
            was_empty = values.empty();
            if (!was_empty) values.pop_back();
            last = last_index(values);
        }))
        return answer_int(result, 0);
    if (was_empty) report(block, "index out of range!");
    return answer_int(result, last);
}

VRK_BUILTIN(key) {
    vrkjson* array = args.size() == 2 ? json_of(arg(args, 0)) : nullptr;
    if (!array) {
        report(block, "invalid params!");
        return answer_text(result, std::string());
    }
    const int64_t index = to_int(arg(args, 1));
    if (index < 0 || static_cast<uint64_t>(index) >= array->elements.size()) {
        report(block, "index out of range!");
        return answer_text(result, std::string());
    }
    const std::string text = key_of(array->elements[static_cast<std::size_t>(index)]);
    return answer_text(result, text);
}

VRK_BUILTIN(setkey) {
    vrkjson* array = args.size() == 3 ? json_of(arg(args, 0)) : nullptr;
    if (!array) {
        report(block, "invalid params!");
        return answer_text(result, std::string());
    }
    const int64_t index = to_int(arg(args, 1));
    if (index < 0 || static_cast<uint64_t>(index) >= array->elements.size()) {
        report(block, "index out of range!");
        return answer_text(result, std::string());
    }
    key_of(array->elements[static_cast<std::size_t>(index)]) = to_string(arg(args, 2));
    return answer_text(result, std::string());
}

VRK_BUILTIN(first) {
    vrkjson* array = args.size() == 1 ? json_of(arg(args, 0)) : nullptr;
    if (!array || array->elements.empty()) return answer_int(result, 0);
    assign(&result, array->elements.front(), block);
    return &result;
}

VRK_BUILTIN(last) {
    vrkjson* array = args.size() == 1 ? json_of(arg(args, 0)) : nullptr;
    if (!array || array->elements.empty()) return answer_int(result, 0);
    assign(&result, array->elements.back(), block);
    return &result;
}

VRK_BUILTIN(has_key) {
    if (args.size() != 2) return answer_int(result, 0);
    vrkvar* target = arg(args, 0);
    vrkvar* wanted = arg(args, 1);
    if (target->type == Tag::PTR) {
        if (!forward(
                block, target, result,
                [block, wanted](vrkobject* object, vrkvar* answer) {
                    return object->hasKey(block, answer, wanted);
                },
                wanted))
            return answer_int(result, 0);
        return &result;
    }
    vrkjson* array = json_of(target);
    if (!array) return answer_int(result, 0);
    // Only elements that carry a key take part; an empty key is no key, as in
    // look-up by key.
    const std::string text = to_string(wanted);
    for (const vrkelement* element : array->elements) {
        if (element->key && !element->key->empty() && json_key_equal(*element->key, text))
            return answer_int(result, 1);
    }
    return answer_int(result, 0);
}

VRK_BUILTIN(indexof) {
    vrkjson* array = args.size() == 2 ? json_of(arg(args, 0)) : nullptr;
    if (!array) {
        report(block, "invalid params!");
        return answer_int(result, 0);
    }
    // Every element is compared, with an empty key where it had none; a
    // missing key answers 0 like the first position does.
    const std::string text = to_string(arg(args, 1));
    for (std::size_t i = 0; i < array->elements.size(); ++i) {
        if (key_of(array->elements[i]) == text) return answer_int(result, static_cast<int64_t>(i));
    }
    return answer_int(result, 0);
}

VRK_BUILTIN(is_json) {
    return answer_int(result, args.size() == 1 && arg(args, 0)->type == Tag::JSON ? 1 : 0);
}

}  // namespace vrk::lib
