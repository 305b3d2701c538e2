// `ScriptModuleObject`: an object of a native type that a module registered.
//
// A module describes a type by a `vrkmodule_type` record (vorka/module.h): its
// script name, how to make and free the state behind an object, its text and
// its member functions. The host gives every such type the same C++ class:
// the object holds the module's record and the state it made, and answers
// the script under the record's name. Members reach the module's code through
// the usual member table (objects/members.h), one table per script type name,
// so `object.name(...)` costs what it costs for the host's own types.
#pragma once

#include <string>

#include "objects/object_ext.h"
#include "vorka/module.h"

namespace vrk {

class ScriptModuleObject : public vrkobject_ext<ScriptModuleObject, vrkobject> {
public:
    // The member table is looked up under the module's type name instead.
    static constexpr const char* script_type_name = "vrkmodule_object";

    // An object of `type` with a fresh state from the type's `create`.
    explicit ScriptModuleObject(const vrkmodule_type* type);
    ~ScriptModuleObject() override;

    void toString(std::string& out) override;

    const vrkmodule_type* type = nullptr;  // the module's description of the type
    void* state = nullptr;                 // what `type->create` made; freed by `type->destroy`
};

// Enters a module's type in the type registry with its members; reports a
// record without name or creator and leaves it out.
void register_module_type(const vrkmodule_type* type);

// The state of the object of `type` that `cell` designates, or null.
void* module_object_state(vrkvar* cell, const vrkmodule_type* type);

}  // namespace vrk
