// The vorka executable: hands the command line to the host, which runs it on
// a thread with a large stack.
#include "host/entry.h"

int main(int argc, char** argv) { return vrk::run_host(argc, argv); }
