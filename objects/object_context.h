// The native-object layer's part of the process context: the registered
// script types and the pool of `vec` objects.
//
// Like the rest of the process context (base/context.h, values/value_context.h)
// this record is created on first use and never destroyed, so a type
// registered at start-up stays known to every engine and worker thread.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace vrk {

class vrkobject;
struct vrktype_record;

struct vrkobject_context {
    std::map<std::string, std::shared_ptr<vrktype_record>> types;  // native script types by name
    std::string lastTypeName;                                      // type registered last
    std::map<std::string, int> typeList;                           // companion of types
    std::vector<vrkobject*> vector_pool;  // vec objects free for reuse (still registered)
    uint64_t vectors_created = 0;         // vec objects ever allocated
    uint64_t vectors_live = 0;            // vec objects allocated and not yet deleted
};

// The object layer's part of the process context, created on first use and never freed.
vrkobject_context& object_context();

}  // namespace vrk
