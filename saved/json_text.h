// JSON text of a JSON value: the writer and the splitting reader.
#pragma once

#include <string>

namespace vrk {

struct vrkjson;
struct vrkvar;

// Writes the record as JSON text (a blank after each comma; compact drops the
// line layout).
void json_to_text(const vrkjson* json, bool compact, std::string& out);

}  // namespace vrk
