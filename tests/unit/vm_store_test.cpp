// Stores: SET into variables, through references and into elements, MAKE_REF,
// and the faults of the checked store.
#include <string>

#include "frontend/emit.h"
#include "support/program.h"
#include "values/json.h"

namespace vrk::test {
namespace {

using VmStoreTest = VmTest;

TEST_F(VmStoreTest, StoresAndTheirFaults) {
    program p = w.block();
    const uint32_t x = p.variable("x");
    const uint32_t target = p.variable("target", 1);
    const uint32_t r = p.variable("r");
    set_ref(p.var(r), p.var(target));
    const uint32_t locked = p.variable("limit", 10);
    p.var(locked)->constant = 1;
    const uint32_t seven = p.constant(7);
    p.load(seven).set(x).emit(Op::SET_DEREF, r, p.ref()).set(locked);  // x = 7; *r = x; limit = x
    p.load(seven).emit(Op::SET_DEREF, x, p.ref());                     // x is no reference
    p.emit(Op::LOAD, load_code::UNDEFINED, 0).set(x);                  // undefined stores nothing
    std::string out = output_of([&] { p.run(); });
    EXPECT_EQ(to_int(p.var(x)), 7);
    EXPECT_EQ(to_int(p.var(target)), 7) << "stored through the reference";
    EXPECT_EQ(p.var(r)->type, Tag::REF);
    EXPECT_EQ(to_int(p.var(locked)), 10);
    EXPECT_NE(out.find("set: tried to override const var!"), std::string::npos) << out;
    EXPECT_NE(out.find("name of the var: limit"), std::string::npos) << out;
    EXPECT_NE(out.find("Runtime error: VAR_NO_REF"), std::string::npos) << out;
    p.var(locked)->constant = 0;

    program q = w.block();
    q.load(q.constant(1)).emit(Op::SET, 99, q.ref());
    vrkvar* top = nullptr;
    out = output_of([&] { top = q.run(); });
    EXPECT_NE(out.find("Runtime error: INVALID_VAR_C1"), std::string::npos) << out;
    EXPECT_EQ(top, void_value());

    program s = w.block();
    s.emit(Op::SET, -1, 0);
    EXPECT_NE(output_of([&] { s.run(); }).find("Runtime error: STACK_CORRUPTION"),
              std::string::npos);
}

// a[k] = v as the compiler emits it: v; PUSH 0; a; PUSH 1; k; INDEX -1; SET -2; RESET 0.
// A value of UINT32_MAX stands for `null`.
program element_store(workshop& w, uint32_t& a, const std::function<uint32_t(program&)>& value,
                      const std::function<uint32_t(program&)>& key) {
    program p = w.block();
    a = p.variable("a");
    const uint32_t v = value(p);
    const uint32_t k = key(p);
    if (v == UINT32_MAX) {
        p.emit(Op::LOAD, load_code::ERASE, 0);
    } else {
        p.load(v);
    }
    p.emit(Op::PUSH, 0, 0).load(a).emit(Op::PUSH, 1, 0).load(k).emit(Op::INDEX, -1, 0);
    p.emit(Op::SET, -2, 0).emit(Op::RESET, 0, 0);
    return p;
}

TEST_F(VmStoreTest, ElementStoreAndErase) {
    uint32_t a = 0;
    auto key_x = [](program& q) { return q.constant_string("x"); };
    program p = element_store(
        w, a, [](program& q) { return q.constant(5); }, key_x);
    EXPECT_EQ(p.run(), p.var(a));
    ASSERT_EQ(p.var(a)->type, Tag::JSON) << "an INT becomes a JSON value when indexed";
    EXPECT_EQ(to_int(json_find(p.var(a)->value.json, "x")), 5);
    EXPECT_EQ(p.temps_in_use(), 0);
    EXPECT_EQ(p.block()->stack.size(), 1u);
    EXPECT_EQ(p.block()->pending_index, -1);

    // a["x"] = null erases: the erase constant survives the copy into a temp.
    program e = element_store(
        w, a, [](program&) { return UINT32_MAX; }, key_x);
    vrkjson* json = as_json(e.var(a));
    json_append_keyed(json, nullptr, "x", nullptr);
    json_append_keyed(json, nullptr, "y", nullptr);
    e.run();
    ASSERT_EQ(json->elements.size(), 1u);
    EXPECT_EQ(*json->elements[0]->key, "y");
    EXPECT_EQ(e.temps_in_use(), 0) << "the erase constant is never handed to the pool";
}

TEST_F(VmStoreTest, StringStorePastTheEndAppendsWhileReadingReports) {
    uint32_t s = 0;
    program p = element_store(
        w, s, [](program& q) { return q.constant_string("x"); },
        [](program& q) { return q.constant(10); });
    set_string(p.var(s), "abc");
    std::string out = output_of([&] { p.run(); });
    EXPECT_EQ(to_string(p.var(s)), "abcx");
    EXPECT_EQ(out.find("JSON_ERROR"), std::string::npos) << out;

    program r = w.block();
    const uint32_t t = r.variable("t");
    set_string(r.var(t), "abc");
    r.load(t).emit(Op::PUSH, 1, 0).load(r.constant(10)).emit(Op::INDEX, 0, 0);
    vrkvar* answer = nullptr;
    out = output_of([&] { answer = r.run(); });
    EXPECT_NE(out.find("Runtime error: JSON_ERROR"), std::string::npos) << out;
    EXPECT_EQ(answer, r.var(t)) << "the read leaves the string in the slot";
}

TEST_F(VmStoreTest, MakeRefWrapsTopInTheResultCell) {
    program p = w.block();
    const uint32_t x = p.variable("x", 4);
    p.load(x).emit(Op::MAKE_REF, 0, 0);
    vrkvar* r = p.run();
    EXPECT_EQ(r, &p.block()->result);
    EXPECT_EQ(r->value.ref, p.var(x));

    p.emit(Op::MAKE_REF, 0, 0);
    r = p.run();
    EXPECT_EQ(r, &p.block()->scratch) << "wrapping the result cell itself uses scratch";
    EXPECT_EQ(r->value.ref, &p.block()->result);

    p.emit(Op::MAKE_REF, 1, 0);
    const std::string out = output_of([&] { r = p.run(); });
    EXPECT_NE(out.find("Runtime error: INVALID_VAR_C3"), std::string::npos) << out;
    EXPECT_EQ(r, void_value());
}

}  // namespace
}  // namespace vrk::test
