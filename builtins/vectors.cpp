// The vector builtins: construction and measures of `vec` objects.
#include "builtins/vectors.h"

#include <cmath>
#include <cstring>

#include "objects/vec.h"
#include "values/cell.h"
#include "vm/errors.h"

namespace vrk::lib {

namespace {

// Most components `vec` makes from its arguments.
constexpr int32_t kMaxVecArguments = 4;

vrkvar* answer_vector(vrkvar& result, ScriptVector* v) {
    set_object(&result, v, true);
    return &result;
}

// A vector of fixed dimension from the arguments' float values, 0 for those missing.
vrkvar* fixed_vector(std::vector<vrkvar*>& args, vrkvar& result, int32_t dimension) {
    ScriptVector* v = ScriptVector::make(dimension);
    for (int32_t i = 0; i < dimension && static_cast<std::size_t>(i) < args.size(); ++i)
        v->data[i] = args[i] ? static_cast<float>(to_float(deref(args[i]))) : 0.0f;
    return answer_vector(result, v);
}

ScriptVector* only_vector(std::vector<vrkvar*>& args) {
    return args.size() == 1 && args[0] ? object_as<ScriptVector>(deref(args[0])) : nullptr;
}

}  // namespace

VRK_BUILTIN(vec) {
    if (args.size() == 1 && args[0] && deref(args[0])->type == Tag::DATA) {
        const vrkvar* bytes = deref(args[0]);
        const std::size_t size = bytes->value.data ? bytes->value.data->size() : 0;
        ScriptVector* v = ScriptVector::make(static_cast<int32_t>(size / 4));
        if (size >= 4) std::memcpy(v->data.data(), bytes->value.data->data(), size / 4 * 4);
        return answer_vector(result, v);
    }
    int32_t total = 0;
    for (vrkvar* a : args) {
        const ScriptVector* part = a ? object_as<ScriptVector>(deref(a)) : nullptr;
        total += part ? part->dimension : 1;
    }
    if (total > kMaxVecArguments) {
        report_errorf(block, "external_function", "vec dimension too big! %i", total);
        return answer_vector(result, ScriptVector::make(2));
    }
    if (total == 0) return answer_vector(result, ScriptVector::make(2));
    ScriptVector* v = ScriptVector::make(total);
    int32_t at = 0;
    for (vrkvar* a : args) {
        vrkvar* value = a ? deref(a) : nullptr;
        if (const ScriptVector* part = object_as<ScriptVector>(value)) {
            for (int32_t i = 0; i < part->dimension; ++i) v->data[at++] = part->data[i];
        } else {
            v->data[at++] = value ? static_cast<float>(to_float(value)) : 0.0f;
        }
    }
    return answer_vector(result, v);
}

VRK_BUILTIN(vec2) { return fixed_vector(args, result, 2); }

VRK_BUILTIN(vec3) { return fixed_vector(args, result, 3); }

VRK_BUILTIN(vecnorm) {
    const ScriptVector* v = only_vector(args);
    if (!v) {
        set_int(&result, 0);
        return &result;
    }
    ScriptVector* out = ScriptVector::make(v->dimension);
    double sum = 0.0;
    for (int32_t i = 0; i < v->dimension; ++i) sum += static_cast<double>(v->data[i]) * v->data[i];
    const double len = std::sqrt(sum);
    for (int32_t i = 0; i < v->dimension; ++i)
        out->data[i] = len == 0.0 ? v->data[i] : static_cast<float>(v->data[i] / len);
    return answer_vector(result, out);
}

VRK_BUILTIN(veclen) {
    if (args.size() != 1) {
        set_int(&result, 0);
        return &result;
    }
    ScriptVector* v = only_vector(args);
    set_float(&result, v ? v->toFloat() : 0.0);
    return &result;
}

VRK_BUILTIN(vecangle) {
    if (args.size() != 1) {
        set_int(&result, 0);
        return &result;
    }
    const ScriptVector* v = only_vector(args);
    const float angle = v && v->dimension == 2 ? std::atan2(v->data[1], v->data[0]) : 0.0f;
    set_float(&result, angle);
    return &result;
}

}  // namespace vrk::lib
