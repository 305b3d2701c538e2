// `vrkobject_ext`: the base of every native script type with a member table.
//
// A native type `T` derives from `vrkobject_ext<T, vrkobject>` (or, when its
// members may run as jobs on worker threads, from
// `vrkobject_ext<T, vrkobject_threaded>`) and names its script type in
// `T::script_type_name`. Construction enters the object in the guarded pointer
// registry under `T`, sets the type name and finds the type's shared member
// table; `arrayGet` and `arraySet` then serve `object.name` and `object[key]`
// from that table (objects/members.h), the same code for every type.
#pragma once

#include "objects/members.h"
#include "objects/type_registry.h"
#include "values/cell.h"
#include "values/object.h"

namespace vrk {

template <class T, class Base>
class vrkobject_ext : public vrkptr_register<T, Base> {
public:
    vrkobject_ext() {
        this->type_name = T::script_type_name;
        this->type_set = 1;
        members = find_members(this->type_name);
    }

    ScriptArrayReturn arrayGet(vrkblock* b, vrkvar* res, vrkvar* key) override {
        return member_access(this, members, b, res, key, false);
    }
    ScriptArrayReturn arraySet(vrkblock* b, vrkvar* value, vrkvar* key) override {
        return member_access(this, members, b, value, key, true);
    }

    const vrkmember_table* members = nullptr;  // the type's shared member table, or null
};

// The live object of type `T` a PTR cell designates, or null.
template <class T>
T* object_as(const vrkvar* cell) {
    if (!cell || cell->type != Tag::PTR || cell->aux_hi() != kHandleMark) return nullptr;
    const auto id = static_cast<uint32_t>(static_cast<uint64_t>(cell->value.i) & 0xFFFFFFFFu);
    return resolve<T>(cell->handle_index, id);
}

}  // namespace vrk
