// The builtins that turn values into text or bytes and back.
//
// `to_json_string` and `from_json_string` expose the JSON text form of
// saved/json_text.h; `serialize` and `deserialize` the cell form and
// `jsontodata`, `datatojson` the list form of saved/value_form.h; `todata` the
// raw bytes of a value. Data written by a script stands alone: functions in it
// are written whole. When a script reads such data, the calling block owns the
// functions read back, and native objects read back are tied to it.
//
// Each function has the builtin signature and may be called directly;
#pragma once

#include <vector>

namespace vrk {

class vrkengine;
struct vrkblock;
struct vrkvar;

// (json, compact_output): the JSON text of the first argument.
vrkvar* builtin_to_json_string(vrkengine*, vrkblock* block, std::vector<vrkvar*>& args, void* user,
                               vrkvar& result);
// (string): a JSON value read from the text.
vrkvar* builtin_from_json_string(vrkengine*, vrkblock* block, std::vector<vrkvar*>& args,
                                 void* user, vrkvar& result);
// (json|string|multiset): the raw bytes of a value.
vrkvar* builtin_todata(vrkengine*, vrkblock* block, std::vector<vrkvar*>& args, void* user,
                       vrkvar& result);
// (var, opt buffer): the cell form of a value.
vrkvar* builtin_serialize(vrkengine*, vrkblock* block, std::vector<vrkvar*>& args, void* user,
                          vrkvar& result);
// (buffer, opt var): a value read from its cell form.
vrkvar* builtin_deserialize(vrkengine*, vrkblock* block, std::vector<vrkvar*>& args, void* user,
                            vrkvar& result);
// (json, opt buffer): the list form of a JSON value.
vrkvar* builtin_jsontodata(vrkengine*, vrkblock* block, std::vector<vrkvar*>& args, void* user,
                           vrkvar& result);
// (buffer, opt json): a JSON value read from its list form.
vrkvar* builtin_datatojson(vrkengine*, vrkblock* block, std::vector<vrkvar*>& args, void* user,
                           vrkvar& result);

// Registers the seven functions above under their script names.

}  // namespace vrk
