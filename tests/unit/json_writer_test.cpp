// Tests of the JSON text writer: layout, the array/object decision and escaping.
#include <gtest/gtest.h>

#include <string>

#include "base/context.h"
#include "base/script_lock.h"
#include "saved/json_text.h"
#include "values/cell.h"
#include "values/json.h"
#include "values/pools.h"

namespace vrk {
namespace {

class JsonWriterTest : public ::testing::Test {
protected:
    void SetUp() override {
        context().main_thread = current_thread_id();
        root = cell_new(Tag::JSON);
    }
    void TearDown() override { cell_free(root); }

    static vrkelement* add(vrkvar* json, const char* key) {
        vrkelement* e = key ? element_new_keyed(key) : element_new();
        as_json(json)->elements.push_back(e);
        return e;
    }
    static void add_int(vrkvar* json, const char* key, int64_t v) { set_int(add(json, key), v); }
    std::string text(bool compact) const {
        std::string out;
        json_to_text(root->value.json, compact, out);
        return out;
    }

    vrkvar* root = nullptr;  // the record under test
};

TEST_F(JsonWriterTest, Layout) {
    EXPECT_EQ(text(false), "[\n]");
    EXPECT_EQ(text(true), "[]");

    add_int(root, "a", 1);
    vrkelement* b = add(root, "b");
    as_json(b);
    add_int(b, nullptr, 1);
    add_int(b, nullptr, 2);
    EXPECT_EQ(text(false), "{\n    \"a\": 1, \n    \"b\": [\n        1, \n        2\n    ]\n}");
    EXPECT_EQ(text(true), "{\"a\": 1, \"b\": [1, 2]}");
    EXPECT_EQ(to_string(root), text(false));
}

TEST_F(JsonWriterTest, KeylessElementsAreDroppedWhereTheyCannotBeWritten) {
    // At the top level only JSON elements without a key survive.
    add_int(root, nullptr, 7);
    vrkelement* inner = add(root, nullptr);
    as_json(inner);
    add_int(inner, nullptr, 3);
    vrkelement* empty = add(root, nullptr);
    as_json(empty);
    EXPECT_EQ(text(true), "[[3], []]");

    // In an object, keyless elements are left out at every level.
    add_int(root, "k", 1);
    vrkelement* obj = add(root, "o");
    as_json(obj);
    add_int(obj, nullptr, 5);
    add_int(obj, "x", 6);
    EXPECT_EQ(text(true), "{[3], [], \"k\": 1, \"o\": {\"x\": 6}}");
}

TEST_F(JsonWriterTest, ValuesAndEscaping) {
    vrkelement* s = add(root, "top\"\nkey");
    set_string(s, "a\"b\nc\r\\d\t");
    vrkelement* f = add(root, "f");
    set_float(f, 0.5);
    vrkelement* nested = add(root, "n");
    as_json(nested);
    vrkelement* deep = add(nested, "in\"ner\n\r");
    set_string(deep, "");
    // Top-level names escape quotes only; nested names and strings also turn
    // line feeds into \n and drop carriage returns; backslash and tab stay.
    EXPECT_EQ(
        text(true),
        "{\"top\\\"\nkey\": \"a\\\"b\\nc\\d\t\", \"f\": 0.500000, \"n\": {\"in\\\"ner\\n\": \"\"}}");
}

}  // namespace
}  // namespace vrk
