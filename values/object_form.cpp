// Making a native object again from its byte form, by type name.
#include "values/object_form.h"

#include <utility>
#include <vector>

#include "base/log.h"
#include "values/cache.h"
#include "values/object.h"

namespace vrk {

namespace {

object_creator& creator_slot() {
    static object_creator fn = nullptr;  // installed once by the object model at start-up
    return fn;
}

}  // namespace

object_creator set_object_creator(object_creator creator) {
    return std::exchange(creator_slot(), creator);
}

vrkobject* instantiate_object(ScriptCacheReader& reader) {
    const std::string type_name = reader.compact_string();
    object_creator create = creator_slot();
    vrkobject* object = create ? create(type_name) : nullptr;
    if (!object) {
        log().error("cannot instantiate type: %s\n", type_name.c_str());
        log().log("index: %i", static_cast<int>(reader.position));
        const std::vector<uint8_t>& bytes = reader.bytes();
        for (std::size_t i = 0; i < reader.size(); ++i)
            log().log("%i: %c", static_cast<int>(i), static_cast<int>(bytes[i]));
        return nullptr;
    }
    object->deserialize(reader);
    return object;
}

}  // namespace vrk
