// Conversions of cells to integer, double and text, tag names, and the reading
// of literal source text into a constant cell.
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>

#include "values/block_hooks.h"
#include "values/cell.h"
#include "values/json.h"
#include "values/json_text.h"
#include "values/object.h"

namespace vrk {

namespace {

// Double to integer, truncating towards zero. A value with no integer of its
// own (NaN, out of range) gives the smallest integer, which is what the
// hardware conversion gives.
int64_t truncate_double(double d) {
    if (std::isnan(d) || d >= 9223372036854775808.0 || d < -9223372036854775808.0)
        return std::numeric_limits<int64_t>::min();
    return static_cast<int64_t>(d);
}

std::size_t element_count(const vrkvar* cell) {
    switch (cell->type) {
        case Tag::JSON: return cell->value.json ? cell->value.json->elements.size() : 0;
        case Tag::DATA: return cell->value.data ? cell->value.data->size() : 0;
        case Tag::FLOATSET: return cell->value.floatset ? cell->value.floatset->size() : 0;
        case Tag::DOUBLESET: return cell->value.doubleset ? cell->value.doubleset->size() : 0;
        case Tag::INTSET: return cell->value.intset ? cell->value.intset->size() : 0;
        case Tag::BIGINTSET: return cell->value.bigintset ? cell->value.bigintset->size() : 0;
        default: return 0;
    }
}

// Text to integer the C library way, after cutting at the first '.'.
int64_t text_to_int(const std::string& text) {
    std::string head = text.substr(0, text.find('.'));
    return std::strtoll(head.c_str(), nullptr, 10);
}

// Reads a whole literal as double; the exception texts are part of the
// language's messages.
double literal_to_double(const std::string& text) {
    const char* begin = text.c_str();
    char* end = nullptr;
    errno = 0;
    double v = std::strtod(begin, &end);
    if (end == begin) throw std::invalid_argument("invalid stod argument");
    if (errno == ERANGE) throw std::out_of_range("stod argument out of range");
    return v;
}

int64_t literal_to_int(const std::string& text) {
    const char* begin = text.c_str();
    char* end = nullptr;
    errno = 0;
    long long v = std::strtoll(begin, &end, 10);
    if (end == begin) throw std::invalid_argument("invalid stoll argument");
    if (errno == ERANGE) throw std::out_of_range("stoll argument out of range");
    return static_cast<int64_t>(v);
}

}  // namespace

int64_t to_int(const vrkvar* cell) {
    switch (cell->type) {
        case Tag::INT:
        case Tag::EXT: return cell->value.i;
        case Tag::FLOAT: return truncate_double(cell->value.f);
        case Tag::STRING: return cell->value.str ? text_to_int(*cell->value.str) : 0;
        case Tag::FUNCTION:
        case Tag::CLASS: return 1;
        case Tag::PTR: {
            vrkobject* obj = object_of(cell);
            return obj ? obj->toInt() : 1;
        }
        case Tag::JSON:
        case Tag::DATA:
        case Tag::FLOATSET:
        case Tag::DOUBLESET:
        case Tag::INTSET:
        case Tag::BIGINTSET: return static_cast<int64_t>(element_count(cell));
        default: return 0;
    }
}

double to_float(const vrkvar* cell) {
    switch (cell->type) {
        case Tag::INT:
        case Tag::EXT: return static_cast<double>(cell->value.i);
        case Tag::FLOAT:
        case Tag::VOID: return cell->value.f;
        case Tag::STRING:
            return cell->value.str ? std::strtod(cell->value.str->c_str(), nullptr) : 0.0;
        case Tag::PTR: {
            vrkobject* obj = object_of(cell);
            return obj ? obj->toFloat() : 0.0;
        }
        case Tag::DATA: {
            const std::vector<uint8_t>* data = cell->value.data;
            if (!data || data->size() != sizeof(double)) return 0.0;
            double d;
            std::memcpy(&d, data->data(), sizeof d);
            return d;
        }
        default: return 0.0;
    }
}

void append_string(const vrkvar* cell, std::string& out) {
    switch (cell->type) {
        case Tag::INT:
        case Tag::EXT: out += std::to_string(static_cast<long long>(cell->value.i)); break;
        case Tag::FLOAT: {
            // Six decimals always; the text is cut to what a 24-byte buffer holds.
            char buffer[24];
            int n = std::snprintf(buffer, sizeof buffer, "%lf", cell->value.f);
            if (n > 0)
                out.append(buffer,
                           std::min<std::size_t>(static_cast<std::size_t>(n), sizeof buffer - 1));
            break;
        }
        case Tag::STRING:
            if (cell->value.str) out += *cell->value.str;
            break;
        case Tag::FUNCTION: out += "FUNCTION"; break;
        case Tag::CLASS:
            if (cell->block) {
                block_hooks().append_class_text(cell->block, out);
            } else {
                out += "CLASS";
            }
            break;
        case Tag::PTR:
            if (vrkobject* obj = object_of(cell)) {
                std::string text;
                obj->toString(text);
                out += text;
            }
            break;
        case Tag::REF: out += "REF"; break;
        case Tag::JSON:
            if (cell->value.json) json_to_text(cell->value.json, false, out);
            break;
        case Tag::DATA:
            if (const std::vector<uint8_t>* data = cell->value.data) {
                auto end = std::find(data->begin(), data->end(), uint8_t{0});
                out.append(data->begin(), end);
            }
            break;
        default: break;
    }
}

std::string to_string(const vrkvar* cell) {
    std::string out;
    append_string(cell, out);
    return out;
}

std::string tag_name(Tag tag) {
    static constexpr const char* kNames[] = {
        "INT", "FLOAT", "STRING", "FUNCTION", "CLASS",     "EXT",    "VOID",      "PTR",
        "REF", "JSON",  "DATA",   "FLOATSET", "DOUBLESET", "INTSET", "BIGINTSET", "ERR",
    };
    const auto n = static_cast<unsigned>(tag);
    if (n < std::size(kNames)) return kNames[n];
    return "unknown type " + std::to_string(n);
}

bool parse_literal(vrkvar* cell, const std::string& text) {
    if (cell->constant) return false;
    release_object(cell);

    const std::size_t first_quote = text.find('"');
    if (first_quote != std::string::npos) {
        const std::size_t last_quote = text.rfind('"');
        if (last_quote > first_quote + 1) {
            set_string(cell, text.substr(first_quote + 1, last_quote - first_quote - 1));
        } else {
            set_string(cell, std::string());
        }
        return true;
    }
    if (text.find_first_not_of("0123456789.-") != std::string::npos) {
        set_string(cell, text);
        return false;
    }
    if (text.empty()) return true;
    if (text.find('.') != std::string::npos) {
        set_float(cell, literal_to_double(text));
    } else {
        set_int(cell, literal_to_int(text));
    }
    return true;
}

}  // namespace vrk
