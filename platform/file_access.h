// Whether a file can be read, and if not, why.
//
// A script or include named on the command line or in a source file is opened
// by the front end through the standard streams, which say only that the open
// failed. A user who mistyped a name needs the reason the system gives (no
// such file, no permission, a folder): this service asks the system and
// answers in its words.
#pragma once

#include <string>

namespace vrk::platform {

// Empty when `path` names a file that can be opened for reading; otherwise the
// system's text for why not ("No such file or directory", "Permission denied",
// "Is a directory", ...).
std::string unreadable_reason(const std::string& path);

}  // namespace vrk::platform
