// Math builtins: elementary functions, rounding, ranges, clamps, conversions
// and random numbers; and the default-argument helper of function calls.
#include "builtins/math.h"

#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>

#include "base/log.h"
#include "values/cell.h"
#include "values/json.h"
#include "vm/block.h"
#include "vm/copies.h"
#include "vm/errors.h"

namespace vrk::lib {

namespace {

// Pi as the range functions use it.
constexpr double kRangePi = 3.14159265359;
// The characters randomString draws from, in ASCII order.
constexpr char kRandomCharacters[] =
    "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
constexpr int kRandomCharacterCount = 62;

vrkvar* answer_int(vrkvar& result, int64_t value) {
    set_int(&result, value);
    return &result;
}

vrkvar* answer_float(vrkvar& result, double value) {
    set_float(&result, value);
    return &result;
}

// The report of a wrong call against the calling block.
vrkvar* wrong_params(vrkblock* block, const char* name, vrkvar& result) {
    report_errorf(block, "external_function", "wrong params! %s", name);
    return &result;
}

// A one-argument function of double precision; INT 0 for another count.
template <class F>
vrkvar* unary(std::vector<vrkvar*>& args, vrkvar& result, F fn) {
    if (args.size() != 1) return answer_int(result, 0);
    return answer_float(result, fn(to_float(args[0])));
}

// The `index`-th argument as a double, or `fallback` when it was not given.
double float_arg(const std::vector<vrkvar*>& args, std::size_t index, double fallback) {
    return index < args.size() ? to_float(args[index]) : fallback;
}

// sinrange, cosrange, tanrange: the wave of value shifted by a phase, scaled
// from -1..1 onto min..max.
template <class F>
vrkvar* ranged(std::vector<vrkvar*>& args, vrkvar& result, F wave) {
    if (args.empty()) return answer_int(result, 0);
    const double value = to_float(args[0]);
    const double low = float_arg(args, 1, 0.0);
    const double high = float_arg(args, 2, 0.0);
    const double phase = float_arg(args, 3, 0.0);
    const double wave_value = wave(value + 2.0 * kRangePi * phase);
    return answer_float(result, low + 0.5 * (wave_value + 1.0) * (high - low));
}

// A double narrowed to single precision; values beyond its range become the
// infinity of their sign instead of an undefined conversion.
float to_single(double value) {
    if (value > std::numeric_limits<float>::max()) return std::numeric_limits<float>::infinity();
    if (value < -std::numeric_limits<float>::max()) return -std::numeric_limits<float>::infinity();
    return static_cast<float>(value);
}

// One draw of the C library generator between min and max, in single
// precision. The generator is read 15 bits wide, so that every platform's
// rand() covers 0..1 in the same steps of 1/32767.
float random_float(float low, float high) {
    const float unit = static_cast<float>(std::rand() & 0x7FFF) / 32767.0f;
    return unit * (high - low) + low;
}

// One draw of a freshly seeded 64-bit Mersenne Twister: min + output modulo
// (max - min), computed on the unsigned words so that every pair of bounds is
// defined; max itself is never drawn.
int64_t random_int(int64_t low, int64_t high) {
    if (low == high) return low;
    std::random_device device;
    const uint64_t seed = (static_cast<uint64_t>(device()) << 32) | device();
    std::mt19937_64 generator(seed);
    const uint64_t span = static_cast<uint64_t>(high) - static_cast<uint64_t>(low);
    return static_cast<int64_t>(static_cast<uint64_t>(low) + generator() % span);
}

// Makes the result a cleared JSON array of `depth` elements with empty keys,
// each filled by `fill`.
template <class F>
void fill_array(vrkvar& result, int64_t depth, F fill) {
    reset(&result, Tag::JSON);
    for (int64_t i = 0; i < depth; ++i) {
        vrkelement* element = element_new_keyed(std::string());
        fill(element);
        result.value.json->elements.push_back(element);
    }
}

// How many arguments the running call of `fn` received: the caller that
// bound them keeps the displaced parameter cells, one per argument. -1 when
// no caller's binding is in force (a run started by the scheduler, a
// constructor or destructor run, a script thread).
int64_t arguments_given(const vrkblock* fn) {
    const vrkblock* caller = fn->caller;
    if (!caller || caller == fn || !block_alive(caller)) return -1;
    if (!caller->params_bound || caller->callee != fn) return -1;
    return static_cast<int64_t>(caller->params.size());
}

}  // namespace

// ---- elementary functions ---------------------------------------------------------

VRK_BUILTIN(sqrt) {
    return unary(args, result, [](double x) { return std::sqrt(x); });
}
VRK_BUILTIN(abs) {
    return unary(args, result, [](double x) { return std::fabs(x); });
}
// The sign bit is flipped: 0 gives -0.
VRK_BUILTIN(negf) {
    return unary(args, result, [](double x) { return -x; });
}
VRK_BUILTIN(tanh) {
    return unary(args, result, [](double x) { return std::tanh(x); });
}
VRK_BUILTIN(tan) {
    return unary(args, result, [](double x) { return std::tan(x); });
}
VRK_BUILTIN(sin) {
    return unary(args, result, [](double x) { return std::sin(x); });
}
VRK_BUILTIN(cos) {
    return unary(args, result, [](double x) { return std::cos(x); });
}
VRK_BUILTIN(exp) {
    return unary(args, result, [](double x) { return std::exp(x); });
}
VRK_BUILTIN(atanh) {
    return unary(args, result, [](double x) { return std::atanh(x); });
}

VRK_BUILTIN(pow) {
    if (args.size() != 2) return &result;
    return answer_float(result, std::pow(to_float(args[0]), to_float(args[1])));
}

// With no decimals the nearest integer; with decimals the value is cut, not
// rounded, at that many places (1.999 to 2 places is 1.99). The text form is
// the six-decimal number text with its trailing zeros taken off.
VRK_BUILTIN(round) {
    if (args.empty()) return answer_float(result, 0.0);
    const double value = to_float(args[0]);
    const int64_t decimals = args.size() > 1 ? to_int(args[1]) : 0;
    double rounded;
    if (decimals == 0) {
        rounded = std::round(value);
    } else {
        const double scale = std::pow(10.0, static_cast<double>(decimals));
        rounded = std::trunc(value * scale) / scale;
    }
    if (args.size() > 2 && to_int(args[2]) != 0) {
        std::string text = std::to_string(rounded);
        while (!text.empty() && text.back() == '0') text.pop_back();
        set_string(&result, text);
        return &result;
    }
    return answer_float(result, rounded);
}

VRK_BUILTIN(sinrange) {
    return ranged(args, result, [](double x) { return std::sin(x); });
}
VRK_BUILTIN(cosrange) {
    return ranged(args, result, [](double x) { return std::cos(x); });
}
VRK_BUILTIN(tanrange) {
    return ranged(args, result, [](double x) { return std::tan(x); });
}

VRK_BUILTIN(smoothstep) {
    if (args.empty()) return &result;
    const double x = to_float(args[0]);
    const double edge0 = float_arg(args, 1, 0.0);
    const double edge1 = float_arg(args, 2, 1.0);
    double t = (x - edge0) / (edge1 - edge0);
    if (t < 0.0) t = 0.0;
    if (t > 1.0) t = 1.0;
    return answer_float(result, t * t * (3.0 - 2.0 * t));
}

VRK_BUILTIN(min) {
    if (args.size() != 2) return &result;
    const double a = to_float(args[0]);
    const double b = to_float(args[1]);
    return answer_float(result, b < a ? b : a);
}

VRK_BUILTIN(max) {
    if (args.size() != 2) return &result;
    const double a = to_float(args[0]);
    const double b = to_float(args[1]);
    return answer_float(result, a < b ? b : a);
}

// The divisor carries out_min, and out_min is not added back: scripts are tuned
// to this form, so it stays.
VRK_BUILTIN(map) {
    if (args.size() != 5) return wrong_params(block, "map", result);
    const double in = to_float(args[0]);
    const double in_min = to_float(args[1]);
    const double in_max = to_float(args[2]);
    const double out_min = to_float(args[3]);
    const double out_max = to_float(args[4]);
    const double divisor = in_max - in_min + out_min;
    if (divisor == 0.0) return answer_float(result, 0.0);
    return answer_float(result, (out_max - out_min) * (in - in_min) / divisor);
}

VRK_BUILTIN(mod) {
    if (args.size() != 2) return &result;
    if (args[0]->type == Tag::INT && args[1]->type == Tag::INT) {
        const int64_t a = args[0]->value.i;
        const int64_t b = args[1]->value.i;
        // Division by -1 leaves no remainder; asking it of the hardware can trap.
        if (b == 0 || b == -1) return answer_int(result, 0);
        return answer_int(result, a % b);
    }
    const double b = to_float(args[1]);
    if (b == 0.0) return answer_float(result, 0.0);
    return answer_float(result, std::fmod(to_float(args[0]), b));
}

// max(min(value, high), low): when the bounds are crossed the lower one wins.
VRK_BUILTIN(clamp) {
    if (args.size() != 3) return &result;
    const double value = to_float(args[0]);
    const double low = to_float(args[1]);
    const double high = to_float(args[2]);
    const double capped = high < value ? high : value;
    return answer_float(result, capped < low ? low : capped);
}

VRK_BUILTIN(clampi) {
    if (args.size() != 3) return &result;
    const int64_t value = to_int(args[0]);
    const int64_t low = to_int(args[1]);
    const int64_t high = to_int(args[2]);
    const int64_t capped = high < value ? high : value;
    return answer_int(result, capped < low ? low : capped);
}

// ---- conversions ---------------------------------------------------------------------

VRK_BUILTIN(int_) { return answer_int(result, args.size() == 1 ? to_int(args[0]) : 0); }

VRK_BUILTIN(float_) { return answer_float(result, args.size() == 1 ? to_float(args[0]) : 0.0); }

VRK_BUILTIN(string) {
    std::string text = args.size() == 1 ? to_string(args[0]) : std::string();
    set_string(&result, text);
    return &result;
}

// ---- random numbers --------------------------------------------------------------------

VRK_BUILTIN(randomFloat) {
    if (args.size() != 2) return wrong_params(block, "randomFloat", result);
    const float low = to_single(to_float(args[0]));
    const float high = to_single(to_float(args[1]));
    return answer_float(result, low == high ? low : random_float(low, high));
}

VRK_BUILTIN(randomFloatArray) {
    if (args.size() != 3) return wrong_params(block, "randomFloatArray", result);
    const float low = to_single(to_float(args[0]));
    const float high = to_single(to_float(args[1]));
    fill_array(result, to_int(args[2]), [low, high](vrkvar* element) {
        set_float(element, low == high ? low : random_float(low, high));
    });
    return &result;
}

VRK_BUILTIN(randomInt) {
    if (args.size() != 2) {
        wrong_params(block, "randomInt", result);
        return answer_int(result, 0);
    }
    return answer_int(result, random_int(to_int(args[0]), to_int(args[1])));
}

VRK_BUILTIN(randomIntArray) {
    if (args.size() != 3) return wrong_params(block, "randomIntArray", result);
    const int64_t low = to_int(args[0]);
    const int64_t high = to_int(args[1]);
    fill_array(result, to_int(args[2]),
               [low, high](vrkvar* element) { set_int(element, random_int(low, high)); });
    return &result;
}

VRK_BUILTIN(randomString) {
    std::string text;
    if (args.size() == 1) {
        const int64_t length = to_int(args[0]);
        for (int64_t i = 0; i < length; ++i)
            text += kRandomCharacters[std::rand() % kRandomCharacterCount];
    }
    set_string(&result, text);
    return &result;
}

// ---- calls -----------------------------------------------------------------------------

VRK_BUILTIN(set_internal_param_var) {
    if (args.size() != 3 || !block) {
        log().error("INVALID BLK!");
        set_int(&result, 0);
        return &result;
    }
    vrkvar* parameter = args[1];
    vrkvar* value = args[2];
    if (!is_marker(parameter, 11) && !is_marker(value, 11)) {
        const int64_t position = to_int(args[0]);
        const int64_t given = arguments_given(block);
        // Without a binding to count, a parameter that is still the
        // function's own cell received nothing.
        const bool missing = given >= 0 ? position > given
                                        : (parameter->flags & kParameterFlag) != 0;
        if (missing) assign(parameter, value, block);
    }
    set_int(&result, 0);
    return &result;
}

}  // namespace vrk::lib
