// JSON text of a JSON value: the writer and the splitting reader.
//
// The text form is close to JSON and deliberately not JSON. The writer puts a
// blank after every comma and escapes only double quotes and line feeds (and
// drops carriage returns); backslashes and tabs go out as they are. A record is
// written as an array when none of its elements has a non-empty key, otherwise
// as an object whose keyless elements are left out; at the top level plain
// keyless values are left out even of an array.
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

namespace vrk {

struct vrkjson;

// Appends the text of the record (`compact` drops line feeds and indentation).
void json_to_text(const vrkjson* json, bool compact, std::string& out);
// The text of the record.
std::string to_string(const vrkjson* json, bool compact);
// Replaces the record's elements with what the text describes.
void from_string(vrkjson* json, const std::string& text);

}  // namespace vrk
