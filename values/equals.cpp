// `equals`: the `==` of the language, decided by the first rule that applies.
//
// The rules are ordered by tag, not symmetric: the run loop passes the right
// operand as `a`. Objects and functions compare by identity and against
// integers as truth values; two JSON values compare equal unless one of `a`'s
// elements is not even equal to itself, so comparing JSON values is in effect a
// comparison of tags; strings win over numbers and compare as text.
#include <cstring>
#include <string>

#include "values/cell.h"
#include "values/json.h"
#include "values/object.h"
#include "values/value_context.h"

namespace vrk {

namespace {

bool is_callable_tag(Tag t) { return t == Tag::FUNCTION || t == Tag::CLASS; }

}  // namespace

bool equals(vrkvar* a, vrkvar* b) {
    // Two strings, as rule 6 compares them, without making text copies of
    // both (a missing text is the empty one).
    if (a->type == Tag::STRING && b->type == Tag::STRING && value_context().data_paths) {
        const std::size_t na = a->value.str ? a->value.str->size() : 0;
        const std::size_t nb = b->value.str ? b->value.str->size() : 0;
        return na == nb &&
               (na == 0 || std::memcmp(a->value.str->data(), b->value.str->data(), na) == 0);
    }
    // 1, 2: object handles.
    if (a->type == Tag::PTR) {
        if (b->type == Tag::PTR) return object_of(a) == object_of(b);
        if (b->type == Tag::INT) return b->value.i == 1;
        return false;
    }
    if (b->type == Tag::PTR) return a->type == Tag::INT && a->value.i == 1;

    // 3: functions and class values, by block; against an integer, its truth.
    if (is_callable_tag(a->type)) {
        if (b->type == a->type) return a->block == b->block;
        if (b->type == Tag::INT) return to_int(b) != 0;
        return false;
    }
    if (is_callable_tag(b->type)) {
        if (a->type == Tag::INT) return to_int(a) != 0;
        return false;
    }

    // 4: two JSON values: each element of a against itself.
    if (a->type == Tag::JSON && b->type == Tag::JSON) {
        if (!a->value.json) return true;
        for (vrkelement* e : a->value.json->elements) {
            if (!equals(e, e)) return false;
        }
        return true;
    }

    // 5: references compare their value words.
    if (a->type == Tag::REF || b->type == Tag::REF) return a->value.i == b->value.i;

    // 6: text.
    if (a->type == Tag::STRING || b->type == Tag::STRING) return to_string(a) == to_string(b);

    // 7, 8: numbers.
    if (a->type == Tag::FLOAT || b->type == Tag::FLOAT) return to_float(a) == to_float(b);
    if (a->type == Tag::INT || b->type == Tag::INT) return to_int(a) == to_int(b);

    // 9: byte buffers.
    if (a->type == Tag::DATA && b->type == Tag::DATA) {
        const std::vector<uint8_t>* da = a->value.data;
        const std::vector<uint8_t>* db = b->value.data;
        if (!da || !db) return da == db;
        return *da == *db;
    }
    return false;
}

}  // namespace vrk
