// The registry of native script types and their member tables.
//
// Every native type a script can name (`vec`, `bitmap`, ...) has one record
// here, kept in the process context under its script type name: a creator
// that makes a new object of the type (used when a saved value or a deep copy
// brings an object back by name) and the type's member table.
//
// A member table lists what a script reaches with `object.name` or
// `object[key]`, in registration order. A record is either a script function
// (a FUNCTION cell whose native block calls the member through the member
// wrapper, with the object taken from the calling block's object stack) or a
// property (an accessor called with the object, the value cell, the key and
// whether it is a write). A record with an empty name is the type's catch-all:
// it receives every key that no record before it has, so it stands last.
//
// Types register from one start-up routine (`register_native_types`) in a
// fixed order; `registerType` names the type the member calls that follow
// add to, so member calls come right after their `registerType`.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "values/object.h"

namespace vrk {

struct vrkvar;
struct vrkblock;

// Property accessor: object, value cell, key cell, is_set.
using vrkaccessor = std::function<void(vrkobject*, vrkvar*, vrkvar*, bool)>;
// Script function member: object, calling block, arguments, result.
using vrkmember_fn = std::function<void(vrkobject*, vrkblock*, std::vector<vrkvar*>&, vrkvar&)>;

// One member of a type.
struct vrkmember {
    std::string name;                 // name as scripts see it; empty for the catch-all
    std::string description;          // help text; empty for properties
    vrkaccessor accessor;             // property accessor; empty for a script function
    vrkvar* function_cell = nullptr;  // script function: its FUNCTION cell; null for a property
    bool threaded = false;            // the access runs as a job on a worker thread
};

using vrkmember_table = std::vector<vrkmember>;

// One native type.
struct vrktype_record {
    std::string name;                     // script type name
    std::function<vrkobject*()> creator;  // makes a new object of the type; may give null
    vrkmember_table members;              // members in registration order
    vrkvar* name_cell = nullptr;          // constant STRING cell with the type name
};

// Enters a type under `name` with its creator and makes it the type that the
// member calls below add to. A name given twice is reported and the first
// creator stands.
void register_type_record(const char* name, std::function<vrkobject*()> creator);

template <class T>
void registerType(const char* name) {
    register_type_record(name, []() -> vrkobject* { return std::make_unique<T>().release(); });
}

// The record of a type, or null.
vrktype_record* find_type(const std::string& name);
// The member table of a type, or null when the type has none.
const vrkmember_table* find_members(const std::string& name);
// A new object of the named type, or null (unknown type, or a creator that
// refuses). Reports nothing.
vrkobject* create_object(const std::string& name);

// Appends a script function member to the type being registered. The member
// wrapper is built here: see objects/members.cpp.
void add_function_member(const char* name, vrkmember_fn callable, int parameterCount,
                         bool plain_args, bool threaded, const char* description);
// Appends a property to the type being registered (`name` empty: the catch-all).
void add_property_member(const char* name, vrkaccessor accessor);

// A script function member of `T`.
template <class T, class F>
void scriptFunction(const char* name, F callable, int parameterCount, bool plain_args,
                    bool threaded, const char* description) {
    add_function_member(
        name,
        [callable](vrkobject* self, vrkblock* b, std::vector<vrkvar*>& args, vrkvar& result) {
            callable(static_cast<T*>(self), b, args, result);
        },
        parameterCount, plain_args, threaded, description);
}

// A property of `T`: accessor(T*, value, key, is_set).
template <class T, class F>
void registerScriptFunction(const char* name, F accessor) {
    add_property_member(name, [accessor](vrkobject* self, vrkvar* value, vrkvar* key, bool set) {
        accessor(static_cast<T*>(self), value, key, set);
    });
}

// The same where the member's class `T` is not the class defining the
// registration (a base's accessor registered for a derived type).
template <class T, class U, class F>
void registerScriptFunction2(const char* name, F accessor) {
    add_property_member(name, [accessor](vrkobject* self, vrkvar* value, vrkvar* key, bool set) {
        accessor(static_cast<U*>(static_cast<T*>(self)), value, key, set);
    });
}

// Registers every native type of the host, in their fixed order, and installs
// the creator that saved values use. Idempotent; called once at start-up.
void register_native_types();

}  // namespace vrk
