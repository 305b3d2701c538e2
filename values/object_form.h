// Native objects made again from their bytes.
//
// A native object writes itself into a byte form (`vrkobject::serialize`,
// values/cache.h): its script type name, then whatever its type adds. Reading
// it back needs the type's constructor, which lives in the object model above
// this layer (objects/type_registry); the model installs a creator that makes an
// empty object of a type by name, and the object then reads its own state. The
// saved forms of values and programs (saved/value_form.h) and an object's
// default deep copy (values/object.cpp) both read objects this way.
#pragma once

#include <string>

namespace vrk {

class vrkobject;
class ScriptCacheReader;

// Creates a native object of a script type by name; installed by the object model.
using object_creator = vrkobject* (*)(const std::string& type_name);
// Installs the creator; returns the one it replaces.
object_creator set_object_creator(object_creator creator);
// Reads a type name, creates the object and lets it read its state; null (with
// the report of the unknown type) when it cannot be created.
vrkobject* instantiate_object(ScriptCacheReader& reader);

}  // namespace vrk
