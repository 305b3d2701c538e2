// Tests of the JSON record: index normalisation and growth, key look-up with its
// position hint, appends and erasure.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/context.h"
#include "base/log.h"
#include "base/script_lock.h"
#include "values/cell.h"
#include "values/json.h"
#include "values/pools.h"

namespace vrk {
namespace {

// Collects every log text of one kind while it lives.
class LogCapture {
public:
    explicit LogCapture(ScriptLogType kind) {
        id = log().addListener([this, kind](ScriptLogType type, const char* text) {
            if (type == kind) texts.emplace_back(text);
            return true;
        });
    }
    ~LogCapture() { log().removeListener(id); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    int count(const std::string& text) const {
        int n = 0;
        for (const std::string& t : texts) n += t.find(text) != std::string::npos ? 1 : 0;
        return n;
    }

    std::vector<std::string> texts;

private:
    uint32_t id = 0;
};

class JsonTest : public ::testing::Test {
protected:
    void SetUp() override {
        context().main_thread = current_thread_id();
        json = json_new();
    }
    void TearDown() override { json_free(json); }

    // A keyed element holding an INT.
    vrkelement* keyed(const std::string& key, int64_t v) {
        vrkelement* e = json_append_keyed(json, nullptr, key, nullptr);
        set_int(e, v);
        return e;
    }
    // A positional element whose key is truly absent. Elements from the pool keep
    // an emptied key string, so the test drops it to get the null-key case.
    vrkelement* plain(int64_t v) {
        vrkelement* e = json_append(json, nullptr, nullptr);
        if (e->key) {
            string_free(e->key);
            e->key = nullptr;
        }
        set_int(e, v);
        return e;
    }
    std::size_t size() const { return json->elements.size(); }

    vrkjson* json = nullptr;
};

TEST_F(JsonTest, PositionNormalisesNegativeIndexes) {
    // Empty: negative gives 0, anything else is returned without growing.
    EXPECT_EQ(json_position(json, -3), 0);
    EXPECT_EQ(json_position(json, 5), 5);
    EXPECT_EQ(size(), 0u);

    for (int i = 0; i < 3; ++i) plain(i);
    EXPECT_EQ(json_position(json, -1), 2);
    EXPECT_EQ(json_position(json, -3), 0);
    EXPECT_EQ(json_position(json, -4), 2);
    EXPECT_EQ(json_position(json, -6), 0);
    EXPECT_EQ(json_position(json, INT64_MIN), 1);  // 2^63 mod 3 is 2
    // Negative indexes never grow an array that has elements.
    EXPECT_EQ(json_at(json, -7), json->elements[2]);
    EXPECT_EQ(size(), 3u);
}

TEST_F(JsonTest, AtGrowsWithIntZeroElements) {
    // a[-1] on an empty array makes position 0.
    vrkelement* first = json_at(json, -1);
    ASSERT_EQ(size(), 1u);
    EXPECT_EQ(json->elements[0], first);
    json_clear(json);

    // An empty array indexed past 0 grows up to the index as well.
    json_at(json, 3);
    EXPECT_EQ(size(), 4u);
    json_clear(json);

    plain(7);
    plain(8);
    vrkelement* fifth = json_at(json, 5);
    ASSERT_EQ(size(), 6u);
    EXPECT_EQ(json->elements[5], fifth);
    for (std::size_t i = 2; i < 6; ++i) {
        EXPECT_EQ(json->elements[i]->type, Tag::INT);
        EXPECT_EQ(json->elements[i]->value.i, 0);
        EXPECT_TRUE(json->elements[i]->key == nullptr || json->elements[i]->key->empty());
    }
    EXPECT_EQ(json->elements[1]->value.i, 8);
}

TEST_F(JsonTest, WarnsOnlyWhenGrowingMoreThanHundredPastTheEnd) {
    plain(1);
    plain(2);
    {
        LogCapture warnings(ScriptLogType::warning);
        json_at(json, 102);  // exactly 100 past the end
        EXPECT_EQ(warnings.count("allocating big json array by index!"), 0);
        EXPECT_EQ(size(), 103u);
    }
    {
        LogCapture warnings(ScriptLogType::warning);
        json_at(json, 103 + 101);
        EXPECT_EQ(warnings.count("allocating big json array by index!"), 1);
        EXPECT_EQ(size(), 205u);
    }
}

TEST_F(JsonTest, FindCreatesAndRemembersTheHit) {
    keyed("a", 1);
    vrkelement* x = keyed("x", 2);

    EXPECT_EQ(json_find(json, "x"), x);
    EXPECT_EQ(json->last_hit, 1);

    // The remembered position is tried before any scan: with the key duplicated,
    // a hint at the second copy returns that copy although the scan would find
    // the first.
    vrkelement* x2 = keyed("x", 3);
    json->last_hit = 2;
    EXPECT_EQ(json_find(json, "x"), x2);
    EXPECT_EQ(json_find(json, "x"), x2);
    EXPECT_EQ(json->last_hit, 2);

    // A miss appends a keyed INT 0 and records the old size.
    vrkelement* y = json_find(json, "y");
    ASSERT_EQ(size(), 4u);
    EXPECT_EQ(json->elements[3], y);
    ASSERT_NE(y->key, nullptr);
    EXPECT_EQ(*y->key, "y");
    EXPECT_EQ(y->type, Tag::INT);
    EXPECT_EQ(y->value.i, 0);
    EXPECT_EQ(json->last_hit, 3);
}

TEST_F(JsonTest, LastHitCountsKeyedElementsOnly) {
    plain(0);
    keyed("", 0);  // counted, never compared
    plain(0);
    vrkelement* x = keyed("x", 5);

    EXPECT_EQ(json_find(json, "x"), x);
    // One keyed element (the empty key) stands before the match at position 3.
    EXPECT_EQ(json->last_hit, 1);
    // The next read misses the hint and scans again, still finding the element.
    EXPECT_EQ(json_find(json, "x"), x);
    EXPECT_EQ(size(), 4u);
}

TEST_F(JsonTest, EmptyKeyIsNeverFound) {
    keyed("", 1);
    json_find(json, "");
    json_find(json, "");
    EXPECT_EQ(size(), 3u);
    int64_t hint = 0;
    json_find_hinted(json, "", hint);
    EXPECT_EQ(size(), 4u);
    EXPECT_EQ(hint, 3);
}

TEST_F(JsonTest, HintedReadSurvivesAKeyAddedInFront) {
    vrkelement* x = keyed("x", 1);
    int64_t hint = -1;
    EXPECT_EQ(json_find_hinted(json, "x", hint), x);
    EXPECT_EQ(hint, 0);

    // A key inserted before it moves the element; the compare guards the hint.
    vrkelement* front = element_new_keyed("y");
    json->elements.insert(json->elements.begin(), front);
    EXPECT_EQ(json_find_hinted(json, "x", hint), x);
    EXPECT_EQ(hint, 1);
    EXPECT_EQ(json->last_hit, 1);
    EXPECT_EQ(size(), 2u);
    EXPECT_EQ(json_find_hinted(json, "x", hint), x);
}

TEST_F(JsonTest, EraseByPosition) {
    for (int i = 0; i < 3; ++i) plain(i);
    vrkvar k;
    k.type = Tag::INT;

    // Past the end: grow to 11, then drop the last one.
    k.value.i = 10;
    json_erase(json, &k);
    EXPECT_EQ(size(), 10u);
    EXPECT_EQ(json->elements[2]->value.i, 2);

    k.value.i = -10;  // the first
    json_erase(json, &k);
    EXPECT_EQ(size(), 9u);
    EXPECT_EQ(json->elements[0]->value.i, 1);

    k.type = Tag::FLOAT;  // truncated to position 1
    k.value.f = 1.9;
    json_erase(json, &k);
    EXPECT_EQ(size(), 8u);
    EXPECT_EQ(json->elements[0]->value.i, 1);
    EXPECT_EQ(json->elements[1]->value.i, 0);

    // An empty array has nothing to erase and does not grow.
    json_clear(json);
    k.type = Tag::INT;
    k.value.i = 4;
    json_erase(json, &k);
    EXPECT_EQ(size(), 0u);
}

TEST_F(JsonTest, EraseByKeyRemovesEveryMatch) {
    keyed("a", 1);
    keyed("dup", 2);
    plain(3);
    keyed("dup", 4);
    keyed("", 5);
    keyed("dupe", 6);

    vrkvar* k = cell_new(Tag::INT);
    set_string(k, "dup");
    json_erase(json, k);
    ASSERT_EQ(size(), 4u);
    EXPECT_EQ(json->elements[0]->value.i, 1);
    EXPECT_EQ(json->elements[1]->value.i, 3);
    EXPECT_EQ(json->elements[2]->value.i, 5);
    EXPECT_EQ(json->elements[3]->value.i, 6);

    // The empty key matches nothing, not even elements with an empty key.
    set_string(k, "");
    json_erase(json, k);
    EXPECT_EQ(size(), 4u);
    cell_free(k);
}

TEST_F(JsonTest, EraseRejectsInvalidKeys) {
    keyed("a", 1);
    LogCapture errors(ScriptLogType::error);

    vrkvar null_text;
    null_text.type = Tag::STRING;
    null_text.value.str = nullptr;
    json_erase(json, &null_text);

    vrkvar* data = cell_new(Tag::DATA);
    as_data(data)->assign({'a'});
    json_erase(json, data);
    cell_free(data);

    EXPECT_EQ(errors.count("erase: invalid key."), 2);

    // Other tags are ignored without a word.
    json_erase(json, none_value());
    EXPECT_EQ(errors.texts.size(), 2u);
    EXPECT_EQ(size(), 1u);
}

TEST_F(JsonTest, KeyCompareLooksAtEveryByte) {
    EXPECT_TRUE(json_key_equal("", ""));
    EXPECT_TRUE(json_key_equal("0123456789abcdefXY", "0123456789abcdefXY"));
    EXPECT_FALSE(json_key_equal("abc", "abcd"));
    EXPECT_FALSE(json_key_equal("0123456789abcdefXY", "0123456789abcdefXZ"));  // in the tail
    EXPECT_FALSE(json_key_equal("0123456789abcdefXY", "01234567_9abcdefXY"));  // in a word
    EXPECT_FALSE(json_key_equal(std::string("a\0b", 3), std::string("a\0c", 3)));
}

}  // namespace
}  // namespace vrk
