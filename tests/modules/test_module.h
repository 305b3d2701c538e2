// What the test modules share: a script function that says which module answered.
#pragma once

#include <string>

#include "vorka/module.h"

// Registers `function(x)`, which logs "<who> says <x>" and returns x + 1. Both
// texts must live as long as the process (string literals).
inline void register_hello(vrk::vrkscript* engine, const char* function, const char* who) {
    vorka::registerFunction(
        engine, function,
        [](vrk::vrkblock*, std::vector<vrk::vrkvar*>& args, void* user, vrk::vrkvar& result) {
            const int64_t x = vorka::to_int(vorka::arg(args, 0));
            const std::string text = std::string(static_cast<const char*>(user)) + " says " +
                                     std::to_string(x);
            vorka::log(text.c_str());
            vorka::set_int(result, x + 1);
            return &result;
        },
        1, "(x) answers x + 1", const_cast<char*>(who));
}
