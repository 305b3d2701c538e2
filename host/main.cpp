// The vorka executable: hands the command line to the entry.
#include "host/entry.h"

int main(int argc, char** argv) { return vrk::entry(argc, argv); }
