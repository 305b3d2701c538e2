// The two binary forms of values: the cell form and the JSON list form.
//
// The cell form holds one cell: the marker 1234 (so that a reader can tell a
// cell from noise), the tag, a payload chosen by the tag and, on request, a
// trailer with the cell's constant byte, flags, attributes and aux bytes.
// Compiled programs keep their constants this way, and the script functions
// `serialize` and `deserialize` expose it.
//
// The JSON list form holds the elements of a JSON value: a count, then per
// element its key, its tag and a payload. It is what `jsontodata`, `datatojson`
// and `todata` use, and what the cell form embeds for a JSON value. Only a few
// tags have a list payload (INT, FLOAT, STRING, DATA, FLOATSET, JSON, a
// FUNCTION with a block, PTR); an element of any other tag leaves its key and
// nothing else, and a reader then takes what follows for the next tag. Scripts
// keep to the tags that work.
//
// A function inside a list is written whole, as a block record with code,
// when the list stands alone, and as a reference (child position, parent
// steps, or a native function's name) when it belongs to a saved program, the
// `contextBlock`. A native object is written as its type name and whatever the
// object writes after it, and is created again by type name when read.
//
// Both readers are tolerant: a cell whose data ends early keeps what was read
// and zero for the rest; a list whose data ends early is emptied entirely.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "values/object_form.h"

namespace vrk {

struct vrkvar;
struct vrkjson;
struct vrkblock;
class vrkobject;
class ScriptCacheReader;
class ScriptCacheWriter;

// The cell marker, 04D2 hexadecimal.
inline constexpr uint16_t kCellMarker = 1234;

// Appends the cell form of `cell`.
void serialize(vrkvar* cell, ScriptCacheWriter& writer, vrkblock* contextBlock, bool withTrailer);
// Reads the cell form into `cell`. A wrong marker reports and leaves INT 0.
void deserialize(vrkvar* cell, ScriptCacheReader& reader, vrkblock* contextBlock, bool withTrailer);

// Appends the JSON list form of `json`.
void jsonToData(const vrkjson* json, ScriptCacheWriter& writer, vrkblock* contextBlock);
void jsonToData(const vrkjson* json, std::vector<uint8_t>& out, vrkblock* contextBlock);
// Replaces the elements of `json` with the list read. Functions read whole
// become blocks owned by `contextBlock` (dropped when there is none).
void dataToJson(vrkjson* json, ScriptCacheReader& reader, vrkblock* contextBlock);
void dataToJson(vrkjson* json, const std::vector<uint8_t>& bytes, uint32_t& position,
                vrkblock* contextBlock);

// ---- native objects in saved forms ----------------------------------------------------
// Objects are created by type name through values/object_form.h.
// Ties an object read as part of a saved program to that program's block.
using object_associator = void (*)(vrkobject* object, vrkblock* block);
void set_object_associator(object_associator associator);

}  // namespace vrk
