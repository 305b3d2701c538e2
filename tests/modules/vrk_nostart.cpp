// Test module: has a glue entry but no start entry; the glue must not be called.
#include <cstdio>

extern "C" int vorkaglue(void*) {
    std::puts("nostart: glue ran");
    return 1;
}
