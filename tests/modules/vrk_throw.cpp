// Test module: its start registers one function and then throws.
#include <stdexcept>

#include "test_module.h"

extern "C" int vorkaglue(void* context) { return vorka::glue(context); }

extern "C" void vorkastart(vrk::vrkscript* engine) {
    register_hello(engine, "throw_hello", "throw");
    throw std::runtime_error("module start failed on purpose");
}
