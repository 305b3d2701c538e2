// Registration of the two file types for the current user.
//
// Started with nothing to run and nothing to compile, the host makes source
// files (.vrs) open with `-s=<file>` and compiled programs (.vre) with
// `-crun=<file>`, then waits 3 s, so that a window opened by a double click
// stays readable, and ends with exit code 1. The settings themselves and where
// they live are the platform's (platform/filetypes.h); this file decides when
// one is written and what is reported.
//
// `setRegistryDefault` leaves a setting that already holds the wanted text
// alone and says nothing; otherwise it writes the setting and reports what
// it set or changed.
#pragma once

#include <string>

namespace vrk {

// Writes every file-type setting through setRegistryDefault, tells the desktop,
// waits 3 s and returns the exit code of the registration (1).
int register_file_types(const std::string& executablePath);

// Makes `location` hold `value`, unless it does already.
void setRegistryDefault(const std::string& location, const std::string& value);

}  // namespace vrk
