// The type registry: registration of native types and their members, creation
// by type name, and the start-up routine that registers every native type.
#include "objects/type_registry.h"

#include <utility>

#include "base/log.h"
#include "base/script_lock.h"
#include "objects/bitmap.h"
#include "objects/members.h"
#include "objects/module.h"
#include "objects/object_context.h"
#include "objects/os.h"
#include "objects/signalhandler.h"
#include "objects/subprocess.h"
#include "objects/threadworker.h"
#include "objects/timer.h"
#include "objects/vec.h"
#include "saved/value_form.h"
#include "values/cell.h"
#include "vm/block.h"
#include "vm/instruction.h"

namespace vrk {

namespace {

// The record of the type registered last, which member calls add to.
vrktype_record* current_type() {
    vrkobject_context& ctx = object_context();
    auto found = ctx.types.find(ctx.lastTypeName);
    return found == ctx.types.end() ? nullptr : found->second.get();
}

}  // namespace

void register_type_record(const char* name, std::function<vrkobject*()> creator) {
    ScriptLock lock;
    vrkobject_context& ctx = object_context();
    ctx.lastTypeName = name;
    if (ctx.types.count(name)) {
        log().error("script type already exists! %s", name);
        return;
    }
    auto record = std::make_shared<vrktype_record>();
    record->name = name;
    record->creator = std::move(creator);
    record->name_cell = cell_new(Tag::STRING);
    set_string(record->name_cell, name);
    record->name_cell->constant = 1;
    ctx.types.emplace(name, std::move(record));
    ctx.typeList[name] = static_cast<int>(ctx.typeList.size());
}

vrktype_record* find_type(const std::string& name) {
    vrkobject_context& ctx = object_context();
    auto found = ctx.types.find(name);
    return found == ctx.types.end() ? nullptr : found->second.get();
}

const vrkmember_table* find_members(const std::string& name) {
    const vrktype_record* type = find_type(name);
    if (!type || type->members.empty()) return nullptr;
    return &type->members;
}

vrkobject* create_object(const std::string& name) {
    const vrktype_record* type = find_type(name);
    if (!type || !type->creator) return nullptr;
    return type->creator();
}

void add_function_member(const char* name, vrkmember_fn callable, int parameterCount,
                         bool plain_args, bool threaded, const char* description) {
    ScriptLock lock;
    vrktype_record* type = current_type();
    if (!type) return;
    // A native block as a builtin has one, but in no global table: the member
    // is reached only through its object.
    vrkblock* block = block_new(nullptr);
    block->code_text = string_new();
    *block->code_text = name;
    auto* record = new vrknative{member_wrapper(std::move(callable), threaded), nullptr, true};
    block->code.push_back(
        vrkinstr{static_cast<uint8_t>(Op::EXTERNAL), reinterpret_cast<uint64_t>(record), -1});
    block->param_count = static_cast<int16_t>(parameterCount);
    block->plain_args = plain_args ? 1 : 0;
    block->native = 1;
    for (int i = 0; i < parameterCount; ++i) block->vars.push_back(cell_new(Tag::VOID));

    vrkvar* cell = cell_new(Tag::FUNCTION);
    cell->attrs = attr::NATIVE_FUNCTION;
    cell->flags = flag::CAPTURED;
    cell->aux = static_cast<uint16_t>(parameterCount);
    cell->block = block;
    cell->value.native = record;

    vrkmember member;
    member.name = name;
    member.description = description ? description : "";
    member.function_cell = cell;
    member.threaded = threaded;
    type->members.push_back(std::move(member));
}

void add_property_member(const char* name, vrkaccessor accessor) {
    ScriptLock lock;
    vrktype_record* type = current_type();
    if (!type) return;
    vrkmember member;
    member.name = name;
    member.accessor = std::move(accessor);
    type->members.push_back(std::move(member));
}

void register_native_types() {
    ScriptLock lock;
    vrkobject_context& ctx = object_context();
    if (ctx.types.count("vrkobject")) return;
    // The order of the host's types; those not built yet keep their place.
    AThreadWorker::scriptRegister();
    ASignalHandler::scriptRegister();
    ATimer::scriptRegister();
    VorkaOS::scriptRegister();
    ScriptBMP::scriptRegister();
    ScriptSubProcess::scriptRegister();
    ScriptVector::scriptRegister();
    AScript::scriptRegister();
    register_type_record("vrkobject", []() -> vrkobject* {
        log().error("cannot instantiate vrkobject!");
        return nullptr;
    });
    set_object_creator(create_object);
    set_object_associator(associateBlock);
}

}  // namespace vrk
