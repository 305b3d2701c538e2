// Tests of the element store `a[k] = v` for every kind of container, and of the
// checked assignment behind it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/context.h"
#include "base/log.h"
#include "base/script_lock.h"
#include "support/log_capture.h"
#include "values/cell.h"
#include "values/json.h"
#include "values/object.h"
#include "vm/block.h"
#include "vm/element_store.h"
#include "vm/instruction.h"

namespace vrk {
namespace {

using test::LogCapture;

// An object that records what the store asked of it.
class RecordingObject : public vrkobject {
public:
    ScriptArrayReturn arraySet(vrkblock* b, vrkvar* value, vrkvar* key) override {
        set_value = value;
        set_key = key;
        seen_instruction = b->current_instruction;
        return {answer, {}};
    }
    ScriptArrayReturn eraseAt(vrkblock*, vrkvar* position) override {
        erased = position;
        return {answer, {}};
    }

    int answer = 0;
    vrkvar* set_value = nullptr;
    vrkvar* set_key = nullptr;
    vrkvar* erased = nullptr;
    const vrkinstr* seen_instruction = nullptr;
};

class ElementStoreTest : public ::testing::Test {
protected:
    void SetUp() override {
        context().main_thread = current_thread_id();
        block = block_new(nullptr);
    }
    void TearDown() override {
        for (vrkvar* c : cells) cell_free(c);
        block_delete(block);
    }

    vrkvar* cell(Tag tag) {
        cells.push_back(cell_new(tag));
        return cells.back();
    }
    vrkvar* int_cell(int64_t v) {
        vrkvar* c = cell(Tag::INT);
        set_int(c, v);
        return c;
    }
    vrkvar* string_cell(const std::string& s) {
        vrkvar* c = cell(Tag::INT);
        set_string(c, s);
        return c;
    }
    // Stores src into dst[k] the way the run loop does after an INDEX.
    bool store_at_key(vrkvar* dst, vrkvar* key, vrkvar* src) {
        block->pending_key = key;
        return element_store(block, dst, src);
    }
    bool store_at(vrkvar* dst, int64_t k, vrkvar* src) {
        block->pending_index = k;
        return element_store(block, dst, src);
    }

    vrkblock* block = nullptr;
    std::vector<vrkvar*> cells;
};

TEST_F(ElementStoreTest, JsonStoreFindsTheElementByKeyTag) {
    vrkvar* a = cell(Tag::JSON);
    vrkjson* json = as_json(a);

    EXPECT_FALSE(store_at_key(a, string_cell("name"), string_cell("v")));
    EXPECT_FALSE(has_pending_index(block));
    ASSERT_EQ(json->elements.size(), 1u);
    EXPECT_EQ(*json->elements[0]->key, "name");
    EXPECT_EQ(to_string(json->elements[0]), "v");

    // The same key again overwrites.
    store_at_key(a, string_cell("name"), int_cell(7));
    ASSERT_EQ(json->elements.size(), 1u);
    EXPECT_EQ(to_int(json->elements[0]), 7);

    // A DATA key is looked up by its text.
    vrkvar* data_key = cell(Tag::DATA);
    as_data(data_key)->assign({'n', 'a', 'm', 'e'});
    store_at_key(a, data_key, int_cell(8));
    ASSERT_EQ(json->elements.size(), 1u);
    EXPECT_EQ(to_int(json->elements[0]), 8);

    // Any other key is a position; a FLOAT is truncated; past the end grows.
    vrkvar* pos = cell(Tag::FLOAT);
    set_float(pos, 3.7);
    store_at_key(a, pos, int_cell(9));
    ASSERT_EQ(json->elements.size(), 4u);
    EXPECT_EQ(to_int(json->elements[3]), 9);
    EXPECT_EQ(to_int(json->elements[2]), 0);

    // The erase constant removes instead.
    store_at_key(a, string_cell("name"), erase_value());
    ASSERT_EQ(json->elements.size(), 3u);
    EXPECT_EQ(to_int(json->elements[2]), 9);
    EXPECT_FALSE(has_pending_index(block));
}

TEST_F(ElementStoreTest, ConstantElementIsReportedAndKept) {
    vrkvar* a = cell(Tag::JSON);
    vrkelement* e = json_append_keyed(as_json(a), int_cell(5), "c", block);
    e->constant = 1;
    {
        LogCapture captured;
        store_at_key(a, string_cell("c"), int_cell(6));
        EXPECT_TRUE(LogCapture::has(captured.errors, "tried to override const var!"));
        EXPECT_TRUE(LogCapture::has(captured.lines, "name of the var: "));
    }
    EXPECT_EQ(e->value.i, 5);
    EXPECT_FALSE(has_pending_index(block));

    // A named variable of the block is reported by name.
    vrkvar* v = block->declare_var("limit");
    set_int(v, 1);
    v->constant = 1;
    {
        LogCapture captured;
        checked_assign(block, v, int_cell(2));
        EXPECT_TRUE(LogCapture::has(captured.lines, "name of the var: limit"));
    }
    EXPECT_EQ(v->value.i, 1);
    v->constant = 0;

    // A constant CLASS is left alone without a report.
    vrkvar klass;
    klass.type = Tag::CLASS;
    klass.constant = 1;
    {
        LogCapture captured;
        checked_assign(block, &klass, int_cell(3));
        EXPECT_TRUE(captured.errors.empty());
    }
    EXPECT_EQ(klass.type, Tag::CLASS);
}

TEST_F(ElementStoreTest, CheckedAssignIgnoresMarkersAndBindsObjects) {
    vrkvar* dst = int_cell(4);
    checked_assign(block, dst, reinterpret_cast<vrkvar*>(uintptr_t{10}));
    checked_assign(block, reinterpret_cast<vrkvar*>(uintptr_t{10}), dst);
    EXPECT_EQ(dst->value.i, 4);

    // Without an object stack a BOUND_OBJECT source is a plain copy.
    vrkvar* src = int_cell(11);
    src->flags = flag::BOUND_OBJECT;
    dst->attrs = attr::BY_REF_PARAM | attr::NO_REF_WRAP;
    checked_assign(block, dst, src);
    EXPECT_EQ(dst->value.i, 11);
    EXPECT_EQ(dst->attrs, attr::BY_REF_PARAM | attr::NO_REF_WRAP);

    // With one, the object on top is bound and only NATIVE_FUNCTION survives.
    RecordingObject object;
    block->get_object_stack().push_back(nullptr);
    block->get_object_stack().push_back(&object);
    checked_assign(block, dst, src);
    EXPECT_EQ(dst->value.ptr, static_cast<void*>(static_cast<vrkobject*>(&object)));
    EXPECT_EQ(dst->attrs, 0);
    dst->value.i = 0;
}

TEST_F(ElementStoreTest, StringStoreOverwritesAndAppends) {
    vrkvar* s = string_cell("abc");
    store_at(s, 10, string_cell("x"));  // past the end: appended, no padding
    EXPECT_EQ(to_string(s), "abcx");
    EXPECT_FALSE(has_pending_index(block));

    store_at(s, 2, string_cell("YZW"));
    EXPECT_EQ(to_string(s), "abYZW");

    store_at(s, 0, int_cell(42));
    EXPECT_EQ(to_string(s), "42YZW");

    store_at(s, 1, erase_value());
    EXPECT_EQ(to_string(s), "4YZW");
    store_at(s, 4, erase_value());  // at the length: nothing
    EXPECT_EQ(to_string(s), "4YZW");
}

TEST_F(ElementStoreTest, DataStoresStayInRange) {
    vrkvar* d = cell(Tag::DATA);
    as_data(d)->assign({1, 2, 3});
    store_at(d, 1, int_cell(300));  // truncated to a byte
    EXPECT_EQ(*as_data(d), (std::vector<uint8_t>{1, 44, 3}));
    store_at(d, 3, int_cell(9));  // out of range: nothing, not even growth
    EXPECT_EQ(*as_data(d), (std::vector<uint8_t>{1, 44, 3}));
    EXPECT_FALSE(has_pending_index(block));
    store_at(d, 0, erase_value());
    EXPECT_EQ(*as_data(d), (std::vector<uint8_t>{44, 3}));
    store_at(d, 2, erase_value());
    EXPECT_EQ(as_data(d)->size(), 2u);
}

TEST_F(ElementStoreTest, NumericSetsConvertAndErase) {
    vrkvar* half = cell(Tag::FLOAT);
    set_float(half, 2.5);

    vrkvar* f = cell(Tag::FLOATSET);
    as_floatset(f)->assign({1.0f, 2.0f});
    store_at(f, 0, half);
    store_at(f, 5, half);
    EXPECT_EQ(*as_floatset(f), (std::vector<float>{2.5f, 2.0f}));

    vrkvar* iset = cell(Tag::INTSET);
    as_intset(iset)->assign({0, 0, 0});
    store_at(iset, 1, int_cell(0x100000005));  // truncated to 32 bits
    store_at(iset, 0, half);                   // to_int of 2.5
    store_at(iset, 2, erase_value());
    EXPECT_EQ(*as_intset(iset), (std::vector<int32_t>{2, 5}));

    vrkvar* dset = cell(Tag::DOUBLESET);
    as_doubleset(dset)->assign({1.0});
    store_at(dset, 0, string_cell("0.125"));
    EXPECT_EQ(*as_doubleset(dset), (std::vector<double>{0.125}));

    vrkvar* bset = cell(Tag::BIGINTSET);
    as_bigintset(bset)->assign({0});
    store_at(bset, 0, int_cell(0x100000005));
    EXPECT_EQ(*as_bigintset(bset), (std::vector<int64_t>{0x100000005}));
}

TEST_F(ElementStoreTest, ObjectStoreAsksTheObjectOnTopOfTheStack) {
    RecordingObject object;
    block->get_object_stack().push_back(&object);
    vrkvar handle;  // the container slot; only its tag matters here
    handle.type = Tag::PTR;
    vrkvar* key = string_cell("k");
    vrkvar* value = int_cell(3);
    vrkinstr set_instr;

    block->pending_key = key;
    EXPECT_FALSE(element_store(block, &handle, value, &set_instr));
    EXPECT_EQ(object.set_key, key);
    EXPECT_EQ(object.set_value, value);
    EXPECT_EQ(object.seen_instruction, &set_instr);
    EXPECT_EQ(block->current_instruction, nullptr);
    EXPECT_FALSE(has_pending_index(block));

    // A deferred answer suspends the run; the pending key is gone all the same.
    object.answer = 1;
    EXPECT_TRUE(store_at_key(&handle, key, value));
    EXPECT_FALSE(has_pending_index(block));

    object.answer = 0;
    EXPECT_FALSE(store_at_key(&handle, key, erase_value()));
    EXPECT_EQ(object.erased, key);
}

TEST_F(ElementStoreTest, OtherDestinationsIgnoreTheStore) {
    vrkvar* n = int_cell(5);
    EXPECT_FALSE(store_at(n, 0, int_cell(6)));
    EXPECT_EQ(n->value.i, 5);
    EXPECT_FALSE(has_pending_index(block));

    // A PTR with no object to ask does nothing.
    vrkvar handle;
    handle.type = Tag::PTR;
    EXPECT_FALSE(store_at_key(&handle, int_cell(0), int_cell(1)));
    EXPECT_FALSE(has_pending_index(block));
}

}  // namespace
}  // namespace vrk
