// The vorka executable with the run loop's fast paths off: fused number
// sequences run as their single instructions, if/loop bodies take the full
// entry of a run, calls take the general copies, temps, subscripts, keyed
// reads and text compares take the general routines, and instances and stores
// take the general steps. The script tests run
// once more with it, so that every script shows the same with and without them.
#include "host/entry.h"
#include "values/value_context.h"

int main(int argc, char** argv) {
    vrk::value_context().fused_paths = false;
    vrk::value_context().light_entry = false;
    vrk::value_context().call_paths = false;
    vrk::value_context().data_paths = false;
    vrk::value_context().instance_paths = false;
    return vrk::run_host(argc, argv);
}
