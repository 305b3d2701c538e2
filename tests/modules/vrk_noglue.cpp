// Test module: has a start entry but no glue entry.
#include <cstdio>

extern "C" void vorkastart(void*) { std::puts("noglue: start ran"); }
