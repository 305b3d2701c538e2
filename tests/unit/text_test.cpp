// The quote- and bracket-aware text search of the front end: nesting, both
// kinds of quote, escaped quotes, last-match searches, unbalanced texts and the
// operator order.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "base/context.h"
#include "base/log.h"
#include "base/script_lock.h"
#include "frontend/compile_context.h"
#include "frontend/text.h"
#include "vm/block.h"

namespace vrk {
namespace {

class TextTest : public ::testing::Test {
protected:
    void SetUp() override {
        context().main_thread = current_thread_id();
        compile_context().current_compiling_block = nullptr;
        listener = log().addListener([this](ScriptLogType type, const char* text) {
            messages.emplace_back(type, text);
            return true;
        });
    }
    void TearDown() override {
        log().removeListener(listener);
        compile_context().current_compiling_block = nullptr;
    }

    uint32_t listener = 0;
    std::vector<std::pair<ScriptLogType, std::string>> messages;
};

TEST_F(TextTest, FindScopedSkipsBracketsAndQuotes) {
    EXPECT_EQ(find_scoped("f(a,b),c", ','), 6u);
    EXPECT_EQ(find_scoped("[1,{a,b}],c", ','), 9u);
    EXPECT_EQ(find_scoped("x=\"a,b\",c", ','), 7u);
    EXPECT_EQ(find_scoped("'a,b',c", ','), 5u);
    // An escaped double quote does not end the string.
    EXPECT_EQ(find_scoped("\"a\\\",b\",c", ','), 7u);
    // Quotes of the other kind are plain characters inside a quoted stretch.
    EXPECT_EQ(find_scoped("\"it's\",x", ','), 6u);
    EXPECT_EQ(find_scoped("'say \"hi\"',x", ','), 10u);
    // A search for an opening bracket finds the first one at depth 0.
    EXPECT_EQ(find_scoped("a(b(c))", '('), 1u);
    EXPECT_EQ(find_scoped("a,b,c", ',', 2), 3u);
    EXPECT_EQ(find_scoped("(a,b)", ','), npos);
    EXPECT_EQ(find_scoped("abc", ',', 3), npos) << "a start at the end finds nothing";
    EXPECT_TRUE(messages.empty());
}

TEST_F(TextTest, FindScopedLastTakesTheLastHitAtDepthZero) {
    EXPECT_EQ(find_scoped("a,b(c,d),e", ',', 0, true), 8u);
    EXPECT_EQ(find_scoped("a,\"b,c\"", ',', 0, true), 1u);
    // With `last` the counters move first: a closing bracket that returns to
    // depth 0 is a hit, an opening one never is.
    EXPECT_EQ(find_scoped("f(a)(b)", ')', 0, true), 6u);
    EXPECT_EQ(find_scoped("f(a)(b)", '(', 0, true), npos);
}

TEST_F(TextTest, BadInputIsReportedOutsideAndInsideACompile) {
    EXPECT_EQ(find_scoped("a)b,c", ','), npos);
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].first, ScriptLogType::error);
    EXPECT_EQ(messages[0].second, "invalid braces.\na)b,c");

    // Inside a compile the report goes against the block being compiled.
    messages.clear();
    vrkblock* block = block_new(nullptr);
    compile_context().current_compiling_block = block;
    EXPECT_EQ(find_scoped("a]b", 'b'), npos);
    ASSERT_EQ(messages.size(), 3u);
    EXPECT_EQ(messages[0].first, ScriptLogType::error);
    EXPECT_EQ(messages[0].second, "\n\nINTERNAL FAILURE! a]b");
    EXPECT_EQ(messages[1].second, "additional info: ");
    EXPECT_EQ(messages[2].second, "searching for b in a]b");

    messages.clear();
    EXPECT_EQ(find_scoped_text("x}y", "y"), npos);
    ASSERT_EQ(messages.size(), 3u);
    EXPECT_EQ(messages[2].second, "searching for y in x}y");
    compile_context().current_compiling_block = nullptr;
    block_delete(block);

    // Outside a compile the word search gives up silently.
    messages.clear();
    EXPECT_EQ(find_scoped_text("x}y", "y"), npos);
    EXPECT_TRUE(messages.empty());

    // A start behind the end is reported, not read.
    EXPECT_EQ(find_scoped("ab", 'x', 5), npos);
    EXPECT_EQ(find_scoped_text("ab", "x", 5), npos);
    EXPECT_EQ(find_closing("ab", '(', ')', 5), npos);
    EXPECT_EQ(messages.size(), 2u);
}

TEST_F(TextTest, FindScopedTextMatchesWholeWordsAtDepthZero) {
    const std::string line = "x = \"#include\"; (#include); #include \"a\"";
    EXPECT_EQ(find_scoped_text(line, "#include"), 28u);
    EXPECT_EQ(find_scoped_text("ab ab (ab) ab", "ab", 0, true), 11u);
    EXPECT_EQ(find_scoped_text("ab ab", "ab", 1), 3u);
    EXPECT_EQ(find_scoped_text("abc", "abcd"), npos);
    // The match is tested after the bracket it starts with has been counted.
    EXPECT_EQ(find_scoped_text("(x)", "(x"), npos);
}

TEST_F(TextTest, FindClosingBalancesAndHonoursQuotes) {
    EXPECT_EQ(find_closing("f(a(b)c)d", '(', ')', 2), 7u);
    EXPECT_EQ(find_closing("f(\")\")", '(', ')', 2), 5u);
    EXPECT_EQ(find_closing("f(')')", '(', ')', 2), 5u);
    // The escaped quote does not end the string, so its ")" stays inside.
    EXPECT_EQ(find_closing("f(\"\\\")\")", '(', ')', 2), 7u);
    // A quote at the very start of the text opens a string.
    EXPECT_EQ(find_closing("\")\")", '(', ')', 0), 3u);
    EXPECT_EQ(find_closing("{a{b}", '{', '}', 1), npos);
    EXPECT_EQ(find_closing("a}", '{', '}', 0), 1u);
}

TEST_F(TextTest, SplitScopedCutsAtDepthZeroOnly) {
    EXPECT_EQ(split_scoped("a,b(c,d),\"e,f\"", ','),
              (std::vector<std::string>{"a", "b(c,d)", "\"e,f\""}));
    EXPECT_EQ(split_scoped("a,", ','), (std::vector<std::string>{"a", ""}));
    EXPECT_EQ(split_scoped(",", ','), (std::vector<std::string>{"", ""}));
    EXPECT_TRUE(split_scoped("", ',').empty());
}

TEST_F(TextTest, StripBlanksKeepsQuotedBlanks) {
    std::string text = "a = \"b c\" + 'd e' ;";
    strip_blanks(text);
    EXPECT_EQ(text, "a=\"b c\"+'d e';");
    // No escape rule: the backslash-quote closes the string.
    text = "\"a\\\" b\" c";
    strip_blanks(text);
    EXPECT_EQ(text, "\"a\\\"b\" c");
    text = "'it\"s a' b";
    strip_blanks(text);
    EXPECT_EQ(text, "'it\"s a'b");
}

TEST_F(TextTest, FindOperatorFollowsListOrderNotPosition) {
    EXPECT_EQ(find_operator("a*b+c"), 3u) << "+ comes before * in the list";
    EXPECT_EQ(find_operator("a^b/c"), 3u);
    EXPECT_EQ(find_operator("(a+b)*c"), 5u);
    EXPECT_EQ(find_operator("a+b+c", 2), 3u);
    EXPECT_EQ(find_operator("f(a+b)"), npos);
    EXPECT_EQ(find_operator("\"a+b\""), npos);
}

TEST_F(TextTest, TailSearchIsTheSearchOfTheTailAlone) {
    // Every start in a text with quotes, escapes and brackets: the tail search
    // finds what a search of the copied tail finds, shifted by the start.
    const std::string text = "a;'b;\\';\"c;\"(d;e);[f;g];h\\\";i;'j\";k';l";
    for (std::size_t from = 0; from <= text.size(); ++from) {
        const std::size_t tail = find_scoped(text.substr(from), ';');
        const std::size_t walked = find_scoped_tail(text, ';', from);
        EXPECT_EQ(walked, tail == npos ? npos : tail + from) << from;
    }
    // A report shows the tail only.
    messages.clear();
    EXPECT_EQ(find_scoped_tail("x;a)b", 'b', 2), npos);
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].second, "invalid braces.\na)b");
}

}  // namespace
}  // namespace vrk
