// Tests of the JSON text reader: its classification of levels, the literal
// rules, the top-level/nested difference, its faults, and round trips through
// the writer.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "builtins/serial.h"
#include "saved/json_text.h"
#include "support/saved_support.h"

namespace vrk {
namespace {

using test::add_element;
using test::LogRecorder;
using test::OwnedCell;

class JsonTextTest : public test::SavedTest {
protected:
    vrkjson* read(const std::string& text) {
        from_string(as_json(root.get()), text);
        return root->value.json;
    }
    vrkelement* at(std::size_t i) const { return root->value.json->elements.at(i); }
    static vrkelement* at(const vrkvar* cell, std::size_t i) {
        return cell->value.json->elements.at(i);
    }
    // A missing key and an empty key are the same.
    static std::string key(const vrkelement* e) { return e->key ? *e->key : std::string(); }

    OwnedCell root{Tag::JSON};  // the record under test
};

TEST_F(JsonTextTest, MembersTakeTheLiteralRules) {
    read(
        "{\"i\": -3, \"f\": 1.5, \"q\": \"3\", \"bare\": abc, 't': true, 'u': false, \"e\": , "
        "\"dots\": 1.2.3, 'single': 'x y'}");
    ASSERT_EQ(root->value.json->elements.size(), 9u);
    EXPECT_EQ(key(at(0)), "i");
    EXPECT_EQ(at(0)->type, Tag::INT);
    EXPECT_EQ(at(0)->value.i, -3);
    EXPECT_EQ(at(1)->type, Tag::FLOAT);
    EXPECT_DOUBLE_EQ(at(1)->value.f, 1.5);
    EXPECT_EQ(at(2)->type, Tag::STRING) << "a quoted number stays a string";
    EXPECT_EQ(*at(2)->value.str, "3");
    EXPECT_EQ(at(3)->type, Tag::STRING) << "quotes are optional";
    EXPECT_EQ(*at(3)->value.str, "abc");
    EXPECT_EQ(key(at(4)), "t") << "single quotes read like double quotes";
    EXPECT_EQ(at(4)->value.i, 1);
    EXPECT_EQ(at(5)->type, Tag::INT);
    EXPECT_EQ(at(5)->value.i, 0);
    EXPECT_EQ(at(6)->type, Tag::STRING) << "an empty value is the empty string";
    EXPECT_EQ(*at(6)->value.str, "");
    EXPECT_EQ(at(7)->type, Tag::FLOAT) << "1.2.3 reaches the decimal reading, which stops early";
    EXPECT_DOUBLE_EQ(at(7)->value.f, 1.2);
    EXPECT_EQ(*at(8)->value.str, "x y");
}

TEST_F(JsonTextTest, NullIsZeroOnlyBelowTheTopLevel) {
    read("[1, null, true, false]");
    ASSERT_EQ(root->value.json->elements.size(), 4u);
    EXPECT_EQ(at(1)->type, Tag::STRING) << "the top level knows no null";
    EXPECT_EQ(*at(1)->value.str, "null");
    EXPECT_EQ(at(2)->value.i, 1);
    EXPECT_EQ(at(3)->value.i, 0);

    read("{\"top\": null, \"a\": [null, 2], \"o\": {\"x\": null}}");
    ASSERT_EQ(root->value.json->elements.size(), 3u);
    EXPECT_EQ(at(0)->type, Tag::STRING);
    vrkelement* a = at(1);
    ASSERT_EQ(a->type, Tag::JSON);
    EXPECT_EQ(at(a, 0)->type, Tag::INT);
    EXPECT_EQ(at(a, 0)->value.i, 0);
    EXPECT_EQ(at(a, 1)->value.i, 2);
    vrkelement* o = at(2);
    ASSERT_EQ(o->type, Tag::JSON);
    EXPECT_EQ(at(o, 0)->type, Tag::INT);
    EXPECT_EQ(at(o, 0)->value.i, 0);
}

TEST_F(JsonTextTest, LevelsAreClassifiedByTheirFirstCharacter) {
    // An array of objects, and the same written as a list of braces.
    for (const char* text : {"[{\"a\": 1}, {\"b\": 2}]", "{{\"a\": 1}, {\"b\": 2}}"}) {
        read(text);
        ASSERT_EQ(root->value.json->elements.size(), 2u) << text;
        EXPECT_EQ(key(at(0)), "");
        ASSERT_EQ(at(0)->type, Tag::JSON) << text;
        EXPECT_EQ(key(at(at(0), 0)), "a");
        EXPECT_EQ(at(at(1), 0)->value.i, 2);
    }
    // An array directly inside an array is not taken apart.
    read("[[1, 2], [3]]");
    ASSERT_EQ(root->value.json->elements.size(), 2u);
    EXPECT_EQ(at(0)->type, Tag::STRING);
    EXPECT_EQ(*at(0)->value.str, "[1, 2]");

    // Empty forms.
    read("[]");
    EXPECT_TRUE(root->value.json->elements.empty());
    read("  \t ");
    EXPECT_TRUE(root->value.json->elements.empty());
    read("[ \n ]");
    EXPECT_TRUE(root->value.json->elements.empty());
}

TEST_F(JsonTextTest, EscapesAndBlanks) {
    // Line feeds and tabs written as escapes become a line feed and four
    // blanks in members; a real tab becomes four blanks everywhere, in strings too.
    read(
        "{\"s\": \"a\\nb\", \"t\": \"x\\ty\", \"real\": \"p\tq\", \"k\\\"ey\": 1, \"bs\": \"c:\\\\d\"}");
    ASSERT_EQ(root->value.json->elements.size(), 5u);
    EXPECT_EQ(*at(0)->value.str, "a\nb");
    EXPECT_EQ(*at(1)->value.str, "x    y");
    EXPECT_EQ(*at(2)->value.str, "p    q");
    EXPECT_EQ(key(at(3)), "k\"ey");
    EXPECT_EQ(*at(4)->value.str, "c:\\\\d") << "a backslash is not an escape of its own";

    // A document wrapped in one pair of double quotes reads as if bare.
    read("\"{\"a\": 7}\"");
    ASSERT_EQ(root->value.json->elements.size(), 1u);
    EXPECT_EQ(key(at(0)), "a");
    EXPECT_EQ(at(0)->value.i, 7);

    // Colons and commas inside quotes do not split.
    read("{\"url\": \"http://x,y\"}");
    ASSERT_EQ(root->value.json->elements.size(), 1u);
    EXPECT_EQ(*at(0)->value.str, "http://x,y");
}

TEST_F(JsonTextTest, FaultsAreReportedAndReadingGoesOn) {
    LogRecorder log;
    read("{\"a\": 1, \"b\", \"c\": 3, \"\": 4, x:y:z}");
    ASSERT_EQ(root->value.json->elements.size(), 2u) << "the empty key is dropped without a word";
    EXPECT_EQ(key(at(0)), "a");
    EXPECT_EQ(key(at(1)), "c");
    EXPECT_EQ(log.errors(), 2u);
    EXPECT_TRUE(log.saw("malformatted json"));

    LogRecorder unclosed;
    read("{\"a\": 1, \"b\": 2");
    EXPECT_TRUE(unclosed.saw("invalid json!\n{\"a\": 1, \"b\": 2"));
    ASSERT_EQ(root->value.json->elements.size(), 2u) << "an unclosed brace keeps the rest";
    EXPECT_EQ(at(1)->value.i, 2);

    // Malformed numbers are reported, not thrown.
    LogRecorder numbers;
    read("[-, ., 5]");
    ASSERT_EQ(root->value.json->elements.size(), 3u);
    EXPECT_TRUE(numbers.saw("invalid stoll argument"));
    EXPECT_TRUE(numbers.saw("invalid stod argument"));
    EXPECT_EQ(at(0)->value.i, 0);
    EXPECT_EQ(at(2)->value.i, 5);

    // Old children are gone whatever the text.
    read("{\"x\": 1}");
    read("nonsense");
    EXPECT_TRUE(root->value.json->elements.empty());
}

TEST_F(JsonTextTest, DeepNestingStopsAtTheLimit) {
    std::string text;
    for (int i = 0; i < 400; ++i) text += "{\"a\": ";
    text += "1";
    for (int i = 0; i < 400; ++i) text += "}";
    LogRecorder log;
    read(text);
    EXPECT_TRUE(log.saw("json nested too deeply!"));
    // The levels above the limit are there.
    const vrkvar* cell = root.get();
    int depth = 0;
    while (cell->type == Tag::JSON && !cell->value.json->elements.empty()) {
        cell = cell->value.json->elements.front();
        ++depth;
    }
    EXPECT_GT(depth, 200);
    EXPECT_LT(depth, 400);
}

TEST_F(JsonTextTest, WrittenTextReadsBackToTheSameText) {
    add_element(root.get(), "a")->value.i = 1;
    vrkelement* list = add_element(root.get(), "list");
    as_json(list);
    set_int(add_element(list, nullptr), 1);
    set_float(add_element(list, nullptr), 2.5);
    vrkelement* inner = add_element(list, nullptr);
    set_string(add_element(inner, "deep"), "v");
    set_string(add_element(root.get(), "s"), "line\nbreak and \"quotes\"");
    set_string(add_element(root.get(), "k\"ey"), "");
    vrkelement* obj = add_element(root.get(), "o");
    set_int(add_element(obj, "x"), -4);
    as_json(add_element(obj, "empty"));

    for (bool compact : {false, true}) {
        const std::string text = to_string(root->value.json, compact);
        OwnedCell back(Tag::JSON);
        from_string(back->value.json, text);
        EXPECT_EQ(to_string(back->value.json, compact), text) << text;
        EXPECT_EQ(to_string(back->value.json, !compact), to_string(root->value.json, !compact));
    }
}

TEST_F(JsonTextTest, Builtins) {
    OwnedCell source(Tag::JSON), result, compact_flag;
    set_int(add_element(source.get(), "n"), 3);
    set_int(compact_flag.get(), 1);

    std::vector<vrkvar*> none;
    builtin_to_json_string(nullptr, nullptr, none, nullptr, *result.get());
    ASSERT_EQ(result->type, Tag::STRING);
    EXPECT_EQ(*result->value.str, "");

    std::vector<vrkvar*> two{source.get(), compact_flag.get()};
    builtin_to_json_string(nullptr, nullptr, two, nullptr, *result.get());
    EXPECT_EQ(*result->value.str, "{\"n\": 3}");
    std::vector<vrkvar*> one{source.get()};
    builtin_to_json_string(nullptr, nullptr, one, nullptr, *result.get());
    EXPECT_EQ(*result->value.str, "{\n    \"n\": 3\n}");

    // The argument is made a JSON value first, discarding what it held.
    OwnedCell number;
    set_int(number.get(), 5);
    std::vector<vrkvar*> coerced{number.get()};
    builtin_to_json_string(nullptr, nullptr, coerced, nullptr, *result.get());
    EXPECT_EQ(number->type, Tag::JSON);
    EXPECT_EQ(*result->value.str, "[\n]");

    OwnedCell text, parsed;
    set_string(text.get(), "{\"a\": [1, 2]}");
    std::vector<vrkvar*> from{text.get()};
    builtin_from_json_string(nullptr, nullptr, from, nullptr, *parsed.get());
    ASSERT_EQ(parsed->type, Tag::JSON);
    EXPECT_EQ(to_string(parsed->value.json, true), "{\"a\": [1, 2]}");
    std::vector<vrkvar*> wrong{text.get(), text.get()};
    builtin_from_json_string(nullptr, nullptr, wrong, nullptr, *parsed.get());
    ASSERT_EQ(parsed->type, Tag::JSON);
    EXPECT_TRUE(parsed->value.json->elements.empty()) << "another count leaves the empty array";
}

}  // namespace
}  // namespace vrk
