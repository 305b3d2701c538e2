// Test module: accepts the host and registers good_hello.
#include "test_module.h"

extern "C" int vorkaglue(void* context) {
    const int accepted = vorka::glue(context);
    if (accepted) vorka::warn("good: glue accepted");
    return accepted;
}

extern "C" void vorkastart(vrk::vrkscript* engine) {
    vorka::warn("good: start");
    register_hello(engine, "good_hello", "good");
}
