// The array builtins where a script cannot reach them yet or cannot see the
// result: DATA and number sets, native objects behind PTR cells, the reports
// of wrong calls, element keys, and cells that are at once argument and result.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "base/context.h"
#include "base/log.h"
#include "base/script_lock.h"
#include "builtins/registry.h"
#include "host/engine.h"
#include "support/log_capture.h"
#include "values/json.h"
#include "values/object.h"
#include "vm/block.h"

namespace vrk {
namespace {

// True when exactly one error was logged and it is the block-form report of
// `message`.
bool reported(const test::LogCapture& capture, const std::string& message) {
    return capture.errors.size() == 1 &&
           capture.errors[0].rfind("\nexternal_function: " + message + "\nIn File:\n", 0) == 0;
}

// A native container that records what the builtins ask of it. Its push
// answers with a deferred job, as an object that works on another thread does.
class counting_object : public vrkobject {
public:
    ScriptArrayReturn count(vrkblock*, vrkvar* res) override {
        set_int(res, items);
        return {};
    }
    ScriptArrayReturn push(vrkblock*, vrkvar*, vrkvar* value) override {
        ScriptArrayReturn later;
        later.status = 1;
        const int64_t amount = to_int(value);
        later.job = [this, amount] { items += amount; };
        return later;
    }
    ScriptArrayReturn pop(vrkblock*, vrkvar*) override {
        --items;
        return {};  // writes no answer: the builtin's default stands
    }
    ScriptArrayReturn hasKey(vrkblock*, vrkvar* res, vrkvar* key) override {
        set_int(res, to_string(key) == "yes" ? 1 : 0);
        return {};
    }
    ScriptArrayReturn sync() override {
        ++syncs;
        return {};
    }

    int64_t items = 0;
    int syncs = 0;
};

class BuiltinsArraysTest : public ::testing::Test {
protected:
    void SetUp() override {
        context().main_thread = current_thread_id();
        caller = block_new(&engine);
    }
    void TearDown() override {
        for (vrkvar* c : owned) cell_free(c);
        reset(&result, Tag::INT);
        block_delete(caller);
    }

    // Calls the registered builtin `name` as the run loop would, with an
    // emptied result cell.
    vrkvar* call(const char* name, std::vector<vrkvar*> args) {
        reset(&result, Tag::INT);
        return call_keeping_result(name, std::move(args));
    }
    // The same, with the result cell as the test left it.
    vrkvar* call_keeping_result(const char* name, std::vector<vrkvar*> args) {
        vrkvar* fn = engine.firstBlock->find_var(name);
        EXPECT_NE(fn, nullptr) << name;
        if (!fn) return nullptr;
        vrknative* record = fn->value.native;
        return record->fn(caller, args, record->user, result);
    }

    vrkvar* cell(Tag tag) {
        owned.push_back(cell_new(tag));
        return owned.back();
    }
    vrkvar* number(int64_t v) {
        vrkvar* c = cell(Tag::INT);
        set_int(c, v);
        return c;
    }
    vrkvar* text(const std::string& s) {
        vrkvar* c = cell(Tag::INT);
        set_string(c, s);
        return c;
    }
    vrkvar* bytes(std::vector<uint8_t> values) {
        vrkvar* c = cell(Tag::DATA);
        *as_data(c) = std::move(values);
        return c;
    }
    vrkvar* list(std::vector<int64_t> values) {
        vrkvar* c = cell(Tag::JSON);
        for (int64_t v : values) set_int(json_append(c->value.json, nullptr, nullptr), v);
        return c;
    }
    // A list of records, each {key: value}.
    vrkvar* records(const std::vector<std::pair<std::string, int64_t>>& rows) {
        vrkvar* c = cell(Tag::JSON);
        for (const auto& [key, v] : rows) {
            vrkelement* row = json_append(c->value.json, nullptr, nullptr);
            set_int(json_append_keyed(as_json(row), nullptr, key, nullptr), v);
        }
        return c;
    }
    // A counting handle on a new object, or with `stale` a handle whose object is gone.
    vrkvar* handle(counting_object* object) {
        vrkvar* c = cell(Tag::PTR);
        c->value.i = object ? object->registry_id : 0x7ffffff0;
        c->handle_index = object ? object->registry_index : 1u << 20;
        c->set_aux(0, kHandleMark);
        if (object) object->addRef();
        return c;
    }
    static std::vector<int64_t> values_of(vrkvar* json) {
        std::vector<int64_t> out;
        for (vrkelement* e : json->value.json->elements) out.push_back(to_int(e));
        return out;
    }

    vrkscript engine;
    vrkblock* caller = nullptr;
    vrkvar result;
    std::vector<vrkvar*> owned;
};

TEST_F(BuiltinsArraysTest, PushOntoDataAppendsOneByteOrAllBytes) {
    vrkvar* d = bytes({1, 2});
    EXPECT_EQ(to_int(call("push", {d, number(0x1FF)})), 2) << "answers the last index";
    EXPECT_EQ(*d->value.data, (std::vector<uint8_t>{1, 2, 0xFF})) << "the low 8 bits only";

    EXPECT_EQ(to_int(call("push", {d, bytes({7, 8, 9})})), 5);
    EXPECT_EQ(*d->value.data, (std::vector<uint8_t>{1, 2, 0xFF, 7, 8, 9}));

    EXPECT_EQ(to_int(call("push", {d, d})), 11) << "its own bytes, read before they grow";
    EXPECT_EQ(*d->value.data, (std::vector<uint8_t>{1, 2, 0xFF, 7, 8, 9, 1, 2, 0xFF, 7, 8, 9}));
}

TEST_F(BuiltinsArraysTest, NumberSetsGrowShrinkAndCountElements) {
    vrkvar* f = cell(Tag::FLOATSET);
    vrkvar* i = cell(Tag::INTSET);
    vrkvar* big = cell(Tag::BIGINTSET);
    vrkvar* dbl = cell(Tag::DOUBLESET);
    EXPECT_EQ(to_int(call("empty", {f})), 1);
    EXPECT_EQ(to_int(call("push", {f, text("2.5")})), 0);
    EXPECT_EQ(to_int(call("push", {f, number(3)})), 1);
    EXPECT_EQ(*f->value.floatset, (std::vector<float>{2.5f, 3.0f}));
    EXPECT_EQ(to_int(call("push", {i, text("7.9")})), 0) << "by integer conversion";
    EXPECT_EQ(*i->value.intset, (std::vector<int32_t>{7}));
    call("push", {big, number(int64_t{1} << 40)});
    EXPECT_EQ(*big->value.bigintset, (std::vector<int64_t>{int64_t{1} << 40}));
    call("push", {dbl, text("0.25")});
    EXPECT_EQ(*dbl->value.doubleset, (std::vector<double>{0.25}));

    EXPECT_EQ(to_int(call("count", {f})), 2) << "bytes over the element width";
    EXPECT_EQ(to_int(call("count", {big})), 1);
    EXPECT_EQ(to_int(call("empty", {f})), 0);
    EXPECT_EQ(to_int(call("count", {bytes({1, 2, 3})})), 3);

    EXPECT_EQ(to_int(call("pop", {f})), 0) << "the new last index";
    EXPECT_EQ(f->value.floatset->size(), 1u);

    call("resize", {i, number(3)});
    EXPECT_EQ(*i->value.intset, (std::vector<int32_t>{7, 0, 0})) << "new entries are zero";
    call("resize", {i, number(-4)});
    EXPECT_EQ(i->value.intset->size(), 3u) << "a negative size changes nothing";
    call("clear", {i});
    EXPECT_TRUE(i->value.intset->empty());
}

TEST_F(BuiltinsArraysTest, PopOfAnEmptyBufferIsReportedNotPerformed) {
    vrkvar* d = bytes({});
    test::LogCapture reports;
    EXPECT_EQ(to_int(call("pop", {d})), -1);
    EXPECT_TRUE(reported(reports, "index out of range!"));
    EXPECT_TRUE(d->value.data->empty());
    vrkvar* s = text("");
    reports.errors.clear();
    EXPECT_EQ(to_int(call("pop", {s})), -1);
    EXPECT_TRUE(reported(reports, "index out of range!"));
}

TEST_F(BuiltinsArraysTest, EraseOnBuffersAndTheirReports) {
    vrkvar* d = bytes({1, 2, 3, 4, 5});
    EXPECT_EQ(to_int(call("erase", {d, number(1)})), 0);
    EXPECT_EQ(*d->value.data, (std::vector<uint8_t>{1, 3, 4, 5}));
    call("erase", {d, number(1), number(10)});
    EXPECT_EQ(*d->value.data, (std::vector<uint8_t>{1})) << "a count past the end stops there";

    test::LogCapture reports;
    call("erase", {d, number(3)});
    EXPECT_TRUE(reported(reports, "index out of range!"));
    EXPECT_EQ(d->value.data->size(), 1u);

    reports.errors.clear();
    EXPECT_EQ(to_int(call("erase", {number(4), number(0)})), 0);
    EXPECT_TRUE(reported(reports, "invalid type in erase2"));

    reports.errors.clear();
    EXPECT_EQ(to_int(call("erase", {list({1})})), 0);
    EXPECT_TRUE(reported(reports, "invalid params in erase!"));

    reports.errors.clear();
    vrkvar* l = list({1, 2});
    EXPECT_EQ(to_int(call("erase", {l, cell(Tag::JSON)})), 0);
    EXPECT_TRUE(reported(reports, "invalid type in erase"));
    EXPECT_EQ(values_of(l), (std::vector<int64_t>{1, 2}));

    reports.errors.clear();
    EXPECT_EQ(to_int(call("erase", {l, number(5)})), 4) << "index - 1 even when out of range";
    EXPECT_TRUE(reported(reports, "index out of range!"));
    EXPECT_EQ(values_of(l), (std::vector<int64_t>{1, 2})) << "and the array does not grow";

    EXPECT_EQ(to_int(call("erase", {l, number(INT64_MIN)})), INT64_MAX) << "wraps, no overflow";

    reports.errors.clear();
    vrkvar* s = text("abc");
    call("erase", {s, number(5), number(1)});
    EXPECT_TRUE(reported(reports, "index out of range!"));
    EXPECT_EQ(to_string(s), "abc");
}

TEST_F(BuiltinsArraysTest, WrongCallsAnswerTheirDefaults) {
    test::LogCapture reports;
    vrkvar* r = call("push", {list({})});
    ASSERT_EQ(r->type, Tag::ERR);
    EXPECT_EQ(*r->value.str, "invalid params");
    EXPECT_TRUE(reported(reports, "invalid params!"));

    reports.errors.clear();
    r = call("push", {void_value(), number(1)});
    ASSERT_EQ(r->type, Tag::ERR) << "a constant cannot become a list";
    EXPECT_EQ(void_value()->type, Tag::INT);

    reports.errors.clear();
    EXPECT_EQ(to_int(call("count", {})), 0);
    EXPECT_TRUE(reports.errors.empty());
    ASSERT_EQ(reports.lines.size(), 1u);
    EXPECT_EQ(reports.lines[0], "no params passed to count() !");

    reports.lines.clear();
    EXPECT_EQ(to_int(call("sync", {})), 0);
    ASSERT_EQ(reports.lines.size(), 1u);
    EXPECT_EQ(reports.lines[0], "no params passed to sync() !");
    EXPECT_EQ(to_int(call("sync", {list({1})})), 0);
    EXPECT_TRUE(reported(reports, "no sync object passed!"));

    reports.errors.clear();
    EXPECT_EQ(to_int(call("empty", {})), 1);
    EXPECT_TRUE(reported(reports, "no argument passed"));

    reports.errors.clear();
    r = call("key", {list({1}), number(1)});
    EXPECT_EQ(r->type, Tag::STRING);
    EXPECT_EQ(to_string(r), "");
    EXPECT_TRUE(reported(reports, "index out of range!"));

    reports.errors.clear();
    EXPECT_EQ(to_string(call("key", {number(1), number(0)})), "");
    EXPECT_TRUE(reported(reports, "invalid params!"));

    reports.errors.clear();
    EXPECT_EQ(to_int(call("push_key", {list({}), text("k")})), -1);
    EXPECT_TRUE(reported(reports, "invalid params!"));

    reports.errors.clear();
    EXPECT_EQ(to_int(call("cycle", {list({})})), -1);
    EXPECT_TRUE(reported(reports, "invalid params!"));

    reports.errors.clear();
    EXPECT_EQ(to_int(call("erase_value", {text("abc"), text("b")})), 0);
    EXPECT_TRUE(reported(reports, "strings not supported with this function."));
    reports.errors.clear();
    call("erase_value", {number(3), text("b")});
    EXPECT_TRUE(reported(reports, "invalid type rease value"));

    reports.errors.clear();
    EXPECT_EQ(to_int(call("has_key", {list({})})), 0);
    EXPECT_EQ(to_int(call("is_json", {list({}), list({})})), 0);
    EXPECT_TRUE(reports.errors.empty()) << "has_key and is_json report nothing";
}

TEST_F(BuiltinsArraysTest, KeyLeavesAnEmptyKeyInAnElementThatHadNone) {
    vrkvar* l = cell(Tag::JSON);
    vrkelement* plain = element_new();
    l->value.json->elements.push_back(plain);
    delete plain->key;  // an element never asked for its key has none
    plain->key = nullptr;

    EXPECT_EQ(to_string(call("key", {l, number(0)})), "");
    ASSERT_NE(plain->key, nullptr);
    EXPECT_EQ(*plain->key, "");
    EXPECT_EQ(to_int(call("has_key", {l, text("")})), 0) << "an empty key is no key";

    EXPECT_EQ(to_string(call("setkey", {l, number(0), number(12)})), "");
    EXPECT_EQ(*plain->key, "12");
}

TEST_F(BuiltinsArraysTest, SortByRecordValueNeedsTheKeyInEveryRecord) {
    vrkvar* rows = records({{"k", 3}, {"k", 1}, {"other", 0}, {"k", 2}});
    std::vector<vrkelement*> before = rows->value.json->elements;
    test::LogCapture reports;
    EXPECT_EQ(to_int(call("sortkeyhl", {rows, text("k")})), 0);
    EXPECT_EQ(reports.errors.size(), 1u);
    EXPECT_EQ(rows->value.json->elements, before) << "nothing moved";

    vrkvar* plain = list({2, 1});
    EXPECT_EQ(to_int(call("sortkeylh", {plain, text("k")})), 0) << "elements that are no records";
    EXPECT_EQ(values_of(plain), (std::vector<int64_t>{2, 1}));

    vrkvar* good = records({{"k", 3}, {"k", 1}, {"k", 2}});
    std::vector<vrkelement*> cells = good->value.json->elements;
    call("sortkeylh", {good, text("k")});
    EXPECT_EQ(good->value.json->elements, (std::vector<vrkelement*>{cells[1], cells[2], cells[0]}))
        << "the element cells themselves move, no copies";

    reports.errors.clear();
    call("sorthl", {number(3)});
    EXPECT_TRUE(reported(reports, "invalid params!"));
}

TEST_F(BuiltinsArraysTest, ObjectsAnswerThroughTheirOwnOperations) {
    auto* object = new counting_object;
    vrkvar* h = handle(object);

    EXPECT_EQ(to_int(call("count", {h})), 0);
    vrkvar* r = call("push", {h, number(5)});
    EXPECT_EQ(to_int(r), 1);
    // The deferred job runs on a worker thread while the caller sleeps; the
    // frame that reaps the worker wakes the caller.
    EXPECT_EQ(caller->suspended, 2);
    while (!engine.activeThreads.empty()) engine.frame();
    EXPECT_EQ(object->items, 5) << "the deferred job has run by the time the caller wakes";
    EXPECT_EQ(to_int(call("count", {h})), 5);
    EXPECT_EQ(to_int(call("pop", {h})), 1) << "INT 1 when the object writes no answer";
    EXPECT_EQ(object->items, 4);
    EXPECT_EQ(to_int(call("has_key", {h, text("yes")})), 1);
    EXPECT_EQ(to_int(call("has_key", {h, text("no")})), 0);
    EXPECT_EQ(to_int(call("sync", {h})), 1);
    EXPECT_EQ(object->syncs, 1);

    // A handle that is the result cell itself (an object made by the call
    // before) still reaches its object, and lets go of it only afterwards.
    assign(&result, h);
    EXPECT_EQ(to_int(call_keeping_result("count", {&result})), 4);
    EXPECT_EQ(result.type, Tag::INT);
    EXPECT_EQ(object->ref_count, 1) << "only the test's handle is left";
}

TEST_F(BuiltinsArraysTest, StaleHandlesAreReported) {
    vrkvar* h = handle(nullptr);
    test::LogCapture reports;
    vrkvar* r = call("push", {h, number(1)});
    ASSERT_EQ(r->type, Tag::ERR);
    EXPECT_EQ(*r->value.str, "pointer invalid");
    EXPECT_TRUE(reported(reports, "ext ptr invalid!"));
    for (const char* name : {"count", "pop", "sync"}) {
        reports.errors.clear();
        EXPECT_EQ(to_int(call(name, {h})), 0) << name;
        EXPECT_TRUE(reported(reports, "ext ptr invalid!")) << name;
    }
    reports.errors.clear();
    EXPECT_EQ(to_int(call("has_key", {h, text("k")})), 0);
    EXPECT_TRUE(reported(reports, "ext ptr invalid!"));
    reports.errors.clear();
    EXPECT_EQ(to_int(call("resize", {h, number(1)})), 1);
    EXPECT_TRUE(reported(reports, "ext ptr invalid!"));
}

TEST_F(BuiltinsArraysTest, TheResultCellAsTheListItself) {
    // push onto the value the call before answered: the answer is the list.
    reset(&result, Tag::JSON);
    vrkvar* r = call_keeping_result("push", {&result, number(4)});
    EXPECT_EQ(r, &result);
    ASSERT_EQ(result.type, Tag::JSON);
    EXPECT_EQ(values_of(&result), (std::vector<int64_t>{4}));

    r = call_keeping_result("push_ref", {&result, number(6)});
    ASSERT_EQ(result.type, Tag::JSON);
    EXPECT_EQ(result.value.json->elements.size(), 2u);

    // An element of the result copied over the result.
    reset(&result, Tag::JSON);
    vrkelement* inner = json_append(result.value.json, nullptr, nullptr);
    set_int(json_append(as_json(inner), nullptr, nullptr), 8);
    call_keeping_result("last", {&result});
    ASSERT_EQ(result.type, Tag::JSON);
    EXPECT_EQ(values_of(&result), (std::vector<int64_t>{8}));

    // A push answers a REF to the new element; pushing that answer appends a
    // copy of the element's value.
    vrkvar* l = list({1});
    call("push", {l, number(2)});
    ASSERT_EQ(result.type, Tag::REF);
    EXPECT_EQ(result.value.ref, l->value.json->elements[1]);
    call_keeping_result("push", {l, deref(&result)});
    EXPECT_EQ(values_of(l), (std::vector<int64_t>{1, 2, 2}));
}

TEST_F(BuiltinsArraysTest, PushKeepsTheValueOfItsOwnList) {
    vrkvar* l = list({1, 2});
    call("push", {l, l});
    ASSERT_EQ(l->value.json->elements.size(), 3u);
    vrkelement* copy = l->value.json->elements[2];
    ASSERT_EQ(copy->type, Tag::JSON);
    EXPECT_EQ(values_of(copy), (std::vector<int64_t>{1, 2}));

    vrkvar* k = list({});
    call("insert", {k, number(0), k});
    ASSERT_EQ(k->value.json->elements.size(), 1u);
    EXPECT_EQ(k->value.json->elements[0]->type, Tag::JSON);
}

TEST_F(BuiltinsArraysTest, RingsRebuiltFromTheirOwnElementsStaySound) {
    // The value is an element of the list the rebuild releases.
    vrkvar* l = list({9});
    call("cycle", {l, l->value.json->elements[0], number(2)});
    EXPECT_EQ(values_of(l), (std::vector<int64_t>{0, 9, 0}));

    // A counter set to a negative number still lands inside the ring.
    vrkvar* g = list({0, 0, 0, -4});
    call("cycle_get", {g, number(3)});
    EXPECT_EQ(values_of(g), (std::vector<int64_t>{0, 0, 3, -3}));
    test::LogCapture reports;
    EXPECT_EQ(to_int(call("cycle_get", {g, number(-1)})), -1);
    EXPECT_TRUE(reported(reports, "index out of range!"));
}

TEST_F(BuiltinsArraysTest, JsonOnAConstantLeavesItAlone) {
    test::LogCapture reports;
    EXPECT_EQ(call("json", {none_value(), number(2)}), none_value());
    EXPECT_EQ(none_value()->type, Tag::VOID);
    EXPECT_TRUE(reported(reports, "invalid params!"));
    vrkvar* n = number(1);
    EXPECT_EQ(call("json", {n, number(2)}), n) << "the argument cell, not the result";
    EXPECT_EQ(values_of(n), (std::vector<int64_t>{0, 0}));
}

}  // namespace
}  // namespace vrk
