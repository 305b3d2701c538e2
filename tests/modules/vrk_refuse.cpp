// Test module: its glue refuses the host, so its start must never run.
#include <cstdio>

#include "test_module.h"

extern "C" int vorkaglue(void*) { return 0; }

extern "C" void vorkastart(vrk::vrkscript*) { std::puts("refuse: start ran"); }
