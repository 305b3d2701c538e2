// The JSON text and binary value builtins.
#include "builtins/serial.h"

#include <cstring>
#include <string>
#include <vector>

#include "saved/json_text.h"
#include "saved/value_form.h"
#include "values/cache.h"
#include "values/cell.h"
#include "values/json.h"
#include "values/object.h"
#include "vm/engine.h"
#include "vm/errors.h"

namespace vrk {

namespace {

// Raw bytes of a vector of numbers, whole elements only.
template <class T>
void append_raw(std::vector<uint8_t>& out, const std::vector<T>* values) {
    if (!values || values->empty()) return;
    const std::size_t n = values->size() * sizeof(T);
    const std::size_t at = out.size();
    out.resize(at + n);
    std::memcpy(out.data() + at, values->data(), n);
}

// The bytes of a DATA cell, or null for any other cell.
const std::vector<uint8_t>* data_of(const vrkvar* cell) {
    return cell->type == Tag::DATA ? cell->value.data : nullptr;
}

// Stores `bytes` as the DATA payload of `cell`.
void put_data(vrkvar* cell, std::vector<uint8_t>&& bytes) {
    if (std::vector<uint8_t>* data = as_data(cell)) *data = std::move(bytes);
}

}  // namespace

vrkvar* builtin_to_json_string(vrkengine*, vrkblock*, std::vector<vrkvar*>& args, void*,
                               vrkvar& result) {
    set_string(&result, "");
    if (args.empty()) return &result;
    const vrkjson* json = as_json(args[0]);
    const bool compact = args.size() == 2 && to_int(args[1]) != 0;
    const std::string text = to_string(json, compact);
    set_string(&result, text);
    return &result;
}

vrkvar* builtin_from_json_string(vrkengine*, vrkblock*, std::vector<vrkvar*>& args, void*,
                                 vrkvar& result) {
    // The text is taken before the result changes: the argument may be the result.
    const std::string text = args.size() == 1 ? to_string(args[0]) : std::string();
    vrkjson* json = as_json(&result);
    if (!json) return &result;
    json_clear(json);
    if (args.size() == 1) from_string(json, text);
    return &result;
}

vrkvar* builtin_todata(vrkengine*, vrkblock*, std::vector<vrkvar*>& args, void*, vrkvar& result) {
    std::vector<uint8_t> bytes;
    if (args.size() == 1) {
        vrkvar* v = args[0];
        switch (v->type) {
            case Tag::JSON: jsonToData(v->value.json, bytes, nullptr); break;
            case Tag::STRING:
                if (v->value.str) bytes.assign(v->value.str->begin(), v->value.str->end());
                break;
            case Tag::DATA: append_raw(bytes, v->value.data); break;
            case Tag::FLOATSET: append_raw(bytes, v->value.floatset); break;
            case Tag::DOUBLESET: append_raw(bytes, v->value.doubleset); break;
            case Tag::INTSET: append_raw(bytes, v->value.intset); break;
            case Tag::BIGINTSET: append_raw(bytes, v->value.bigintset); break;
            case Tag::PTR: {
                vrkobject* object = object_of(v);
                if (!object) {
                    set_int(&result, 0);
                    return &result;
                }
                object->toData(bytes);
                break;
            }
            default: {
                const auto word = static_cast<uint64_t>(v->value.i);
                for (int i = 0; i < 8; ++i) bytes.push_back(static_cast<uint8_t>(word >> (8 * i)));
                break;
            }
        }
    }
    put_data(&result, std::move(bytes));
    return &result;
}

vrkvar* builtin_serialize(vrkengine*, vrkblock* block, std::vector<vrkvar*>& args, void*,
                          vrkvar& result) {
    if (args.size() != 1 && args.size() != 2) {
        report_error(block, "external_function", "wrong params!");
        return &result;
    }
    std::vector<uint8_t> bytes;
    ScriptCacheWriter writer(bytes);
    serialize(args[0], writer, nullptr, false);
    put_data(args.size() == 2 ? args[1] : &result, std::move(bytes));
    return &result;
}

vrkvar* builtin_deserialize(vrkengine*, vrkblock* block, std::vector<vrkvar*>& args, void*,
                            vrkvar& result) {
    // The bytes are copied first: the target may be the buffer itself.
    const std::vector<uint8_t>* source = args.empty() ? nullptr : data_of(args[0]);
    std::vector<uint8_t> bytes = source ? *source : std::vector<uint8_t>();
    set_int(&result, 0);
    if ((args.size() != 1 && args.size() != 2) || bytes.empty()) return &result;
    ScriptCacheReader reader(std::move(bytes));
    deserialize(args.size() == 2 ? args[1] : &result, reader, block, false);
    return &result;
}

vrkvar* builtin_jsontodata(vrkengine*, vrkblock*, std::vector<vrkvar*>& args, void*,
                           vrkvar& result) {
    if (args.empty() || args[0]->type != Tag::JSON) {
        put_data(&result, {});
        return &result;
    }
    std::vector<uint8_t> bytes;
    jsonToData(args[0]->value.json, bytes, nullptr);
    put_data(args.size() == 2 ? args[1] : &result, std::move(bytes));
    return &result;
}

vrkvar* builtin_datatojson(vrkengine*, vrkblock* block, std::vector<vrkvar*>& args, void*,
                           vrkvar& result) {
    const std::vector<uint8_t>* source = args.empty() ? nullptr : data_of(args[0]);
    if (!source) return &result;
    ScriptCacheReader reader{std::vector<uint8_t>(*source)};
    vrkjson* json = as_json(args.size() == 2 ? args[1] : &result);
    if (!json) return &result;
    dataToJson(json, reader, block);
    return &result;
}

}  // namespace vrk
