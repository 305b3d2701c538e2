// An example native module: one script function and one native object type.
//
//   example_greet(name)     returns "hello, <name>"
//   example_counter(start)  a new `counter` object starting at `start`
//   c.add(n)                adds n and returns the new value
//   c.value()               the current value
//
// Build it with CMake (see CMakeLists.txt beside this file) and put
// vrk_example.so into a folder "scriptmodules" beside the working directory
// or beside the vorka executable.
#include <cstdint>
#include <string>
#include <vector>

#include "vorka/module.h"

namespace {

// The state behind one `counter` object.
struct Counter {
    int64_t value = 0;  // the running total
};

void counter_add(void* self, std::vector<vrk::vrkvar*>& args, vrk::vrkvar& result) {
    auto* counter = static_cast<Counter*>(self);
    counter->value += vorka::to_int(vorka::arg(args, 0));
    vorka::set_int(result, counter->value);
}

void counter_value(void* self, std::vector<vrk::vrkvar*>&, vrk::vrkvar& result) {
    vorka::set_int(result, static_cast<Counter*>(self)->value);
}

const vrkmodule_member kCounterMembers[] = {
    {"add", &counter_add, 1, "(n) adds n, returns the new value"},
    {"value", &counter_value, 0, "() the current value"},
};

const vrkmodule_type kCounterType = {
    "counter",
    []() -> void* { return new Counter(); },
    [](void* self) { delete static_cast<Counter*>(self); },
    [](void* self, std::string& out) {
        out = "counter(" + std::to_string(static_cast<Counter*>(self)->value) + ")";
    },
    kCounterMembers,
    sizeof(kCounterMembers) / sizeof(kCounterMembers[0]),
};

vrk::vrkvar* example_greet(vrk::vrkblock*, std::vector<vrk::vrkvar*>& args, void*,
                           vrk::vrkvar& result) {
    vorka::set_text(result, "hello, " + vorka::to_text(vorka::arg(args, 0)));
    return &result;
}

vrk::vrkvar* example_counter(vrk::vrkblock*, std::vector<vrk::vrkvar*>& args, void*,
                             vrk::vrkvar& result) {
    Counter* counter = vorka::make_object<Counter>(result, kCounterType);
    if (counter) counter->value = vorka::to_int(vorka::arg(args, 0));
    return &result;
}

}  // namespace

// Accepts the host when it is the version this module was built for.
extern "C" int vorkaglue(void* context) { return vorka::glue(context); }

// Registers the module's function and type.
extern "C" void vorkastart(vrk::vrkscript* engine) {
    vorka::registerType(kCounterType);
    vorka::registerFunction(engine, "example_greet", &example_greet, 1, "(name) a greeting");
    vorka::registerFunction(engine, "example_counter", &example_counter, 1,
                            "(start) a new counter object");
}
