// Math builtins: numbers, and the helper behind default arguments.
//
// Numeric arguments are read with the cell's to-float or to-integer
// conversion, so a string that holds a number works wherever a number does.
// The one-argument functions (`sqrt`, `sin`, ...) compute in double precision
// and answer FLOAT; called with another count they answer INT 0. Functions
// with a fixed arity (`min`, `mod`, `clamp`, ...) leave their result untouched
// when the count is wrong, and those that report (`map`, the randoms) do so
// against the calling block.
//
// Two forms are kept on purpose because scripts were tuned against them:
// `round` with decimals cuts rather than rounds (1.999 to 2 places is 1.99),
// and `map` puts out_min into its divisor instead of adding it to the result.
//
// `randomFloat` and `randomString` draw from the C library generator (one
// process-wide state, never seeded by the host); `randomInt` seeds a fresh
// 64-bit Mersenne Twister from the platform's random device on every call and
// never returns its upper bound.
//
// `set_internal_param_var` belongs here as reflection on the running call: the
// compiler puts a call of it in front of the body of every function that
// declares a default for a parameter (`f(a, b = 2)` starts with
// `set_internal_param_var(2,b,2);`), and it stores the default when the call
// that is running passed fewer arguments than the parameter's position.
#pragma once

#include "builtins/registry.h"

namespace vrk::lib {

VRK_BUILTIN(sqrt);              // (x) FLOAT square root
VRK_BUILTIN(abs);               // (x) FLOAT magnitude
VRK_BUILTIN(round);             // (value, decimals, as_string) nearest integer, or cut at decimals
VRK_BUILTIN(negf);              // (x) FLOAT with the sign bit flipped
VRK_BUILTIN(tanh);              // (x) FLOAT
VRK_BUILTIN(tan);               // (x) FLOAT
VRK_BUILTIN(sin);               // (x) FLOAT
VRK_BUILTIN(cos);               // (x) FLOAT
VRK_BUILTIN(sinrange);          // (value, min, max, phase) sine scaled onto min..max
VRK_BUILTIN(cosrange);          // (value, min, max, phase) cosine scaled onto min..max
VRK_BUILTIN(tanrange);          // (value, min, max, phase) tangent scaled onto min..max
VRK_BUILTIN(exp);               // (x) FLOAT
VRK_BUILTIN(atanh);             // (x) FLOAT
VRK_BUILTIN(pow);               // (base, exponent) FLOAT
VRK_BUILTIN(smoothstep);        // (x, edge0 = 0, edge1 = 1) FLOAT Hermite step
VRK_BUILTIN(int_);              // `int`: (x) INT conversion
VRK_BUILTIN(float_);            // `float`: (x) FLOAT conversion
VRK_BUILTIN(string);            // (x) STRING conversion
VRK_BUILTIN(min);               // (a, b) FLOAT lesser
VRK_BUILTIN(max);               // (a, b) FLOAT greater
VRK_BUILTIN(map);               // (in, in_min, in_max, out_min, out_max) FLOAT
VRK_BUILTIN(mod);               // (a, b) INT remainder of two INTs, else FLOAT fmod
VRK_BUILTIN(clamp);             // (value, min, max) FLOAT; min wins over max
VRK_BUILTIN(clampi);            // (value, min, max) INT; min wins over max
VRK_BUILTIN(randomFloat);       // (min, max) FLOAT
VRK_BUILTIN(randomFloatArray);  // (min, max, depth) JSON of FLOATs
VRK_BUILTIN(randomInt);         // (min, max) INT in min..max-1
VRK_BUILTIN(randomIntArray);    // (min, max, depth) JSON of INTs
VRK_BUILTIN(randomString);      // (len) STRING of digits and letters
VRK_BUILTIN(set_internal_param_var);  // (position, parameter, default) always INT 0

}  // namespace vrk::lib
