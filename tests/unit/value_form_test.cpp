// Tests of the binary value forms: compact integers and the tolerant reader,
// the cell form byte by byte for each tag, the JSON list form, functions and
// native objects inside lists, and the five value builtins.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "builtins/serial.h"
#include "saved/json_text.h"
#include "saved/value_form.h"
#include "support/program.h"
#include "support/saved_support.h"
#include "values/cache.h"
#include "values/object.h"
#include "vm/block.h"

namespace vrk {
namespace {

using Bytes = std::vector<uint8_t>;
using test::add_element;
using test::LogRecorder;
using test::OwnedCell;

class ValueFormTest : public test::SavedTest {
protected:
    static Bytes cell_bytes(vrkvar* cell, bool trailer = false) {
        Bytes out;
        ScriptCacheWriter w(out);
        serialize(cell, w, nullptr, trailer);
        return out;
    }
    static Bytes list_bytes(vrkvar* json_cell, vrkblock* context = nullptr) {
        Bytes out;
        jsonToData(json_cell->value.json, out, context);
        return out;
    }
    // The cell form header of a tag.
    static Bytes header(Tag tag) { return {0xD2, 0x04, static_cast<uint8_t>(tag), 0x00}; }
    static Bytes cat(Bytes a, const Bytes& b) {
        a.insert(a.end(), b.begin(), b.end());
        return a;
    }
};

TEST_F(ValueFormTest, CompactIntegers) {
    Bytes out;
    ScriptCacheWriter w(out);
    w.compact_s64(0);
    w.compact_u32(300);
    w.compact_s32(-1);
    w.compact_s64(-1);
    w.compact_u64(0x0100000000ull);
    w.compact_s32(-2147483647 - 1);
    const Bytes expected{0x00, 0x02, 0x2C, 0x01, 0x04, 0xFF, 0xFF, 0xFF, 0xFF, 0x08,
                         0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x05, 0x00,
                         0x00, 0x00, 0x00, 0x01, 0x04, 0x00, 0x00, 0x00, 0x80};
    EXPECT_EQ(out, expected);

    ScriptCacheReader r(out);
    EXPECT_EQ(r.compact_s64(), 0);
    EXPECT_EQ(r.compact_u32(), 300u);
    EXPECT_EQ(r.compact_s64(), 0xFFFFFFFFll) << "no sign extension: -1 comes back only as 32 bits";
    EXPECT_EQ(r.compact_s64(), -1);
    EXPECT_EQ(r.compact_u32(), 0u) << "a length beyond the width keeps the low bytes";
    EXPECT_EQ(r.position, 24u) << "... and consumes them all";
    EXPECT_EQ(r.compact_s32(), -2147483647 - 1);
    EXPECT_TRUE(r.at_end());
}

TEST_F(ValueFormTest, ReadsPastTheEndGiveZero) {
    const Bytes bytes{0x05, 0x01, 0x02, 0x00, 0xAB};
    ScriptCacheReader r(bytes);
    EXPECT_EQ(r.u64(), 0u);
    EXPECT_EQ(r.position, 0u) << "a fixed read past the end moves nothing";
    EXPECT_EQ(r.compact_u32(), 0u) << "five bytes announced, four there";
    EXPECT_EQ(r.position, 1u) << "the length byte is consumed";
    EXPECT_EQ(r.u16(), 0x0201u);
    EXPECT_EQ(r.compact_u32(), 0u) << "a length of 0 is the value 0";
    EXPECT_EQ(r.position, 4u);
    EXPECT_EQ(r.u16(), 0u);
    EXPECT_EQ(r.position, 4u);
    EXPECT_EQ(r.u8(), 0xABu);
    EXPECT_EQ(r.compact_s64(), 0);
    EXPECT_EQ(r.position, 5u) << "no length byte: nothing moves";
    EXPECT_EQ(r.f64(), 0.0);

    const Bytes text{0x01, 0x05, 'a', 'b'};
    ScriptCacheReader s(text);
    EXPECT_EQ(s.compact_string(), "") << "a string that does not fit is empty";
    EXPECT_EQ(s.position, 2u);

    // A reader may own its buffer.
    ScriptCacheReader owned(Bytes{0x01, 0x07});
    EXPECT_EQ(owned.ownsBuffer, 1);
    EXPECT_EQ(owned.compact_s32(), 7);
}

TEST_F(ValueFormTest, CellFormOfScalarsAndText) {
    OwnedCell c;
    EXPECT_EQ(cell_bytes(c.get()), cat(header(Tag::INT), {0x00}))
        << "INT 0 is the single length byte 0";
    set_int(c.get(), -1);
    EXPECT_EQ(cell_bytes(c.get()),
              cat(header(Tag::INT), {0x08, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
    set_float(c.get(), 1.0);
    EXPECT_EQ(cell_bytes(c.get()), cat(header(Tag::FLOAT), {0, 0, 0, 0, 0, 0, 0xF0, 0x3F}));
    set_string(c.get(), std::string("ab\0cd", 5));
    EXPECT_EQ(cell_bytes(c.get()), cat(header(Tag::STRING), {0x01, 0x02, 'a', 'b'}))
        << "the cell form cuts a string at its first zero byte";
    for (Tag tag : {Tag::VOID, Tag::EXT, Tag::REF, Tag::FUNCTION, Tag::ERR}) {
        reset(c.get(), tag);
        EXPECT_EQ(cell_bytes(c.get()), header(tag)) << tag_name(tag);
    }

    // The trailer: constant, flags, attrs, aux low and high.
    set_int(c.get(), 2);
    c->flags = 0x0102;
    c->attrs = 0x0020;
    c->set_aux(0x05, 0x06);
    c->constant = 1;
    EXPECT_EQ(cell_bytes(c.get(), true),
              cat(header(Tag::INT), {0x01, 0x02, 0x01, 0x02, 0x01, 0x20, 0x00, 0x05, 0x06}));
}

TEST_F(ValueFormTest, CellFormOfBuffersAndSets) {
    OwnedCell c;
    *as_data(c.get()) = {1, 2, 3};
    EXPECT_EQ(cell_bytes(c.get()), cat(header(Tag::DATA), {0x01, 0x03, 1, 2, 3}));
    *as_floatset(c.get()) = {1.0f};
    EXPECT_EQ(cell_bytes(c.get()),
              cat(header(Tag::FLOATSET), {0x01, 0x01, 0x00, 0x00, 0x80, 0x3F}));
    *as_doubleset(c.get()) = {-2.0};
    EXPECT_EQ(cell_bytes(c.get()),
              cat(header(Tag::DOUBLESET), {0x01, 0x01, 0, 0, 0, 0, 0, 0, 0, 0xC0}));
    *as_intset(c.get()) = {0, -1, 256};
    EXPECT_EQ(cell_bytes(c.get()), cat(header(Tag::INTSET), {0x01, 0x03, 0x00, 0x04, 0xFF, 0xFF,
                                                             0xFF, 0xFF, 0x02, 0x00, 0x01}));
    *as_bigintset(c.get()) = {5};
    EXPECT_EQ(cell_bytes(c.get()), cat(header(Tag::BIGINTSET), {0x01, 0x01, 0x01, 0x05}));
}

TEST_F(ValueFormTest, CellFormReadsBackEveryTag) {
    OwnedCell source, back;
    auto round_trip = [&](bool trailer) {
        const Bytes bytes = cell_bytes(source.get(), trailer);
        ScriptCacheReader r(bytes);
        deserialize(back.get(), r, nullptr, trailer);
        EXPECT_TRUE(r.at_end());
    };
    set_int(source.get(), -123456789012);
    round_trip(false);
    EXPECT_EQ(back->type, Tag::INT);
    EXPECT_EQ(back->value.i, -123456789012);
    set_float(source.get(), -0.25);
    round_trip(false);
    EXPECT_EQ(back->value.f, -0.25);
    set_string(source.get(), "text");
    round_trip(false);
    EXPECT_EQ(*back->value.str, "text");
    *as_intset(source.get()) = {7, -7};
    round_trip(false);
    EXPECT_EQ(*back->value.intset, (std::vector<int32_t>{7, -7}));
    *as_bigintset(source.get()) = {INT64_MIN, 1};
    round_trip(false);
    EXPECT_EQ(*back->value.bigintset, (std::vector<int64_t>{INT64_MIN, 1}));
    *as_doubleset(source.get()) = {0.5, 3};
    round_trip(false);
    EXPECT_EQ(*back->value.doubleset, (std::vector<double>{0.5, 3}));
    *as_floatset(source.get()) = {0.5f};
    round_trip(false);
    EXPECT_EQ(*back->value.floatset, (std::vector<float>{0.5f}));
    *as_data(source.get()) = {0, 255};
    round_trip(false);
    EXPECT_EQ(*back->value.data, (Bytes{0, 255}));
    reset(source.get(), Tag::JSON);
    set_string(add_element(source.get(), "k"), "v");
    round_trip(false);
    ASSERT_EQ(back->type, Tag::JSON);
    EXPECT_EQ(to_string(back->value.json, true), "{\"k\": \"v\"}");

    // A trailer restores the constant byte: the value then refuses assignment.
    set_int(source.get(), 9);
    source->constant = 1;
    round_trip(true);
    source->constant = 0;
    EXPECT_EQ(back->constant, 1);
    OwnedCell other;
    set_int(other.get(), 1);
    assign(back.get(), other.get(), nullptr);
    EXPECT_EQ(back->value.i, 9);
    back->constant = 0;
}

TEST_F(ValueFormTest, CellFormReaderFaults) {
    OwnedCell cell;
    set_string(cell.get(), "old");
    {
        LogRecorder log;
        ScriptCacheReader r(Bytes{0xFF, 0xFF, 0x00, 0x00});
        deserialize(cell.get(), r, nullptr, false);
        EXPECT_TRUE(log.saw("vorkavar program error! -1"));
        EXPECT_EQ(cell->type, Tag::INT);
        EXPECT_EQ(cell->value.i, 0);
    }
    {
        LogRecorder log;
        const Bytes empty;
        ScriptCacheReader r(empty);
        deserialize(cell.get(), r, nullptr, true);
        EXPECT_TRUE(log.saw("vorkavar program error! 0"));
    }
    // Payloads that end early: a DATA whose count does not fit stays empty, a
    // set takes its count and reads zero past the data, a scalar reads 0.
    auto read = [&](const Bytes& bytes) {
        ScriptCacheReader r(bytes);
        deserialize(cell.get(), r, nullptr, false);
    };
    read(cat(header(Tag::DATA), {0x01, 0x04, 1, 2}));
    EXPECT_EQ(cell->type, Tag::DATA);
    EXPECT_TRUE(cell->value.data->empty());
    read(cat(header(Tag::INTSET), {0x01, 0x02, 0x01, 0x05, 0x08}));
    EXPECT_EQ(*cell->value.intset, (std::vector<int32_t>{5, 0}));
    read(cat(header(Tag::DOUBLESET), {0x04, 0xFF, 0xFF, 0xFF, 0x7F}));
    EXPECT_TRUE(cell->value.doubleset->empty()) << "a count beyond the buffer allocates nothing";
    read(cat(header(Tag::FLOAT), {0x00, 0x00}));
    EXPECT_EQ(cell->value.f, 0.0);
    read(cat(header(static_cast<Tag>(200)), {}));
    EXPECT_EQ(static_cast<int>(cell->type), 200) << "unknown tags are kept, with no payload";
    reset(cell.get(), Tag::INT);
}

TEST_F(ValueFormTest, ListFormBytes) {
    OwnedCell json(Tag::JSON);
    set_int(add_element(json.get(), "i"), 1);
    set_string(add_element(json.get(), nullptr), std::string("a\0b", 3));
    *as_doubleset(add_element(json.get(), "d")) = {1.0};
    vrkelement* nested = add_element(json.get(), "j");
    as_json(nested);
    OwnedCell target;
    set_int(target.get(), 4);
    set_ref(add_element(json.get(), "r"), target.get());
    const Bytes expected{
        0x05, 0x00, 0x00, 0x00,                                                 // five children
        0x01, 0x00, 0x00, 0x00, 'i',  0x00, 0x01, 0x01,                         // "i": INT 1
        0x00, 0x00, 0x00, 0x00, 0x02, 0x03, 0x00, 0x00, 0x00, 'a',  0x00, 'b',  // STRING, whole
        0x01, 0x00, 0x00, 0x00, 'd',                                 // DOUBLESET: the key alone
        0x01, 0x00, 0x00, 0x00, 'j',  0x09, 0x00, 0x00, 0x00, 0x00,  // empty JSON
        0x01, 0x00, 0x00, 0x00, 'r',  0x00, 0x01, 0x04,  // a REF is followed to its target
    };
    EXPECT_EQ(list_bytes(json.get()), expected);
}

TEST_F(ValueFormTest, ListFormRoundTripAndShortBuffers) {
    OwnedCell json(Tag::JSON);
    set_int(add_element(json.get(), "i"), -5);
    set_float(add_element(json.get(), "f"), 2.5);
    set_string(add_element(json.get(), "s"), std::string("x\0y", 3));
    *as_data(add_element(json.get(), "d")) = {9, 8};
    *as_floatset(add_element(json.get(), "fs")) = {1.5f, -1.0f};
    vrkelement* nested = add_element(json.get(), "n");
    set_int(add_element(nested, nullptr), 3);
    set_float(add_element(nested, nullptr), 0.5);
    const Bytes bytes = list_bytes(json.get());

    OwnedCell back(Tag::JSON);
    uint32_t position = 0;
    dataToJson(back->value.json, bytes, position, nullptr);
    EXPECT_EQ(position, bytes.size());
    ASSERT_EQ(back->value.json->elements.size(), 6u);
    EXPECT_EQ(*back->value.json->elements[2]->value.str, std::string("x\0y", 3))
        << "zero bytes survive";
    EXPECT_EQ(*back->value.json->elements[4]->value.floatset, (std::vector<float>{1.5f, -1.0f}));
    EXPECT_EQ(list_bytes(back.get()), bytes);

    // Every shorter buffer yields an empty list, never a partial one. (Only a
    // compact INT at the very end is read as 0 when cut: compact reads are
    // tolerant, so the list here ends with a FLOAT.)
    for (std::size_t n = 0; n < bytes.size(); ++n) {
        const Bytes cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(n));
        ScriptCacheReader r(cut);
        dataToJson(back->value.json, r, nullptr);
        EXPECT_TRUE(back->value.json->elements.empty()) << "length " << n;
    }
}

// A native type for the tests: its state is one number.
class Counter : public vrkobject {
public:
    Counter() { type_name = "counter"; }
    bool serialize(ScriptCacheWriter& w) override {
        w.compact_string(type_name);
        w.u32(value);
        return true;
    }
    bool deserialize(ScriptCacheReader& r) override {
        value = r.u32();
        return true;
    }
    uint32_t value = 0;
};

vrkobject* make_counter(const std::string& name) {
    return name == "counter" ? new Counter() : nullptr;
}

TEST_F(ValueFormTest, NativeObjects) {
    // This test installs creators of its own; the object model's comes back
    // at the end, for the tests that run after it.
    const object_creator installed = set_object_creator(nullptr);
    auto* original = new Counter();
    original->value = 77;
    OwnedCell handle;
    test::make_handle(handle.get(), original);
    const Bytes bytes = cell_bytes(handle.get());
    EXPECT_EQ(bytes,
              cat(header(Tag::PTR), {0x01, 0x07, 'c', 'o', 'u', 'n', 't', 'e', 'r', 77, 0, 0, 0}));

    {
        LogRecorder log;
        OwnedCell back;
        ScriptCacheReader r(bytes);
        deserialize(back.get(), r, nullptr, false);
        EXPECT_TRUE(log.saw("cannot instantiate type: counter"));
        EXPECT_TRUE(log.saw("index: 13"));
        EXPECT_EQ(back->type, Tag::PTR);
        EXPECT_EQ(object_of(back.get()), nullptr);
    }

    set_object_creator(make_counter);
    {
        OwnedCell back;
        ScriptCacheReader r(bytes);
        deserialize(back.get(), r, nullptr, false);
        auto* copy = dynamic_cast<Counter*>(object_of(back.get()));
        ASSERT_NE(copy, nullptr);
        EXPECT_NE(copy, original);
        EXPECT_EQ(copy->value, 77u);
        EXPECT_EQ(copy->ref_count, 1) << "the cell holds a counted handle";
        EXPECT_EQ(back->aux, 0xFF00);
    }
    {
        // In a list, an unknown type also reports that the object is missing.
        OwnedCell json(Tag::JSON);
        test::make_handle(add_element(json.get(), "o"), original);
        const Bytes list = list_bytes(json.get());
        OwnedCell back(Tag::JSON);
        ScriptCacheReader r(list);
        dataToJson(back->value.json, r, nullptr);
        ASSERT_EQ(back->value.json->elements.size(), 1u);
        EXPECT_NE(object_of(back->value.json->elements[0]), nullptr);
        set_object_creator(nullptr);
        LogRecorder log;
        ScriptCacheReader again(list);
        dataToJson(back->value.json, again, nullptr);
        EXPECT_TRUE(log.saw("cannot instantiate vrkobject!"));
        ASSERT_EQ(back->value.json->elements.size(), 1u);
        EXPECT_EQ(back->value.json->elements[0]->type, Tag::PTR);
    }
    set_object_creator(installed);
    delete original;
}

class FunctionInListTest : public test::VmTest {
protected:
    Bytes list_of(vrkblock* fn, vrkblock* context) {
        OwnedCell json(Tag::JSON);
        vrkelement* e = add_element(json.get(), "f");
        reset(e, Tag::FUNCTION);
        e->block = fn;
        Bytes out;
        jsonToData(json->value.json, out, context);
        return out;
    }
    vrkblock* read_back(const Bytes& bytes, vrkblock* context) {
        ScriptCacheReader r(bytes);
        dataToJson(back->value.json, r, context);
        EXPECT_TRUE(r.at_end());
        if (back->value.json->elements.size() != 1) return nullptr;
        vrkelement* e = back->value.json->elements[0];
        return e->type == Tag::FUNCTION ? e->block : nullptr;
    }
    OwnedCell back{Tag::JSON};
};

TEST_F(FunctionInListTest, ReferencesInsideAProgram) {
    test::program outer = w.block();
    test::program program = w.child(outer);
    test::program own = w.child(program);
    test::program sibling = w.child(outer);
    test::program cousin = w.child(sibling);

    const Bytes child = list_of(own.block(), program.block());
    EXPECT_EQ(Bytes(child.end() - 4, child.end()), (Bytes{0x03, 0x00, 0x00, 0x00}))
        << "tag, reference, child 0";
    EXPECT_EQ(read_back(child, program.block()), own.block());

    // Up from the program block's parent: a child of a level, with its level.
    const Bytes aside = list_of(sibling.block(), program.block());
    EXPECT_EQ(Bytes(aside.end() - 6, aside.end()), (Bytes{0x03, 0x00, 0x02, 0x00, 0x01, 0x01}));
    EXPECT_EQ(read_back(aside, program.block()), sibling.block());
    const Bytes up = list_of(program.block(), cousin.block());
    EXPECT_EQ(Bytes(up.end() - 6, up.end()), (Bytes{0x03, 0x00, 0x02, 0x01, 0x01, 0x00}));
    EXPECT_EQ(read_back(up, cousin.block()), program.block());

    const Bytes level = list_of(outer.block(), program.block());
    EXPECT_EQ(Bytes(level.end() - 9, level.end()),
              (Bytes{0x03, 0x00, 0x02, 0x00, 0x04, 0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(read_back(level, program.block()), outer.block())
        << "index -1 is the level's block itself";

    // A level chain that ends early is reported and stays where it is.
    {
        LogRecorder log;
        EXPECT_EQ(read_back(up, program.block()), program.block())
            << "one level up from the top stays at the top";
        EXPECT_TRUE(log.saw("cannot construct program."));
        EXPECT_EQ(read_back(up, outer.block()), nullptr)
            << "the top block has no parent to start from";
    }

    // A native function is written by name and found again by name.
    test::program print = w.native(
        "printer", [](vrkblock*, std::vector<vrkvar*>&, void*, vrkvar& r) { return &r; }, 1);
    outer.function_var("printer", print.block());
    const Bytes native = list_of(print.block(), program.block());
    EXPECT_EQ(Bytes(native.end() - 12, native.end()),
              (Bytes{0x03, 0x00, 0x01, 0x01, 0x07, 'p', 'r', 'i', 'n', 't', 'e', 'r'}));
    EXPECT_EQ(read_back(native, program.block()), print.block());
    EXPECT_TRUE(back->value.json->elements[0]->attrs & attr::NATIVE_FUNCTION);
}

TEST_F(FunctionInListTest, WholeFunctionsStandAlone) {
    test::program fn = w.function(2);
    const uint32_t k = fn.constant(41);
    fn.load(k).ret();
    const Bytes bytes = list_of(fn.block(), nullptr);
    EXPECT_EQ(bytes[9], 0x03);
    EXPECT_EQ(bytes[10], 0x01) << "no program: the block record follows";

    test::program owner = w.block();
    vrkblock* copy = read_back(bytes, owner.block());
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, fn.block());
    EXPECT_EQ(copy->parent, owner.block());
    EXPECT_EQ(copy->param_count, 2);
    ASSERT_EQ(copy->code.size(), fn.block()->code.size());
    EXPECT_EQ(copy->code[0].ref_block(), copy) << "its own variables are its own";
    EXPECT_EQ(to_int(copy->vars[k]), 41);
    EXPECT_EQ(back->value.json->elements[0]->aux, 2);
    EXPECT_TRUE(block_alive(copy));
    // The block belongs to the reading block (deleted with it by the workshop).

    // Without a block to own it, the function is read and dropped.
    EXPECT_EQ(read_back(bytes, nullptr), nullptr);
}

TEST_F(ValueFormTest, ValueBuiltins) {
    OwnedCell value, result, buffer;
    set_string(value.get(), "hi");
    std::vector<vrkvar*> one{value.get()};
    builtin_todata(nullptr, nullptr, one, nullptr, *result.get());
    ASSERT_EQ(result->type, Tag::DATA);
    EXPECT_EQ(*result->value.data, (Bytes{'h', 'i'})) << "no terminator";
    set_int(value.get(), 0x0102);
    builtin_todata(nullptr, nullptr, one, nullptr, *result.get());
    EXPECT_EQ(*result->value.data, (Bytes{0x02, 0x01, 0, 0, 0, 0, 0, 0}));
    *as_intset(value.get()) = {1, -1};
    builtin_todata(nullptr, nullptr, one, nullptr, *result.get());
    EXPECT_EQ(*result->value.data, (Bytes{1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}));
    std::vector<vrkvar*> none;
    builtin_todata(nullptr, nullptr, none, nullptr, *result.get());
    EXPECT_TRUE(result->value.data->empty());

    // serialize / deserialize, with the result or a second argument.
    set_float(value.get(), 4.5);
    builtin_serialize(nullptr, nullptr, one, nullptr, *result.get());
    EXPECT_EQ(*result->value.data, cell_bytes(value.get()));
    std::vector<vrkvar*> into{value.get(), buffer.get()};
    OwnedCell untouched;
    builtin_serialize(nullptr, nullptr, into, nullptr, *untouched.get());
    EXPECT_EQ(*buffer->value.data, cell_bytes(value.get()));
    EXPECT_EQ(untouched->type, Tag::INT);
    {
        LogRecorder log;
        std::vector<vrkvar*> three{value.get(), buffer.get(), buffer.get()};
        builtin_serialize(nullptr, nullptr, three, nullptr, *untouched.get());
        EXPECT_TRUE(log.saw("wrong params!"));
    }

    OwnedCell read;
    std::vector<vrkvar*> from{buffer.get()};
    builtin_deserialize(nullptr, nullptr, from, nullptr, *read.get());
    EXPECT_EQ(read->type, Tag::FLOAT);
    EXPECT_EQ(read->value.f, 4.5);
    OwnedCell second;
    std::vector<vrkvar*> from_into{buffer.get(), second.get()};
    builtin_deserialize(nullptr, nullptr, from_into, nullptr, *read.get());
    EXPECT_EQ(second->value.f, 4.5);
    EXPECT_EQ(read->type, Tag::INT) << "the result starts as INT 0";
    // Reading a buffer into itself works on a copy of the bytes.
    std::vector<vrkvar*> self{buffer.get(), buffer.get()};
    builtin_deserialize(nullptr, nullptr, self, nullptr, *read.get());
    EXPECT_EQ(buffer->type, Tag::FLOAT);
    as_data(buffer.get())->clear();
    {
        LogRecorder log;
        builtin_deserialize(nullptr, nullptr, from, nullptr, *read.get());
        EXPECT_EQ(read->type, Tag::INT);
        EXPECT_EQ(log.errors(), 0u) << "an empty buffer is not read at all";
    }

    // jsontodata / datatojson.
    OwnedCell json(Tag::JSON);
    set_int(add_element(json.get(), "a"), 1);
    std::vector<vrkvar*> j{json.get()};
    builtin_jsontodata(nullptr, nullptr, j, nullptr, *result.get());
    EXPECT_EQ(*result->value.data, list_bytes(json.get()));
    std::vector<vrkvar*> d{result.get()};
    OwnedCell parsed;
    builtin_datatojson(nullptr, nullptr, d, nullptr, *parsed.get());
    ASSERT_EQ(parsed->type, Tag::JSON);
    EXPECT_EQ(to_string(parsed->value.json, true), "{\"a\": 1}");
    OwnedCell not_json;
    std::vector<vrkvar*> wrong{not_json.get()};
    builtin_jsontodata(nullptr, nullptr, wrong, nullptr, *result.get());
    ASSERT_EQ(result->type, Tag::DATA);
    EXPECT_TRUE(result->value.data->empty());
    builtin_datatojson(nullptr, nullptr, wrong, nullptr, *parsed.get());
    EXPECT_EQ(parsed->type, Tag::JSON) << "a first argument that is not DATA changes nothing";
}

}  // namespace
}  // namespace vrk
