// Tests of the value cell: type changes, assignment, conversions, equality and
// literals.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/context.h"
#include "base/script_lock.h"
#include "values/cell.h"
#include "values/json.h"
#include "values/object.h"
#include "values/pools.h"
#include "vm/block.h"

namespace vrk {
namespace {

// A native object that reports its own end and answers the conversions.
class Probe : public vrkobject {
public:
    explicit Probe(bool* gone) : gone_(gone) { type_name = "probe"; }
    ~Probe() override {
        if (gone_) *gone_ = true;
    }
    int64_t toInt() override { return 42; }
    double toFloat() override { return 2.5; }
    void toString(std::string& out) override { out = "probe"; }

private:
    bool* gone_;  // set when the object is destroyed
};

class CellTest : public ::testing::Test {
protected:
    void SetUp() override { context().main_thread = current_thread_id(); }
    void TearDown() override {
        for (vrkvar* c : cells_) cell_free(c);
    }

    // A cell freed at the end of the test.
    vrkvar* cell(Tag tag = Tag::INT) {
        cells_.push_back(cell_new(tag));
        return cells_.back();
    }
    vrkvar* int_cell(int64_t v) {
        vrkvar* c = cell();
        set_int(c, v);
        return c;
    }
    vrkvar* string_cell(const std::string& text) {
        vrkvar* c = cell();
        set_string(c, text);
        return c;
    }
    static vrkelement* add(vrkvar* json, const char* key, int64_t v) {
        vrkelement* e = key ? element_new_keyed(key) : element_new();
        set_int(e, v);
        as_json(json)->elements.push_back(e);
        return e;
    }
    // Makes `c` a counting handle of `obj`, as a native function would.
    static void hold(vrkvar* c, vrkobject* obj) {
        obj->addRef();
        reset(c, Tag::PTR);
        c->value.i = obj->registry_id;
        c->handle_index = obj->registry_index;
        c->set_aux(0, kHandleMark);
    }
    template <class F>
    static std::string captured(F fn) {
        testing::internal::CaptureStdout();
        fn();
        return testing::internal::GetCapturedStdout();
    }

private:
    std::vector<vrkvar*> cells_;
};

TEST_F(CellTest, AssignIgnoresMarkersAndItself) {
    vrkvar* s = string_cell("keep");
    for (uintptr_t marker : {0, 1, 9}) assign(s, reinterpret_cast<vrkvar*>(marker));
    assign(s, s);
    EXPECT_EQ(to_string(s), "keep");
}

TEST_F(CellTest, ConstantCellsRefuseChange) {
    EXPECT_NE(erase_value(), false_value());
    set_type(true_value(), Tag::STRING);
    reset(true_value(), Tag::JSON);
    EXPECT_EQ(true_value()->type, Tag::INT);
    EXPECT_EQ(true_value()->value.i, 1);

    std::string out = captured([] { set_string(void_value(), "text"); });
    EXPECT_EQ(out, "[ERR]: cannot set variable to string (const). The text to be set was: text\n");
    EXPECT_EQ(void_value()->type, Tag::INT);

    out = captured([this] { assign(false_value(), int_cell(7)); });
    EXPECT_EQ(out, "[ERR]: tried to override const var!!\n");
    EXPECT_EQ(false_value()->value.i, 0);
    EXPECT_EQ(as_json(none_value()), nullptr);
}

TEST_F(CellTest, TypeChanges) {
    vrkvar* c = cell(Tag::JSON);
    add(c, "a", 1);
    vrkjson* record = c->value.json;
    c->attrs = 0xFFFF;
    reset(c, Tag::JSON);
    EXPECT_EQ(c->value.json, record);
    EXPECT_TRUE(record->elements.empty());
    EXPECT_EQ(c->attrs, attr::KEEP_MASK);

    as_data(c);
    // After a byte vector the value word is left as it was for a scalar; the
    // caller stores the scalar.
    const int64_t word = c->value.i;
    set_type(c, Tag::INT);
    EXPECT_EQ(c->type, Tag::INT);
    EXPECT_EQ(c->value.i, word);

    // Reading a string as JSON destroys the string.
    vrkvar* s = string_cell("destroyed");
    vrkjson* json = as_json(s);
    ASSERT_NE(json, nullptr);
    EXPECT_TRUE(json->elements.empty());
    EXPECT_EQ(as_json(s), json);
}

TEST_F(CellTest, DerefFollowsChainsButNotNullTargets) {
    vrkvar* dangling = cell();
    set_ref(dangling, nullptr);
    EXPECT_EQ(deref(dangling), dangling);

    vrkvar* end = int_cell(5);
    vrkvar* link = end;
    for (int i = 0; i < 50; ++i) {
        vrkvar* r = cell();
        set_ref(r, link);
        link = r;
    }
    EXPECT_EQ(deref(link), end);

    vrkvar* bound = cell();
    bind_ref(bound, link);  // a REF source is copied: same target
    EXPECT_EQ(bound->value.ref, link->value.ref);
}

TEST_F(CellTest, Conversions) {
    vrkvar* d = cell();
    std::vector<uint8_t>* bytes = as_data(d);
    const double v = 3.25;
    bytes->resize(8);
    std::memcpy(bytes->data(), &v, 8);
    EXPECT_EQ(to_float(d), 3.25);
    EXPECT_EQ(to_int(d), 8);
    bytes->resize(7);
    EXPECT_EQ(to_float(d), 0.0);
    bytes->resize(9);
    EXPECT_EQ(to_float(d), 0.0);

    EXPECT_EQ(to_int(string_cell("12.9")), 12);
    EXPECT_EQ(to_int(string_cell("abc")), 0);

    vrkvar* f = cell();
    set_float(f, -2.9);
    EXPECT_EQ(to_int(f), -2);
    set_float(f, std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(to_int(f), std::numeric_limits<int64_t>::min());

    set_float(f, 1.5);
    EXPECT_EQ(to_string(f), "1.500000");
    set_float(f, -0.25);
    EXPECT_EQ(to_string(f), "-0.250000");
    set_float(f, 1e20);  // cut to the 23 characters a 24-byte buffer holds
    EXPECT_EQ(to_string(f), "100000000000000000000.0");

    *bytes = {'a', 'b', 0, 'c'};
    EXPECT_EQ(to_string(d), "ab");

    EXPECT_EQ(tag_name(Tag::BIGINTSET), "BIGINTSET");
    EXPECT_EQ(tag_name(static_cast<Tag>(16)), "unknown type 16");
}

TEST_F(CellTest, ParseLiteral) {
    vrkvar* c = cell();
    EXPECT_TRUE(parse_literal(c, "42"));
    EXPECT_EQ(c->type, Tag::INT);
    EXPECT_EQ(c->value.i, 42);
    EXPECT_TRUE(parse_literal(c, "-1.5"));
    EXPECT_EQ(to_float(c), -1.5);

    EXPECT_TRUE(parse_literal(c, "x\"a \"b\"y"));
    ASSERT_EQ(c->type, Tag::STRING);
    EXPECT_EQ(*c->value.str, "a \"b");

    EXPECT_FALSE(parse_literal(c, "abc1"));
    EXPECT_EQ(c->type, Tag::STRING);
    EXPECT_EQ(*c->value.str, "abc1");

    set_int(c, 3);
    EXPECT_TRUE(parse_literal(c, ""));
    EXPECT_EQ(c->value.i, 3);

    auto message = [&](const std::string& text) -> std::string {
        try {
            parse_literal(c, text);
        } catch (const std::invalid_argument& e) {
            return std::string("invalid: ") + e.what();
        } catch (const std::out_of_range& e) {
            return std::string("range: ") + e.what();
        }
        return "no exception";
    };
    EXPECT_EQ(message("-"), "invalid: invalid stoll argument");
    EXPECT_EQ(message("99999999999999999999"), "range: stoll argument out of range");
    EXPECT_EQ(message("."), "invalid: invalid stod argument");
    EXPECT_EQ(message("1" + std::string(400, '0') + ".0"), "range: stod argument out of range");

    EXPECT_FALSE(parse_literal(void_value(), "1"));
}

TEST_F(CellTest, AssignFromAnElementOfTheDestination) {
    vrkvar* j = cell(Tag::JSON);
    vrkelement* inner = element_new_keyed("inner");
    vrkjson* nested = as_json(inner);
    vrkelement* text = element_new();
    set_string(text, "deep");
    nested->elements.push_back(text);
    as_json(j)->elements.push_back(inner);
    add(j, "n", 1);

    // The old record (and the source with it) is released only after the copy.
    assign(j, inner);
    ASSERT_EQ(j->type, Tag::JSON);
    ASSERT_EQ(j->value.json->elements.size(), 1u);
    EXPECT_EQ(*j->value.json->elements[0]->value.str, "deep");

    vrkelement* s = j->value.json->elements[0];
    assign(j, s);
    ASSERT_EQ(j->type, Tag::STRING);
    EXPECT_EQ(*j->value.str, "deep");
}

TEST_F(CellTest, MovableSourcesGiveTheirPayloadAway) {
    vrkvar* src = string_cell("moved");
    std::string* text = src->value.str;
    src->flags = flag::MOVABLE;
    src->attrs = attr::FRESH_RESULT;
    vrkvar* dest = cell(Tag::JSON);
    assign(dest, src);
    EXPECT_EQ(dest->type, Tag::STRING);
    EXPECT_EQ(dest->value.str, text);
    EXPECT_EQ(dest->attrs & attr::RESULT_BITS, attr::OWNS_RESULT);
    EXPECT_TRUE(src->type == Tag::INT && src->value.i == 0 && src->attrs == 0);

    vrkvar* temp = cell(Tag::JSON);
    add(temp, "a", 1);
    vrkjson* record = temp->value.json;
    temp->flags = flag::MOVABLE;
    assign(dest, temp);
    EXPECT_EQ(dest->value.json, record);
    EXPECT_EQ(temp->type, Tag::INT);
    EXPECT_EQ(temp->value.json, nullptr);

    // Without the bit a fresh result is copied and the bit moves over.
    vrkvar* fresh = string_cell("copy");
    fresh->attrs = attr::FRESH_RESULT;
    vrkvar* plain = string_cell("old");
    assign(plain, fresh);
    EXPECT_EQ(*plain->value.str, "copy");
    EXPECT_NE(plain->value.str, fresh->value.str);
    EXPECT_EQ(plain->attrs & attr::RESULT_BITS, attr::OWNS_RESULT);
    EXPECT_EQ(fresh->attrs & attr::FRESH_RESULT, 0);
}

TEST_F(CellTest, AStringCopyKeepsTheDestinationBuffer) {
    vrkvar* dest = string_cell("");
    dest->value.str->reserve(100);
    const char* buffer = dest->value.str->data();
    assign(dest, string_cell("a text that does not fit a short string"));
    EXPECT_EQ(*dest->value.str, "a text that does not fit a short string");
    EXPECT_EQ(dest->value.str->data(), buffer);

    vrkvar* empty = cell(Tag::STRING);
    string_free(empty->value.str);
    empty->value.str = nullptr;
    assign(dest, empty);
    EXPECT_EQ(dest->type, Tag::STRING);
    EXPECT_TRUE(dest->value.str->empty())
        << "a string cell without text copies as the empty string";
    empty->value.str = string_new();
}

TEST_F(CellTest, NumbersCopyIntoNumbersOfTheirType) {
    vrkvar* src = int_cell(42);
    src->attrs = attr::FRESH_RESULT | attr::NO_REF_WRAP;
    src->aux = 3;
    vrkvar* dest = int_cell(1);
    dest->attrs = attr::OWNS_RESULT | attr::BY_REF_PARAM | attr::INSTANCE_CELL;
    dest->aux = 9;
    dest->block = reinterpret_cast<vrkblock*>(dest);
    assign(dest, src);
    EXPECT_EQ(dest->value.i, 42);
    EXPECT_EQ(dest->aux, 0);
    EXPECT_EQ(dest->block, nullptr);
    EXPECT_EQ(dest->attrs, attr::BY_REF_PARAM | attr::OWNS_RESULT)
        << "kept bits, and the fresh result moved over";
    EXPECT_EQ(src->attrs, attr::NO_REF_WRAP);
    EXPECT_EQ(src->aux, 3) << "the source is only read";

    vrkvar* f = cell(Tag::FLOAT);
    vrkvar* g = cell(Tag::FLOAT);
    set_float(g, 2.5);
    assign(f, g);
    EXPECT_EQ(f->type, Tag::FLOAT);
    EXPECT_DOUBLE_EQ(f->value.f, 2.5);
    assign(f, src);
    EXPECT_EQ(f->type, Tag::INT) << "another number type changes the tag";

    vrkvar* fixed = cell(Tag::FLOAT);
    fixed->flags = flag::FIXED_TYPE;
    vrkvar* i = int_cell(3);
    assign(fixed, g);
    assign(i, fixed);
    EXPECT_EQ(i->type, Tag::FLOAT);
    vrkvar* constant = int_cell(5);
    constant->constant = 1;
    const std::string out = captured([&] { assign(constant, src); });
    EXPECT_EQ(constant->value.i, 5);
    EXPECT_NE(out.find("tried to override const var!!"), std::string::npos);

    // Resetting a number to its own type clears it the same way.
    dest->aux = 4;
    dest->attrs = attr::OWNS_RESULT | attr::BY_REF_PARAM;
    reset(dest, Tag::INT);
    EXPECT_TRUE(dest->type == Tag::INT && dest->value.i == 0 && dest->aux == 0 &&
                dest->block == nullptr);
    EXPECT_EQ(dest->attrs, attr::BY_REF_PARAM);
}

TEST_F(CellTest, FixedTypeConvertsTheSource) {
    vrkvar* i = int_cell(0);
    i->flags = flag::FIXED_TYPE;
    assign(i, string_cell("12.9"));
    EXPECT_EQ(i->type, Tag::INT);
    EXPECT_EQ(i->value.i, 12);

    vrkvar* s = string_cell("");
    s->flags = flag::FIXED_TYPE;
    vrkvar* f = cell();
    set_float(f, 0.5);
    assign(s, f);
    EXPECT_EQ(*s->value.str, "0.500000");

    // A constant with a fixed type still converts.
    vrkvar* k = int_cell(1);
    k->flags = flag::FIXED_TYPE;
    k->constant = 1;
    assign(k, f);
    EXPECT_EQ(k->value.i, 0);
    k->constant = 0;

    vrkvar* j = cell(Tag::JSON);
    j->flags = flag::FIXED_TYPE;
    std::string out = captured([&] { assign(j, f); });
    EXPECT_EQ(out, "[ERR]: unknown const type!\n");
    EXPECT_EQ(j->type, Tag::FLOAT);
}

TEST_F(CellTest, JsonCopyMatchesKeysElementByElement) {
    vrkvar* src = cell(Tag::JSON);
    add(src, "a", 1);
    add(src, nullptr, 2);
    vrkelement* nested = element_new_keyed("n");
    as_json(src)->elements.push_back(nested);
    add(nested, nullptr, 3);

    vrkvar* dest = cell(Tag::JSON);
    for (int k = 0; k < 5; ++k) add(dest, "old", k);
    assign(dest, src);

    const auto& out = dest->value.json->elements;
    ASSERT_EQ(out.size(), 3u);
    EXPECT_EQ(*out[0]->key, "a");
    EXPECT_EQ(out[0]->value.i, 1);
    EXPECT_TRUE(out[1]->key == nullptr || out[1]->key->empty());
    EXPECT_EQ(out[1]->value.i, 2);
    ASSERT_EQ(out[2]->type, Tag::JSON);
    EXPECT_NE(out[2]->value.json, nested->value.json);  // a deep copy
    EXPECT_EQ(out[2]->value.json->elements[0]->value.i, 3);
    EXPECT_EQ(dest->value.json->last_hit, -1);
}

TEST_F(CellTest, StructVariableIsLaidOutByItsBlock) {
    vrkblock layout(nullptr);
    auto member = [&](const char* name, int64_t v) {
        vrkvar* c = layout.declare_var(name);
        set_int(c, v);
        return c;
    };
    member("x", 1);
    member("k", 2)->constant = 1;
    member("nested", 3)->flags = flag::STRUCT_VAR;
    member("y", 4);

    vrkvar* src = cell(Tag::JSON);
    add(src, "ignored", 9);
    src->flags = flag::STRUCT_VAR;
    src->block = &layout;
    vrkvar* dest = cell();
    assign(dest, src);
    const auto& out = dest->value.json->elements;
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(*out[0]->key, "x");
    EXPECT_EQ(out[0]->value.i, 1);
    EXPECT_EQ(*out[1]->key, "y");
    EXPECT_EQ(out[1]->value.i, 4);
    src->block = nullptr;
}

TEST_F(CellTest, LambdaCopiesCaptureFreshCells) {
    vrkblock fn(nullptr);
    fn.kind = kind::LAMBDA;
    fn.declare_var("a");
    vrkvar* store = fn.declare_var("a__lambda_store__");
    set_string(store, "captured");
    store->flags = flag::NO_COUNT;
    fn.get_captures().push_back({0, 1});

    vrkvar* decl = cell();
    reset(decl, Tag::FUNCTION);
    decl->block = &fn;
    decl->aux = 2;

    vrkvar* f1 = cell();
    assign(f1, decl);
    EXPECT_EQ(f1->aux, 2);
    ASSERT_EQ(f1->value.closure->pairs.size(), 1u);
    const vrkcapture& p1 = f1->value.closure->pairs[0];
    EXPECT_TRUE(p1.var_index == 0 && p1.source_index == 1);
    EXPECT_EQ(*p1.cell->value.str, "captured");
    EXPECT_EQ(p1.cell->flags, flag::CAPTURED | flag::NO_COUNT);

    // A copy of a copy takes the closure's cells, not the store variables.
    set_string(store, "changed");
    vrkvar* f2 = cell();
    assign(f2, f1);
    ASSERT_NE(f2->value.closure, nullptr);
    EXPECT_NE(f2->value.closure, f1->value.closure);
    EXPECT_EQ(*f2->value.closure->pairs[0].cell->value.str, "captured");

    for (vrkvar* c : {decl, f1, f2}) set_int(c, 0);
}

TEST_F(CellTest, ObjectHandlesAreCounted) {
    bool gone = false;
    auto* obj = new Probe(&gone);
    vrkvar* a = cell();
    hold(a, obj);
    EXPECT_EQ(to_int(a) + to_float(a), 44.5);
    EXPECT_EQ(to_string(a), "probe");

    vrkvar* b = cell(Tag::JSON);
    assign(b, a);
    EXPECT_EQ(obj->ref_count, 2);
    EXPECT_EQ(b->aux, 0xFF00);

    vrkvar* weak = cell();
    weak->flags = flag::NO_COUNT;
    assign(weak, a);
    EXPECT_EQ(obj->ref_count, 2);
    EXPECT_EQ(weak->aux_lo(), 1);
    EXPECT_TRUE(equals(weak, a));
    EXPECT_TRUE(equals(a, int_cell(1)));
    EXPECT_FALSE(equals(a, int_cell(2)));
    weak->value.i = 0;  // let it go without a release

    set_int(b, 0);
    EXPECT_EQ(obj->ref_count, 1);
    vrkvar* moved = cell();
    a->flags = flag::MOVABLE;
    assign(moved, a);
    EXPECT_EQ(obj->ref_count, 1);
    EXPECT_EQ(a->type, Tag::INT);

    // The last holder lets go: the object ends, and the handle resolves to nothing.
    vrkvar* stale = cell();
    *stale = *moved;
    assign(moved, int_cell(3));
    EXPECT_TRUE(gone);
    EXPECT_EQ(to_int(stale), 1);
    EXPECT_EQ(to_string(stale), "");
    vrkvar* c = string_cell("x");
    assign(c, stale);
    EXPECT_EQ(c->type, Tag::INT);
    EXPECT_EQ(c->value.i, 0);
    stale->value.i = 0;
}

TEST_F(CellTest, ClassInstancesCountTheirHolders) {
    auto* instance = new vrkblock(nullptr);
    instance->kind = kind::INSTANCE;
    vrkvar source;  // a non-counting view to copy from
    source.type = Tag::CLASS;
    source.flags = flag::NO_COUNT;
    source.block = instance;

    vrkvar* a = cell();
    assign(a, &source);
    vrkvar* b = cell();
    assign(b, a);
    vrkvar* weak = cell();
    weak->flags = flag::CAPTURED;
    assign(weak, a);
    EXPECT_EQ(instance->class_data->refs, 2);
    EXPECT_EQ(instance->class_data->cells.size(), 3u);
    EXPECT_NE(a->attrs & attr::INSTANCE_CELL, 0);

    assign(b, a);  // the same instance again: the count stays
    EXPECT_EQ(instance->class_data->refs, 2);
    set_int(weak, 0);
    set_int(a, 0);
    EXPECT_TRUE(block_alive(instance));
    assign(b, int_cell(1));
    EXPECT_FALSE(block_alive(instance));
}

TEST_F(CellTest, EqualityRules) {
    vrkvar* fn = cell();
    reset(fn, Tag::FUNCTION);
    EXPECT_TRUE(equals(int_cell(1), fn));
    EXPECT_TRUE(equals(fn, int_cell(7)));
    EXPECT_FALSE(equals(int_cell(0), fn));
    EXPECT_FALSE(equals(fn, string_cell("FUNCTION")));

    vrkvar* j1 = cell(Tag::JSON);
    add(j1, "a", 1);
    add(j1, "b", 2);
    vrkvar* j2 = cell(Tag::JSON);
    add(j2, "zz", 5);
    EXPECT_TRUE(equals(j1, j2));
    EXPECT_TRUE(equals(int_cell(2), j1));
    EXPECT_FALSE(equals(int_cell(3), j1));
    vrkelement* nan = add(j2, nullptr, 0);
    set_float(nan, std::nan(""));
    EXPECT_FALSE(equals(j2, j1));
    EXPECT_TRUE(equals(j1, j2));  // only a's elements are looked at

    vrkvar* f = cell();
    set_float(f, 1.0);
    EXPECT_FALSE(equals(string_cell("1.0"), f));
    EXPECT_TRUE(equals(f, string_cell("1.000000")));
}

}  // namespace
}  // namespace vrk
