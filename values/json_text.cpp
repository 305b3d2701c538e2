// The JSON text writer: a JSON record to its text form.
//
// The form is close to JSON and deliberately not JSON: a comma is always
// followed by a blank, only double quotes and line feeds are escaped (and
// carriage returns dropped), and at the top level the elements without a key are
// written only when they are themselves JSON values. A record is an array when
// none of its elements has a non-empty key, otherwise an object whose keyless
// elements are left out.
#include "values/json_text.h"

#include <string>

#include "values/cell.h"
#include "values/json.h"
#include "values/object.h"

namespace vrk {

namespace {

bool has_name(const vrkelement* e) { return e->key && !e->key->empty(); }

bool is_array(const vrkjson* json) {
    for (const vrkelement* e : json->elements) {
        if (has_name(e)) return false;
    }
    return true;
}

void put_indent(std::string& out, int indent) { out.append(static_cast<std::size_t>(indent), ' '); }

// Starts an element: the separator of the one before and the line layout.
void begin_element(std::string& out, bool& first, int indent, bool compact) {
    if (!first) out += ", ";
    first = false;
    if (!compact) {
        out += '\n';
        put_indent(out, indent);
    }
}

// A text between double quotes with quotes escaped; with `lines`, line feeds
// become \n and carriage returns are dropped.
void put_quoted(std::string& out, const std::string& text, bool lines) {
    out += '"';
    for (char c : text) {
        if (c == '"') {
            out += "\\\"";
        } else if (lines && c == '\n') {
            out += "\\n";
        } else if (lines && c == '\r') {
            continue;
        } else {
            out += c;
        }
    }
    out += '"';
}

void write_cell(int indent, std::string& out, const vrkvar* cell, bool as_array, bool compact);

// A JSON element written as a nested array or object.
void write_nested(int indent, std::string& out, const vrkvar* child, bool compact) {
    const vrkjson* json = child->value.json;
    const bool array = !json || is_array(json);
    out += array ? '[' : '{';
    write_cell(indent + 4, out, child, array, compact);
    if (!compact && json && !json->elements.empty()) {
        out += '\n';
        put_indent(out, indent);
    }
    out += array ? ']' : '}';
}

// The content of one cell: the elements of a JSON, or the text of a value.
void write_cell(int indent, std::string& out, const vrkvar* cell, bool as_array, bool compact) {
    switch (cell->type) {
        case Tag::JSON: {
            if (!cell->value.json) return;
            bool first = true;
            for (const vrkelement* child : cell->value.json->elements) {
                if (!has_name(child) && !as_array) continue;
                begin_element(out, first, indent, compact);
                if (!as_array) {
                    put_quoted(out, *child->key, true);
                    out += ": ";
                }
                if (child->type == Tag::JSON) {
                    write_nested(indent, out, child, compact);
                } else {
                    write_cell(indent, out, child, false, compact);
                }
            }
            return;
        }
        case Tag::STRING:
            put_quoted(out, cell->value.str ? *cell->value.str : std::string(), true);
            return;
        case Tag::PTR: {
            out += '"';
            if (vrkobject* obj = object_of(cell)) {
                std::string text;
                obj->toString(text);
                out += text;
            }
            out += '"';
            return;
        }
        default: append_string(cell, out); return;
    }
}

// The elements of the top-level record.
void write_top(int indent, std::string& out, const vrkjson* json, bool compact) {
    bool first = true;
    for (const vrkelement* child : json->elements) {
        if (!has_name(child) && child->type != Tag::JSON) continue;
        begin_element(out, first, indent, compact);
        if (has_name(child)) {
            put_quoted(out, *child->key, false);
            out += ": ";
        }
        if (child->type == Tag::JSON) {
            write_nested(indent, out, child, compact);
        } else {
            write_cell(indent, out, child, false, compact);
        }
    }
}

}  // namespace

void json_to_text(const vrkjson* json, bool compact, std::string& out) {
    if (!json) {
        out += compact ? "[]" : "[\n]";
        return;
    }
    const bool array = is_array(json);
    out += array ? '[' : '{';
    write_top(4, out, json, compact);
    if (!compact) out += '\n';
    out += array ? ']' : '}';
}

std::string to_string(const vrkjson* json, bool compact) {
    std::string out;
    json_to_text(json, compact, out);
    return out;
}

}  // namespace vrk
