// The value layer's part of the process context: made before every other static
// object, never destroyed.
#include "values/value_context.h"

namespace vrk {

namespace detail {
alignas(vrkvalue_context) unsigned char value_context_storage[sizeof(vrkvalue_context)];
}  // namespace detail

namespace {

// Makes the record in its storage. Its priority puts it before every static
// object of ordinary priority, so that no initialiser of another file can
// reach the record before it exists; it has no destructor, so the record stays
// usable while the process ends.
struct value_context_maker {
    value_context_maker() {
        ::new (static_cast<void*>(detail::value_context_storage)) vrkvalue_context();
    }
};
[[gnu::init_priority(101)]] value_context_maker make_value_context;

}  // namespace

}  // namespace vrk
