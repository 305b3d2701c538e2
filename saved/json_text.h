// JSON text of a JSON value: the splitting reader (the writer is values/json_text.h).
//
// The reader is no token parser but a recursive splitter: it cuts the text at
// top-level commas and colons (brackets and quotes nest), decides by the first
// character whether a level is a list of objects, an array or a list of
// members, and turns each leaf into a value with the literal rules of the
// language. It accepts much that JSON refuses: quotes around keys and strings
// are optional, single quotes work like double quotes, `true` and `false` read
// as 1 and 0. `null` reads as 0 inside nested values only; at the top level it
// is just text. Reading never fails: faults are logged and reading goes on.
#pragma once

#include <string>

#include "values/json_text.h"

namespace vrk {

struct vrkjson;

// Replaces the record's elements with what the text describes.
void from_string(vrkjson* json, const std::string& text);

}  // namespace vrk
