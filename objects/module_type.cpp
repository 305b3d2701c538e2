// Objects of the native types that modules register.
#include "objects/module_type.h"

#include <memory>

#include "base/log.h"
#include "values/cell.h"

namespace vrk {

ScriptModuleObject::ScriptModuleObject(const vrkmodule_type* type) : type(type) {
    type_name = type->name;
    members = find_members(type_name);
    state = type->create ? type->create() : nullptr;
}

ScriptModuleObject::~ScriptModuleObject() {
    if (state && type->destroy) type->destroy(state);
}

void ScriptModuleObject::toString(std::string& out) {
    if (type->to_text && state)
        type->to_text(state, out);
    else
        out = type->name;
}

void register_module_type(const vrkmodule_type* type) {
    if (!type || !type->name || !*type->name || !type->create) {
        log().error("module type without name or creator not registered");
        return;
    }
    register_type_record(type->name, [type]() -> vrkobject* {
        return std::make_unique<ScriptModuleObject>(type).release();
    });
    for (std::size_t i = 0; i < type->member_count; ++i) {
        const vrkmodule_member& m = type->members[i];
        if (!m.name || !m.call) continue;
        vrkmodule_member_fn call = m.call;
        scriptFunction<ScriptModuleObject>(
            m.name,
            [call](ScriptModuleObject* self, vrkblock*, std::vector<vrkvar*>& args,
                   vrkvar& result) { call(self->state, args, result); },
            m.parameter_count, false, false, m.description ? m.description : "");
    }
}

void* module_object_state(vrkvar* cell, const vrkmodule_type* type) {
    ScriptModuleObject* object = object_as<ScriptModuleObject>(deref(cell));
    return object && object->type == type ? object->state : nullptr;
}

}  // namespace vrk
