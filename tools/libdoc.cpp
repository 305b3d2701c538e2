// vorka_libdoc: writes the library reference (docs/LIBRARY.md) made from the
// builtin table, or with `--check FILE` tells whether FILE is current.
//
//   vorka_libdoc > docs/LIBRARY.md        regenerate
//   vorka_libdoc --check docs/LIBRARY.md  exit 0 when current, 1 (with a hint) when not
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include "builtins/library_doc.h"

int main(int argc, char** argv) {
    const std::string reference = vrk::library_reference();
    if (argc == 3 && std::string(argv[1]) == "--check") {
        std::ifstream file(argv[2], std::ios::binary);
        std::ostringstream stored;
        stored << file.rdbuf();
        if (file && stored.str() == reference) return 0;
        std::cerr << argv[2] << " is not current: regenerate it with vorka_libdoc > " << argv[2]
                  << "\n";
        return 1;
    }
    if (argc != 1) {
        std::cerr << "usage: vorka_libdoc [--check FILE]\n";
        return 2;
    }
    std::cout << reference;
    return 0;
}
