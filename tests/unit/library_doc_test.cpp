// The data behind the library reference: every builtin in exactly one family,
// every note about a builtin that exists, and the reference built from both.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "builtins/library_doc.h"
#include "builtins/registry.h"

namespace vrk {
namespace {

TEST(LibraryDocTest, EveryRowInExactlyOneFamily) {
    std::map<std::string, int> listings;
    for (const vrklibrary_family& family : library_families()) {
        std::string names = family.names;
        std::size_t pos = 0;
        while (pos <= names.size()) {
            std::size_t end = names.find(' ', pos);
            if (end == std::string::npos) end = names.size();
            ++listings[names.substr(pos, end - pos)];
            pos = end + 1;
        }
    }
    std::size_t rows = 0;
    for (const vrkbuiltin_row& row : builtin_table()) {
        ++rows;
        EXPECT_EQ(listings[row.name], 1) << row.name;
        EXPECT_NE(family_of(row.name), "other") << row.name;
    }
    // No family lists a name the table does not have.
    EXPECT_EQ(listings.size(), rows);
}

TEST(LibraryDocTest, NotesAreSingleLinesOnExistingRows) {
    for (const vrklibrary_note& note : library_notes()) {
        bool found = false;
        for (const vrkbuiltin_row& row : builtin_table())
            found = found || note.name == std::string(row.name);
        EXPECT_TRUE(found) << note.name;
        EXPECT_EQ(std::string(note.text).find('\n'), std::string::npos) << note.name;
        EXPECT_EQ(note_of(note.name), note.text);
    }
    EXPECT_TRUE(note_of("print").empty());
}

TEST(LibraryDocTest, ReferenceRows) {
    const std::string text = library_reference();
    // Bars in a description are escaped so the table keeps its columns.
    EXPECT_NE(text.find("| `find` | 3 | (string\\|json, string\\|int, opt fromindex)"),
              std::string::npos);
    EXPECT_NE(text.find("| `files` | up to 16 |"), std::string::npos);
    EXPECT_NE(text.find("| `M_PI` | variable | Pi |"), std::string::npos);
    EXPECT_NE(text.find("\n## strings\n"), std::string::npos);
    EXPECT_EQ(text.find("\n## other\n"), std::string::npos);
}

}  // namespace
}  // namespace vrk
