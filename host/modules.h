// Native modules: finding them, loading them and the table they call the host through.
//
// A module is a shared library named with "vrk_" and the platform's library
// suffix (".so" here) somewhere in its path. The engine looks for modules
// once, while it is created and before the builtins are registered, so that a
// module's registrations come first: a builtin of the same name then reports
// the double registration. The folder "scriptmodules" of the working
// directory is searched first; only when it yields no candidate at all (or
// does not exist) is "scriptmodules" beside the executable searched. The
// search is not recursive, and the name test looks at the whole path
// ("prefix/name"), so neither a folder name nor a sub-folder counts.
//
// Loading a candidate (`vrkscript::loadModule`) opens the library, finds the
// two entries `vorkaglue` and `vorkastart`, asks `vorkaglue` whether it
// accepts the process context (whose first field is the version text, whose
// second is the host's function table) and, if so, calls `vorkastart` with
// the engine. Every failure is reported and the search goes on; a library is
// let go again only when it was refused before its start. Accepted libraries
// stay loaded for the life of the process.
#pragma once

#include <string>

#include "vorka/module.h"

namespace vrk {

class vrkscript;

// True when `path` names a module candidate: at least 4 characters, holding
// "vrk_" and the platform's library suffix anywhere.
bool is_module_path(const std::string& path);

// Offers every candidate in `folder` to the engine, naming each `prefix` plus
// its entry name, in the folder's order. Returns true when at least one
// candidate was tried; false also when the folder cannot be opened.
bool load_modules_from(vrkscript& engine, const std::string& folder, const std::string& prefix);

// The host's function table for modules, filled on first use.
const vrkmodule_api* module_api();

}  // namespace vrk
