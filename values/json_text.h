// JSON text of a JSON value: the writer.
//
// The text form is close to JSON and deliberately not JSON. The writer puts a
// blank after every comma and escapes only double quotes and line feeds (and
// drops carriage returns); backslashes and tabs go out as they are. A record is
// written as an array when none of its elements has a non-empty key, otherwise
// as an object whose keyless elements are left out; at the top level plain
// keyless values are left out even of an array. The text of a JSON cell
// (values/convert.cpp) is this text; the reader is saved/json_text.h.
#pragma once

#include <string>

namespace vrk {

struct vrkjson;

// Appends the text of the record (`compact` drops line feeds and indentation).
void json_to_text(const vrkjson* json, bool compact, std::string& out);
// The text of the record.
std::string to_string(const vrkjson* json, bool compact);

}  // namespace vrk
