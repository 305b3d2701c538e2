// The split loops of the string builtins: plain cuts with a limit, and the
// scoped cuts that skip quoted stretches and bracketed parts with each
// quote and bracket state.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/context.h"
#include "base/log.h"
#include "base/script_lock.h"
#include "builtins/text_split.h"
#include "frontend/compile_context.h"

namespace vrk {
namespace {

using pieces = std::vector<std::string>;

class TextSplitTest : public ::testing::Test {
protected:
    void SetUp() override {
        context().main_thread = current_thread_id();
        compile_context().current_compiling_block = nullptr;
        listener = log().addListener([this](ScriptLogType type, const char*) {
            if (type == ScriptLogType::error) ++errors;
            return true;
        });
    }
    void TearDown() override { log().removeListener(listener); }

    uint32_t listener = 0;
    int errors = 0;
};

TEST_F(TextSplitTest, PlainCutsAndLimits) {
    EXPECT_EQ(split_plain("a,b,c", ",", -1), (pieces{"a", "b", "c"}));
    EXPECT_EQ(split_plain("a,b,c", ",", 1), (pieces{"a", "b,c"}));
    EXPECT_EQ(split_plain("a,b,c", ",", 0), (pieces{"a,b,c"}));
    EXPECT_EQ(split_plain("a,b,", ",", -1), (pieces{"a", "b", ""}));
    EXPECT_EQ(split_plain(",", ",", -1), (pieces{"", ""}));
    EXPECT_EQ(split_plain("", ",", -1), (pieces{""}));
    EXPECT_EQ(split_plain("a--b---c", "--", -1), (pieces{"a", "b", "-c"}));
    EXPECT_EQ(split_plain("abc", "", -1), (pieces{"abc"}));
    EXPECT_EQ(split_plain("ab", "abc", -1), (pieces{"ab"}));
}

TEST_F(TextSplitTest, ScopedWordSkipsQuotesAndBrackets) {
    EXPECT_EQ(split_scoped_word("f(a, b), [c, d], {e, f}, g", ", ", -1),
              (pieces{"f(a, b)", "[c, d]", "{e, f}", "g"}));
    EXPECT_EQ(split_scoped_word("\"a, b\", 'c, d', e", ", ", -1),
              (pieces{"\"a, b\"", "'c, d'", "e"}));
    // Brackets inside quotes are not counted; a double quote inside single
    // quotes is an ordinary character and the other way round.
    EXPECT_EQ(split_scoped_word("\"(\", ')', '\"', x", ", ", -1),
              (pieces{"\"(\"", "')'", "'\"'", "x"}));
    // A quote behind a backslash does not open a stretch.
    EXPECT_EQ(split_scoped_word("a\\\", b", ", ", -1), (pieces{"a\\\"", "b"}));
    // The three bracket kinds are counted apart, not matched to each other.
    EXPECT_EQ(split_scoped_word("(a[b), c], d", ", ", -1), (pieces{"(a[b), c]", "d"}));
    EXPECT_EQ(split_scoped_word("a;b;c", ";", 1), (pieces{"a", "b;c"}));
    EXPECT_EQ(split_scoped_word("abc", "", -1), (pieces{"abc"}));
    EXPECT_EQ(errors, 0);
}

TEST_F(TextSplitTest, ScopedCharCutsAndUnbalancedText) {
    EXPECT_EQ(split_scoped_char("f(a,b),c", ','), (pieces{"f(a,b)", "c"}));
    EXPECT_EQ(split_scoped_char("a,", ','), (pieces{"a", ""}));
    EXPECT_EQ(split_scoped_char("", ','), (pieces{""}));
    EXPECT_EQ(split_scoped_char("{x,y},[1,2],\"p,q\"", ','), (pieces{"{x,y}", "[1,2]", "\"p,q\""}));
    // Searching for an opening bracket at depth 0 finds it: the byte is tested
    // before it changes the depth.
    EXPECT_EQ(split_scoped_char("x(y", '('), (pieces{"x", "y"}));
    EXPECT_EQ(errors, 0);
    // A closer without its opener ends the search with a report.
    EXPECT_EQ(split_scoped_char("a),b", ','), (pieces{"a),b"}));
    EXPECT_EQ(errors, 1);
    // A zero byte as the delimiter never matches the end of the text.
    EXPECT_EQ(split_scoped_char("ab", '\0'), (pieces{"ab"}));
}

}  // namespace
}  // namespace vrk
