// Builtins that make and measure vectors (the `vec` native type).
//
// `vec` takes up to four arguments, numbers or vectors, and makes a vector of
// their components in order (at most four); one DATA argument is read as raw
// floats. `vec2` and `vec3` have fixed dimensions. `vecnorm`, `veclen` and
// `vecangle` work on one vector and answer 0 for anything else.
#pragma once

#include "builtins/registry.h"

namespace vrk::lib {

VRK_BUILTIN(vec);       // (x,y,z,w) a vector of the arguments' components
VRK_BUILTIN(vec2);      // (x,y) a 2-dimensional vector
VRK_BUILTIN(vec3);      // (x,y,z) a 3-dimensional vector
VRK_BUILTIN(vecnorm);   // (vec) a new vector of length 1
VRK_BUILTIN(veclen);    // (vec) its length
VRK_BUILTIN(vecangle);  // (vec) atan2(y, x) of a 2-dimensional vector

}  // namespace vrk::lib
