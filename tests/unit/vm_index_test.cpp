// INDEX and CLASS_ACCESS: strings, JSON values with the position hint, data
// sets, instances with the member cache and `oparray`, and native objects.
#include <string>
#include <vector>

#include "frontend/emit.h"
#include "support/program.h"
#include "values/json.h"
#include "values/object.h"

namespace vrk::test {
namespace {

class VmIndexTest : public VmTest {
protected:
    // container[key] read: container; PUSH 1; key; INDEX hint.
    static vrkvar* read(program& p, uint32_t container, uint32_t key) {
        free_code_operands(p.block()->code);
        p.block()->code.clear();
        p.load(container).emit(Op::PUSH, 1, 0).load(key).emit(Op::INDEX, 0, 0);
        vrkvar* r = p.run();
        EXPECT_EQ(p.block()->stack.size(), 1u);
        return r;
    }
    // A variable of `p` holding a non-counting CLASS cell of `instance`.
    static uint32_t instance_var(program& p, vrkblock* instance) {
        const uint32_t v = p.variable("obj");
        reset(p.var(v), Tag::CLASS);
        p.var(v)->block = instance;
        p.var(v)->flags |= flag::NO_COUNT;
        return v;
    }
};

TEST_F(VmIndexTest, StringsAndDataSets) {
    program p = w.block();
    const uint32_t s = p.variable("s");
    set_string(p.var(s), "abc");
    auto at = [&](int64_t i) { return to_string(read(p, s, p.constant(i))); };
    EXPECT_EQ(at(0), "a");
    EXPECT_EQ(at(-1), "c");
    EXPECT_EQ(at(-3), "a");
    EXPECT_EQ(at(-4), "c") << "modulo the length";

    set_string(p.var(s), "");
    EXPECT_NE(output_of([&] { at(-1); }).find(": zero length string!"), std::string::npos);

    const uint32_t f = p.variable("f");
    *as_floatset(p.var(f)) = {2.75f, -1.5f};
    EXPECT_EQ(to_int(read(p, f, p.constant(0))), 2) << "float elements are truncated";
    EXPECT_EQ(to_int(read(p, f, p.constant(-1))), -1);
    EXPECT_EQ(to_int(read(p, f, p.constant(7))), 0) << "past the end reads 0";
    EXPECT_EQ(p.var(f)->value.floatset->size(), 2u) << "and creates nothing";
}

TEST_F(VmIndexTest, JsonReadUsesAndWritesThePositionHint) {
    program p = w.block();
    const uint32_t a = p.variable("a");
    vrkjson* json = as_json(p.var(a));
    json_append_keyed(json, nullptr, "first", nullptr);
    vrkelement* second = json_append_keyed(json, nullptr, "second", nullptr);
    EXPECT_EQ(read(p, a, p.constant_string("second")), second);
    EXPECT_EQ(p.block()->code.back().arg, 1) << "the hint is written back into the instruction";
    EXPECT_EQ(p.run(), second) << "and serves the next read";
    EXPECT_EQ(p.block()->member_owner, p.var(a));

    EXPECT_EQ(read(p, a, p.constant_string("third"))->type, Tag::INT) << "a missing key is made";
    read(p, a, p.constant(5));
    EXPECT_EQ(json->elements.size(), 6u) << "and so is a missing position";

    const uint32_t x = p.variable("x", 12);
    read(p, x, p.constant_string("k"));
    ASSERT_EQ(p.var(x)->type, Tag::JSON) << "any other value becomes an empty JSON first";
    EXPECT_EQ(p.var(x)->value.json->elements.size(), 1u);
}

TEST_F(VmIndexTest, InstanceMembers) {
    program op = w.function(1);
    op.load(0).ret();  // oparray(key) { return key; }
    program inst = w.block();
    inst.block()->kind = kind::INSTANCE;
    inst.block()->make_class_slots();
    const uint32_t mx = inst.variable("x", 1);
    const uint32_t my = inst.variable("y", 2);

    program p = w.block();
    const uint32_t obj = instance_var(p, inst.block());
    const uint32_t name = p.variable("name");
    set_string(p.var(name), "x");
    EXPECT_EQ(read(p, obj, name), inst.var(mx));
    ASSERT_NE(p.block()->code.back().ref, 0u) << "the look-up is cached in the instruction";
    set_string(p.var(name), "y");
    EXPECT_EQ(p.run(), inst.var(my)) << "the same string cell with other text misses the cache";
    EXPECT_EQ(read(p, obj, p.constant(-1)), inst.var(my)) << "negative positions from the end";
    EXPECT_EQ(read(p, obj, p.constant_string("z")), p.var(obj)) << "no member and no oparray";

    reset(inst.var(static_cast<uint32_t>(ClassSlot::oparray)), Tag::FUNCTION);
    inst.var(static_cast<uint32_t>(ClassSlot::oparray))->block = op.block();
    vrkvar* answer = read(p, obj, p.constant_string("width"));
    EXPECT_EQ(answer, &op.block()->result) << "a missing name goes to oparray";
    EXPECT_EQ(to_string(answer), "width");

    free_code_operands(p.block()->code);
    p.block()->code.clear();
    p.load(obj).emit(Op::CLASS_ACCESS, my, 0);
    EXPECT_EQ(p.run(), inst.var(my));
    EXPECT_EQ(p.block()->member_owner, p.var(obj));
    p.block()->code.clear();
    p.load(name).emit(Op::CLASS_ACCESS, 0, 0);
    EXPECT_NE(output_of([&] { p.run(); }).find("Runtime error: CLASS_ACCESS_ERROR"),
              std::string::npos);
    EXPECT_EQ(p.block()->member_owner, nullptr);
    reset(p.var(obj), Tag::INT);
}

// The scratch cell holds the result of `!` until the next operation rewrites
// it. Subscripting it reports instead of making a list there, whose element
// the next `!` would free while a slot still holds it.
TEST_F(VmIndexTest, TheScratchCellIsNotTurnedIntoAList) {
    program p = w.block();
    const uint32_t x = p.variable("x", 0);
    const uint32_t key = p.constant(0);
    p.load(x).emit(Op::NOT).emit(Op::PUSH, 1, 0).load(key).emit(Op::INDEX, 0, 0);
    p.load(x).emit(Op::NOT).emit(Op::ADD);
    const std::string out = output_of([&] { p.run(); });
    EXPECT_NE(out.find("json: invalid json value!"), std::string::npos) << out;
    EXPECT_EQ(p.block()->scratch.type, Tag::INT);
}

// An object that answers every read with the key's length.
class probe_object : public vrkobject {
public:
    ScriptArrayReturn arrayGet(vrkblock* b, vrkvar* res, vrkvar* key) override {
        seen_instruction = b->current_instruction != nullptr;
        set_int(res, static_cast<int64_t>(to_string(key).size()));
        return {};
    }
    bool seen_instruction = false;
};

TEST_F(VmIndexTest, ObjectsAnswerThroughArrayGet) {
    probe_object object;
    program p = w.block();
    const uint32_t o = p.variable("o");
    make_handle(p.var(o), &object);
    vrkvar* r = read(p, o, p.constant_string("abcd"));
    EXPECT_EQ(r, &p.block()->scratch);
    EXPECT_EQ(to_int(r), 4);
    EXPECT_TRUE(object.seen_instruction);
    EXPECT_EQ(p.block()->current_instruction, nullptr) << "cleared after the call";
    ASSERT_TRUE(p.block()->object_stack);
    EXPECT_EQ(p.block()->object_stack->back(), &object);

    {
        probe_object brief;
        make_handle(p.var(o), &brief);
    }
    EXPECT_NE(output_of([&] { read(p, o, p.constant(0)); }).find("Runtime error: SO_ERROR"),
              std::string::npos);
    set_int(p.var(o), 0);
}

}  // namespace
}  // namespace vrk::test
