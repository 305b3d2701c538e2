// The library reference generator: one section per family, one table row per
// builtin in registration order.
#include "builtins/library_doc.h"

#include <string>
#include <vector>

#include "builtins/registry.h"

namespace vrk {

namespace {

constexpr std::string_view kOther = "other";

// True when `name` is one of the space-separated words of `names`.
bool listed(std::string_view names, std::string_view name) {
    std::size_t pos = 0;
    while (pos <= names.size()) {
        std::size_t end = names.find(' ', pos);
        if (end == std::string_view::npos) end = names.size();
        if (names.substr(pos, end - pos) == name) return true;
        pos = end + 1;
    }
    return false;
}

// A text for a Markdown table cell: bars escaped, line breaks as spaces.
std::string cell_text(std::string_view text) {
    std::string out;
    for (const char c : text) {
        if (c == '|') {
            out += "\\|";
        } else if (c == '\n' || c == '\r') {
            out += ' ';
        } else {
            out += c;
        }
    }
    return out;
}

std::string count_text(const vrkbuiltin_row& row) {
    if (row.kind == vrkrow_kind::variable) return "variable";
    if (row.param_count == 16) return "up to 16";
    return std::to_string(row.param_count);
}

}  // namespace

std::string_view family_of(std::string_view name) {
    for (const vrklibrary_family& family : library_families()) {
        if (listed(family.names, name)) return family.title;
    }
    return kOther;
}

std::string_view note_of(std::string_view name) {
    for (const vrklibrary_note& note : library_notes()) {
        if (name == note.name) return note.text;
    }
    return {};
}

std::string library_reference() {
    std::string out;
    out += "# Library reference\n\n";
    out +=
        "Every builtin function and library global of vorkascript, grouped by family, in\n"
        "registration order within each family. \"Parameters\" is the declared count the\n"
        "compiler sees; each builtin checks the arguments it really gets and reports a wrong\n"
        "call in the log. The descriptions are the texts `help` and `getfunctions` show, word\n"
        "for word: a few were copied from a neighbouring row and do not fit their function.\n\n";
    out +=
        "This file is generated from the builtin table: run `build/vorka_libdoc > "
        "docs/LIBRARY.md`.\n";
    std::vector<std::string_view> titles;
    for (const vrklibrary_family& family : library_families()) titles.push_back(family.title);
    titles.push_back(kOther);
    for (const std::string_view title : titles) {
        std::string rows;
        for (const vrkbuiltin_row& row : builtin_table()) {
            if (family_of(row.name) != title) continue;
            rows += "| `" + std::string(row.name) + "` | " + count_text(row) + " | " +
                    cell_text(row.description) + " | " + cell_text(note_of(row.name)) + " |\n";
        }
        if (rows.empty()) continue;
        out += "\n## " + std::string(title) + "\n\n";
        out += "| Name | Parameters | Description | Note |\n";
        out += "|---|---|---|---|\n";
        out += rows;
    }
    return out;
}

}  // namespace vrk
