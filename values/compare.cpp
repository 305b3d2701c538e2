// The order tests < <= > >= of the language.
//
// Numbers compare as doubles when either side is FLOAT, else as integers when
// either side is INT; otherwise two texts compare when either side is STRING,
// and anything else is simply not ordered. The two families of text compare
// differ on purpose: <= and >= compare bytes with case and a shorter string
// first, < and > fold case and say nothing about a string and its prefix.
#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <string_view>

#include "values/cell.h"
#include "values/operators.h"

namespace vrk {

namespace {

// The relation a routine tests between its first and second argument.
enum class Relation : uint8_t { le, ge, lt, gt };

// Instruction code → relation. The run loop passes a = rhs, b = lhs, so
// code 2 (`>=`) tests a <= b, 3 (`<=`) a >= b, 4 (`>`) a < b, 5 (`<`) a > b.
constexpr int kFirstOrderCode = 2;
constexpr std::array<Relation, 4> kRelationByCode = {Relation::le, Relation::ge, Relation::lt,
                                                     Relation::gt};

template <class N>
bool holds(Relation rel, N x, N y) {
    switch (rel) {
        case Relation::le: return x <= y;
        case Relation::ge: return x >= y;
        case Relation::lt: return x < y;
        case Relation::gt: return x > y;
    }
    return false;
}

// The text of a cell: a STRING's own text, anything else through to_string.
std::string_view text_of(const vrkvar* c, std::string& holder) {
    if (c->is(Tag::STRING))
        return c->value.str ? std::string_view(*c->value.str) : std::string_view();
    holder = to_string(c);
    return holder;
}

// Byte order with case, a shorter string being less: <0, 0 or >0.
int byte_order(std::string_view x, std::string_view y) {
    const std::size_t n = std::min(x.size(), y.size());
    if (n > 0) {
        if (const int r = std::memcmp(x.data(), y.data(), n); r != 0) return r;
    }
    if (x.size() == y.size()) return 0;
    return x.size() < y.size() ? -1 : 1;
}

// A character as the case-blind compare sees it: ASCII letters lowered (the
// lower-casing of the C locale), then taken as a signed value, so bytes from
// 0x80 up come before all ASCII.
signed char folded(char c) {
    const char lower = (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
    return static_cast<signed char>(lower);
}

// Case-blind x < y over the common length; the first difference decides, a
// string and its prefix are not ordered either way.
bool folded_less(std::string_view x, std::string_view y) {
    const std::size_t n = std::min(x.size(), y.size());
    for (std::size_t i = 0; i < n; ++i) {
        const signed char cx = folded(x[i]);
        const signed char cy = folded(y[i]);
        if (cx != cy) return cx < cy;
    }
    return false;
}

bool text_holds(Relation rel, std::string_view x, std::string_view y) {
    switch (rel) {
        case Relation::le: return byte_order(x, y) <= 0;
        case Relation::ge: return byte_order(x, y) >= 0;
        case Relation::lt: return folded_less(x, y);
        case Relation::gt: return folded_less(y, x);
    }
    return false;
}

}  // namespace

bool order_test(int code, vrkvar* a, vrkvar* b) {
    const int slot = code - kFirstOrderCode;
    if (slot < 0 || slot >= static_cast<int>(kRelationByCode.size())) return false;
    if (is_marker(a) || is_marker(b)) return false;
    const Relation rel = kRelationByCode[static_cast<std::size_t>(slot)];

    if (a->is(Tag::FLOAT) || b->is(Tag::FLOAT)) return holds(rel, to_float(a), to_float(b));
    if (a->is(Tag::INT) || b->is(Tag::INT)) return holds(rel, to_int(a), to_int(b));
    if (a->is(Tag::STRING) || b->is(Tag::STRING)) {
        std::string ha, hb;
        return text_holds(rel, text_of(a, ha), text_of(b, hb));
    }
    return false;
}

}  // namespace vrk
