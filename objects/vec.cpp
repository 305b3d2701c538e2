// The vector type: pool, components, member table and arithmetic.
#include "objects/vec.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

#include "base/log.h"
#include "objects/object_context.h"
#include "values/cache.h"
#include "values/cell.h"
#include "values/value_context.h"
#include "vm/errors.h"

namespace vrk {

namespace {

// Component named by a character of a component list, or -1.
int32_t component_of(char c) {
    switch (c) {
        case 'x': return 0;
        case 'y': return 1;
        case 'z': return 2;
        case 'w': return 3;
        default: return -1;
    }
}

// A float key as an index: truncated, and out of any vector when not finite.
int64_t index_of(const vrkvar* key) {
    if (key->type == Tag::INT) return key->value.i;
    const double d = key->value.f;
    if (!(d > -2147483648.0 && d < 2147483648.0)) return -1;
    return static_cast<int64_t>(d);
}

// Without pooling (the switch the sanitizer and fuzz runs use) an ended vector
// goes back to the allocator like any object.
bool pooling_on() { return value_context().pools.cell_pool.cap != 0; }

// The other operand as a vector, or null.
ScriptVector* vector_of(vrkvar* cell) {
    return cell ? object_as<ScriptVector>(deref(cell)) : nullptr;
}

enum class vec_op { add, sub, mult, div };

float apply(vec_op op, float a, float b) {
    switch (op) {
        case vec_op::add: return a + b;
        case vec_op::sub: return a - b;
        case vec_op::mult: return a * b;
        case vec_op::div: return b == 0.0f ? 0.0f : a / b;
    }
    return 0.0f;
}

double apply_scalar(vec_op op, double a, double b) {
    switch (op) {
        case vec_op::add: return a + b;
        case vec_op::sub: return a - b;
        case vec_op::mult: return a * b;
        case vec_op::div: return a / b;
    }
    return 0.0;
}

// `self op other` into a new vector in `res`. A vector operand must have the
// same dimension: `add` reports a run-time error, the others a log error, and
// `res` stays as it was.
bool arith(ScriptVector* self, vec_op op, vrkblock* b, vrkvar* other, vrkvar* res) {
    const int32_t n = self->dimension;
    if (ScriptVector* o = vector_of(other)) {
        if (o->dimension != n) {
            if (op == vec_op::add)
                report_errorf(b, "vector", "dimension mismatch (%i vs %i)", n, o->dimension);
            else
                log().error("vector dimension mismatch");
            return true;
        }
        ScriptVector* out = ScriptVector::make(n);
        for (int32_t i = 0; i < n; ++i) out->data[i] = apply(op, self->data[i], o->data[i]);
        set_object(res, out, true);
        return true;
    }
    const double d = other ? to_float(deref(other)) : 0.0;
    ScriptVector* out = ScriptVector::make(n);
    // Division by a zero scalar gives the zero vector.
    if (!(op == vec_op::div && d == 0.0)) {
        for (int32_t i = 0; i < n; ++i)
            out->data[i] = static_cast<float>(apply_scalar(op, self->data[i], d));
    }
    set_object(res, out, true);
    return true;
}

// Grows the vector so that component i exists (a property access does this).
void ensure_component(ScriptVector* v, int32_t i) {
    if (v->dimension < i + 1) {
        v->data.assign(static_cast<std::size_t>(i) + 1, 0.0f);
        v->dimension = i + 1;
    }
}

void property(ScriptVector* v, int32_t i, vrkvar* value, bool set) {
    ensure_component(v, i);
    if (set)
        v->data[i] = static_cast<float>(to_float(deref(value)));
    else
        set_float(value, v->data[i]);
}

// Any key no named member has: an index, a component name or a component list.
void catch_all(ScriptVector* v, vrkvar* value, vrkvar* key, bool set) {
    if (key->type == Tag::INT || key->type == Tag::FLOAT) {
        const int64_t i = index_of(key);
        const bool inside = i >= 0 && i < v->dimension;
        if (set) {
            if (inside) v->data[i] = static_cast<float>(to_float(deref(value)));
        } else {
            set_float(value, inside ? v->data[i] : 0.0f);
        }
        return;
    }
    const std::string text = key->type == Tag::STRING && key->value.str ? *key->value.str
                                                                        : to_string(key);
    if (set) {
        ScriptVector* source = vector_of(value);
        const float scalar = source ? 0.0f : static_cast<float>(to_float(deref(value)));
        const auto places = std::min<std::size_t>(text.size(),
                                                  static_cast<std::size_t>(v->dimension));
        for (std::size_t i = 0; i < places; ++i) {
            const int32_t target = component_of(text[i]);
            if (target < 0 || target >= v->dimension) continue;
            if (source && static_cast<int32_t>(i) >= source->dimension) continue;
            v->data[target] = source ? source->data[i] : scalar;
        }
        return;
    }
    if (text.size() == 1) {
        const int32_t c = component_of(text[0]);
        set_float(value, c >= 0 && c < v->dimension ? v->data[c] : 0.0f);
        return;
    }
    const auto n = static_cast<int32_t>(std::min<std::size_t>(text.size(), 4));
    ScriptVector* out = ScriptVector::make(std::max(n, 1));
    for (int32_t i = 0; i < n; ++i) {
        const int32_t c = component_of(text[static_cast<std::size_t>(i)]);
        out->data[i] = c >= 0 && c < v->dimension ? v->data[c] : 0.0f;
    }
    set_object(value, out, true);
}

}  // namespace

void ScriptVector::scriptRegister() {
    registerType<ScriptVector>(script_type_name);
    static constexpr struct {
        const char* name;   // property name
        int32_t component;  // component it reaches
    } kProperties[] = {{"x", 0}, {"y", 1}, {"z", 2}, {"w", 3}, {"r", 0}, {"g", 1}, {"b", 2}};
    for (const auto& p : kProperties) {
        const int32_t c = p.component;
        registerScriptFunction<ScriptVector>(p.name, [c](ScriptVector* v, vrkvar* value, vrkvar*,
                                                         bool set) { property(v, c, value, set); });
    }
    scriptFunction<ScriptVector>(
        "length",
        [](ScriptVector* v, vrkblock*, std::vector<vrkvar*>&, vrkvar& result) {
            set_float(&result, v->length());
        },
        0, true, false, "() the Euclidean length of the vector");
    scriptFunction<ScriptVector>(
        "normalize",
        [](ScriptVector* v, vrkblock*, std::vector<vrkvar*>&, vrkvar& result) {
            ScriptVector* out = make(v->dimension);
            const double len = v->length();
            for (int32_t i = 0; i < v->dimension; ++i)
                out->data[i] = len == 0.0 ? v->data[i] : static_cast<float>(v->data[i] / len);
            set_object(&result, out, true);
        },
        0, true, false, "() a new vector of length 1 in the same direction");
    registerScriptFunction<ScriptVector>("", catch_all);
}

ScriptVector* ScriptVector::make(int32_t dimension) {
    vrkobject_context& ctx = object_context();
    ScriptVector* v = nullptr;
    if (!ctx.vector_pool.empty()) {
        v = static_cast<ScriptVector*>(ctx.vector_pool.back());
        ctx.vector_pool.pop_back();
        v->ref_count = 0;
        v->object_flags = 0;
        v->ending = 0;
    } else {
        v = std::make_unique<ScriptVector>().release();
        ++ctx.vectors_created;
    }
    v->dimension = std::max(dimension, 1);
    v->data.assign(static_cast<std::size_t>(v->dimension), 0.0f);
    return v;
}

ScriptVector::ScriptVector() : data(2, 0.0f) { ++object_context().vectors_live; }

ScriptVector::~ScriptVector() { --object_context().vectors_live; }

void ScriptVector::resize(int32_t n) {
    n = std::max(n, 1);
    if (n <= dimension) {
        dimension = n;
        return;
    }
    data.assign(static_cast<std::size_t>(n), 0.0f);
    dimension = n;
}

float ScriptVector::component(int32_t i) const { return i >= 0 && i < dimension ? data[i] : 0.0f; }

double ScriptVector::length() const {
    double sum = 0.0;
    for (int32_t i = 0; i < dimension; ++i) sum += static_cast<double>(data[i] * data[i]);
    return std::sqrt(sum);
}

void ScriptVector::destroy() {
    if (object_flags & object_flag::DETACHED) return;
    if (!pooling_on()) {
        destroy_default();
        return;
    }
    if (ending) return;  // pooled already
    ending = 1;
    if (owner_block) dissociateBlock(this, false);
    object_context().vector_pool.push_back(this);
}

bool ScriptVector::serialize(ScriptCacheWriter& writer) {
    vrkobject::serialize(writer);
    writer.u32(static_cast<uint32_t>(dimension));
    for (int32_t i = 0; i < dimension; ++i) writer.f32(data[i]);
    return true;
}

bool ScriptVector::deserialize(ScriptCacheReader& reader) {
    uint32_t n = reader.u32();
    // Reads past the end give zero components; a count far beyond the bytes
    // left is cut so that a damaged buffer cannot ask for any amount of memory.
    const std::size_t available = reader.remaining() / 4 + 4;
    if (n > available) n = static_cast<uint32_t>(available);
    resize(static_cast<int32_t>(n));
    for (int32_t i = 0; i < dimension; ++i) data[i] = reader.can_read(4) ? reader.f32() : 0.0f;
    return true;
}

void ScriptVector::toString(std::string& out) {
    out = "(";
    char buffer[64];
    for (int32_t i = 0; i < dimension; ++i) {
        if (i) out += ", ";
        std::snprintf(buffer, sizeof buffer, "%lf", static_cast<double>(data[i]));
        out += buffer;
    }
    out += ")";
}

double ScriptVector::toFloat() {
    double sum = 0.0;
    for (int32_t i = 0; i < dimension; ++i) sum += static_cast<double>(data[i]) * data[i];
    return std::sqrt(sum);
}

int64_t ScriptVector::toInt() {
    float sum = 0.0f;
    for (int32_t i = 0; i < dimension; ++i) sum += data[i] * data[i];
    const float len = std::sqrt(sum);
    if (!(len < 9.2e18f)) return 0;
    return static_cast<int64_t>(len);
}

void ScriptVector::toData(std::vector<uint8_t>& out) {
    out.resize(static_cast<std::size_t>(dimension) * 4);
    std::memcpy(out.data(), data.data(), out.size());
}

vrkobject* ScriptVector::clone() {
    ScriptVector* copy = make(dimension);
    std::copy_n(data.begin(), dimension, copy->data.begin());
    return copy;
}

vrkobject* ScriptVector::deepCopy() { return clone(); }

bool ScriptVector::add(vrkblock* b, vrkvar* other, vrkvar* res) {
    return arith(this, vec_op::add, b, other, res);
}
bool ScriptVector::mult(vrkblock* b, vrkvar* other, vrkvar* res) {
    return arith(this, vec_op::mult, b, other, res);
}
bool ScriptVector::div(vrkblock* b, vrkvar* other, vrkvar* res) {
    return arith(this, vec_op::div, b, other, res);
}
bool ScriptVector::sub(vrkblock* b, vrkvar* other, vrkvar* res) {
    return arith(this, vec_op::sub, b, other, res);
}

bool ScriptVector::div_reverse(vrkblock*, vrkvar*, vrkvar* res) {
    log().log("cannot divide non vector!");
    set_int(res, 0);
    return false;
}

bool ScriptVector::sub_reverse(vrkblock*, vrkvar*, vrkvar* res) {
    log().log("cannot subtract non vector!");
    set_int(res, 0);
    return false;
}

ScriptArrayReturn ScriptVector::count(vrkblock*, vrkvar* res) {
    set_int(res, dimension);
    return {};
}

}  // namespace vrk
