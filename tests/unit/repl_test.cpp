// The prompt's test for a statement that continues on the next line.
#include <gtest/gtest.h>

#include "host/repl.h"

namespace vrk {
namespace {

TEST(PromptBraces, OpenBracesContinueAStatementOutsideStringsAndComments) {
    EXPECT_EQ(open_brace_depth("print(1);\n"), 0);
    EXPECT_EQ(open_brace_depth("if (x) {\n"), 1);
    EXPECT_EQ(open_brace_depth("f(a) { if (a) {\n}\n"), 1);
    EXPECT_EQ(open_brace_depth("f(a) { if (a) {\n}\n}\n"), 0);
    // Braces in strings and comments do not count; a string ends with its line.
    EXPECT_EQ(open_brace_depth("print(\"{\");\n"), 0);
    EXPECT_EQ(open_brace_depth("x = 1; // {\n"), 0);
    EXPECT_EQ(open_brace_depth("s = \"open\nif (y) {\n"), 1);
    // A stray closing brace does not leave the prompt waiting.
    EXPECT_LE(open_brace_depth("}\n"), 0);
}

}  // namespace
}  // namespace vrk
