// Operators over every pair of type tags (+ - * / ^, < <=, ==), the arithmetic
// edge cases of integers, floats, texts and containers, and native object operators.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "base/context.h"
#include "base/script_lock.h"
#include "values/cell.h"
#include "values/json.h"
#include "values/object.h"
#include "values/operators.h"
#include "vm/block.h"

namespace vrk {
namespace {

constexpr int kTagCount = 16;

// Expected outcome of lhs (row) op rhs (column), tags in number order
// INT FLOAT STRING FUNCTION CLASS EXT VOID PTR REF JSON DATA FLOATSET DOUBLESET INTSET BIGINTSET ERR:
// i INT, f FLOAT, s concatenated text, o object operator without object (INT 0),
// c container of the higher tag, e report with the result untouched,
// x container report with the result slot turned into the void constant.
constexpr const char* kAddGrid[kTagCount] = {
    "ifseeeeoecccccce", "ffseeeeoecccccce", "ssssssssssssssss", "eeseeeeoexxxxxxe",
    "eeseeeeoexxxxxxe", "eeseeeeoexxxxxxe", "eeseeeeoexxxxxxe", "oosoooooexxxxxxe",
    "eeseeeeeexxxxxxe", "ccsxxxxxxcxxxxxe", "ccsxxxxxxxcxxxxe", "ccsxxxxxxxxcxxxe",
    "ccsxxxxxxxxxcxxe", "ccsxxxxxxxxxxcxe", "ccsxxxxxxxxxxxce", "eeseeeeeeeeeeeee",
};
constexpr const char* kOtherGrid[kTagCount] = {
    "ifeeeeeoecccccce", "ffeeeeeoecccccce", "eeeeeeeoexxxxxxe", "eeeeeeeoexxxxxxe",
    "eeeeeeeoexxxxxxe", "eeeeeeeoexxxxxxe", "eeeeeeeoexxxxxxe", "ooooooooexxxxxxe",
    "eeeeeeeeexxxxxxe", "ccxxxxxxxcxxxxxe", "ccxxxxxxxxcxxxxe", "ccxxxxxxxxxcxxxe",
    "ccxxxxxxxxxxcxxe", "ccxxxxxxxxxxxcxe", "ccxxxxxxxxxxxxce", "eeeeeeeeeeeeeeee",
};
// lhs < rhs, lhs <= rhs and rhs == lhs for the cells of Fixture::make.
constexpr const char* kLessGrid[kTagCount] = {
    "0000000000000000", "1000010000000000", "1101100010000000", "1100000000000000",
    "1100000000000000", "1010000000000000", "1100000000000000", "1100000000000000",
    "1100000000000000", "1110000000000000", "1110000000000000", "1100000000000000",
    "1100000000000000", "1100000000000000", "1100000000000000", "1100000000000000",
};
constexpr const char* kLessEqGrid[kTagCount] = {
    "1000000000000000", "1100010000000000", "1110000000000000", "1110000000000000",
    "1110000000000000", "1010000000000000", "1110000000000000", "1110000000000000",
    "1110000000000000", "1110000000000000", "1110000000000000", "1110000000000000",
    "1110000000000000", "1110000000000000", "1110000000000000", "1110000000000000",
};
constexpr const char* kEqualGrid[kTagCount] = {
    "1001100000000000", "0100000000000000", "0010000000000000", "1001000000000000",
    "1000100000000000", "0000000000000000", "0000000000000000", "0000000100000000",
    "0000000010000000", "0000000001000000", "0000000000100000", "0000000000000000",
    "0000000000000000", "0000000000000000", "0000000000000000", "0000000000000000",
};

struct OpCase {
    BinOp op;
    const char* invalid;   // report of a pair without arithmetic
    const char* mismatch;  // report of a container pairing
    const char* const* grid;
};
constexpr OpCase kOps[] = {
    {BinOp::add, "ADD_ERROR", "JSON_ADD_ERROR", kAddGrid},
    {BinOp::sub, "SUB_INVALID_TYPE", "JSON_SUB", kOtherGrid},
    {BinOp::mult, "MULT_INVALID_TYPE", "MULT_INVALID_TYPE", kOtherGrid},
    {BinOp::div, "DIV_INVALID_TYPE", "DIV_INVALID_TYPE", kOtherGrid},
    {BinOp::exp, "EXP_INVALID_TYPE", "EXP_INVALID_TYPE", kOtherGrid},
};

// A native object that records which operator slot was called and how.
struct ProbeCall {
    std::string slot;
    vrkblock* block;
    vrkvar* other;
};
class Probe : public vrkobject {
public:
    Probe(bool accept, std::vector<ProbeCall>* log) : accept(accept), calls(log) {}
    bool add(vrkblock* b, vrkvar* o, vrkvar* r) override { return take("add", b, o, r); }
    bool sub(vrkblock* b, vrkvar* o, vrkvar* r) override { return take("sub", b, o, r); }
    bool sub_reverse(vrkblock* b, vrkvar* o, vrkvar* r) override {
        return take("sub_reverse", b, o, r);
    }
    bool mult(vrkblock* b, vrkvar* o, vrkvar* r) override { return take("mult", b, o, r); }
    bool div(vrkblock* b, vrkvar* o, vrkvar* r) override { return take("div", b, o, r); }
    bool div_reverse(vrkblock* b, vrkvar* o, vrkvar* r) override {
        return take("div_reverse", b, o, r);
    }
    bool exp(vrkblock* b, vrkvar* o, vrkvar* r) override { return take("exp", b, o, r); }

private:
    bool take(const char* slot, vrkblock* b, vrkvar* o, vrkvar* r) {
        calls->push_back({slot, b, o});
        if (accept) set_int(r, 99);
        return accept;
    }
    bool accept;
    std::vector<ProbeCall>* calls;
};

class OperatorsTest : public ::testing::Test {
protected:
    void SetUp() override {
        context().main_thread = current_thread_id();
        target = cell_new(Tag::INT);
    }
    void TearDown() override {
        for (vrkvar* c : cells) cell_free(c);
        cell_free(target);
    }

    vrkvar* keep(vrkvar* c) { return cells.emplace_back(c); }
    vrkvar* num(int64_t v) {
        vrkvar* c = keep(cell_new());
        set_int(c, v);
        return c;
    }
    vrkvar* real(double v) {
        vrkvar* c = keep(cell_new());
        set_float(c, v);
        return c;
    }
    vrkvar* text(const std::string& v) {
        vrkvar* c = keep(cell_new());
        set_string(c, v);
        return c;
    }
    // A cell of tag t holding the values (V is the tag's vector type).
    template <class V>
    vrkvar* vec(Tag t, const V& values) {
        vrkvar* c = keep(cell_new(t));
        items<V>(c) = values;
        return c;
    }
    // The vector of a DATA or set cell; a cell of another tag fails the test.
    template <class V>
    static V& items(vrkvar* c) {
        static V wrong;
        if constexpr (std::is_same_v<V, std::vector<uint8_t>>) {
            if (c->is(Tag::DATA)) return *c->value.data;
        }
        if constexpr (std::is_same_v<V, std::vector<float>>) {
            if (c->is(Tag::FLOATSET)) return *c->value.floatset;
        }
        if constexpr (std::is_same_v<V, std::vector<double>>) {
            if (c->is(Tag::DOUBLESET)) return *c->value.doubleset;
        }
        if constexpr (std::is_same_v<V, std::vector<int32_t>>) {
            if (c->is(Tag::INTSET)) return *c->value.intset;
        }
        if constexpr (std::is_same_v<V, std::vector<int64_t>>) {
            if (c->is(Tag::BIGINTSET)) return *c->value.bigintset;
        }
        ADD_FAILURE() << "unexpected tag " << tag_name(c->type);
        wrong.clear();
        return wrong;
    }
    // A JSON cell of INT elements; an empty key makes a positional element.
    vrkvar* json(const std::vector<std::pair<std::string, int64_t>>& items) {
        vrkvar* c = keep(cell_new(Tag::JSON));
        for (const auto& [k, v] : items) {
            vrkelement* e = k.empty() ? json_append(c->value.json, nullptr, nullptr)
                                      : json_append_keyed(c->value.json, nullptr, k, nullptr);
            set_int(e, v);
        }
        return c;
    }
    // A handle on the object, or with a null object a handle whose object is gone.
    vrkvar* ptr_to(vrkobject* obj) {
        vrkvar* c = keep(cell_new(Tag::PTR));
        c->value.i = obj ? obj->registry_id : 0x7ffffff0;
        c->handle_index = obj ? obj->registry_index : 1u << 20;
        c->set_aux(0, kHandleMark);
        if (obj) obj->addRef();  // the cell's release destroys the object
        return c;
    }

    // One representative cell per tag.
    vrkvar* make(int tag) {
        switch (static_cast<Tag>(tag)) {
            case Tag::INT: return num(7);
            case Tag::FLOAT: return real(2.5);
            case Tag::STRING: return text("ab");
            case Tag::EXT: {
                vrkvar* c = keep(cell_new(Tag::EXT));
                c->value.i = 5;
                return c;
            }
            case Tag::PTR: return ptr_to(nullptr);
            case Tag::REF: {
                vrkvar* c = keep(cell_new());
                set_ref(c, target);
                return c;
            }
            case Tag::JSON: {
                vrkvar* c = json({{"", 1}});
                set_float(json_append(c->value.json, nullptr, nullptr), 2.5);
                return c;
            }
            case Tag::DATA: return vec(Tag::DATA, std::vector<uint8_t>{1, 2});
            case Tag::FLOATSET: return vec(Tag::FLOATSET, std::vector<float>{1.5f, 2});
            case Tag::DOUBLESET: return vec(Tag::DOUBLESET, std::vector<double>{1.5, 2});
            case Tag::INTSET: return vec(Tag::INTSET, std::vector<int32_t>{1, 2});
            case Tag::BIGINTSET: return vec(Tag::BIGINTSET, std::vector<int64_t>{1, 2});
            default:
                return keep(
                    cell_new(static_cast<Tag>(tag)));  // FUNCTION, CLASS without block; VOID; ERR
        }
    }

    // Runs lhs op rhs into the result slot; returns what was logged.
    std::string run(BinOp op, vrkvar* lhs, vrkvar* rhs, vrkvar*& slot, vrkblock* block = nullptr) {
        testing::internal::CaptureStdout();
        binary_op(block, op, lhs, rhs, &slot);
        return testing::internal::GetCapturedStdout();
    }
    vrkvar* calc(BinOp op, vrkvar* lhs, vrkvar* rhs) {
        vrkvar* slot = keep(cell_new());
        run(op, lhs, rhs, slot);
        return slot;
    }

    vrkvar* target = nullptr;
    std::vector<vrkvar*> cells;
};

TEST_F(OperatorsTest, EveryPairOfTagsTakesItsRule) {
    for (const OpCase& oc : kOps) {
        for (int l = 0; l < kTagCount; ++l) {
            for (int r = 0; r < kTagCount; ++r) {
                SCOPED_TRACE(tag_name(static_cast<Tag>(l)) + " op" + std::to_string(int(oc.op)) +
                             " " + tag_name(static_cast<Tag>(r)));
                vrkvar* lhs = make(l);
                vrkvar* rhs = make(r);
                vrkvar* res = num(4242);
                vrkvar* slot = res;
                const std::string out = run(oc.op, lhs, rhs, slot);
                const char want = oc.grid[l][r];
                const bool reported = out.find("Runtime error") != std::string::npos;
                if (want == 'e') {
                    EXPECT_NE(out.find(std::string("Runtime error: ") + oc.invalid + "\n"),
                              std::string::npos);
                    EXPECT_TRUE(res->is(Tag::INT) && res->value.i == 4242 && slot == res);
                } else if (want == 'x') {
                    EXPECT_NE(out.find(std::string("Runtime error: ") + oc.mismatch + "\n"),
                              std::string::npos);
                    EXPECT_EQ(slot, void_value());
                } else {
                    EXPECT_FALSE(reported) << out;
                    ASSERT_EQ(slot, res);
                    if (want == 'i' || want == 'o') {
                        EXPECT_TRUE(res->is(Tag::INT));
                    }
                    if (want == 'o') {
                        EXPECT_EQ(res->value.i, 0);
                    } else if (want == 'f') {
                        EXPECT_TRUE(res->is(Tag::FLOAT));
                    } else if (want == 'c') {
                        EXPECT_EQ(tag_name(res->type), tag_name(static_cast<Tag>(std::max(l, r))));
                    } else if (want == 's') {
                        EXPECT_EQ(to_string(res), to_string(make(l)) + to_string(make(r)));
                    }
                }
            }
        }
    }
}

TEST_F(OperatorsTest, OrderAndEqualityOverEveryPair) {
    for (int l = 0; l < kTagCount; ++l) {
        for (int r = 0; r < kTagCount; ++r) {
            SCOPED_TRACE(tag_name(static_cast<Tag>(l)) + " vs " + tag_name(static_cast<Tag>(r)));
            vrkvar* lhs = make(l);
            vrkvar* rhs = make(r);
            EXPECT_EQ(order_test(5, rhs, lhs), kLessGrid[l][r] == '1') << "<";
            EXPECT_EQ(order_test(3, rhs, lhs), kLessEqGrid[l][r] == '1') << "<=";
            EXPECT_EQ(order_test(4, lhs, rhs), kLessGrid[l][r] == '1') << "> with sides swapped";
            EXPECT_EQ(order_test(2, lhs, rhs), kLessEqGrid[l][r] == '1') << ">= with sides swapped";
            EXPECT_EQ(equals(rhs, lhs), kEqualGrid[l][r] == '1') << "==";
        }
    }
}

TEST_F(OperatorsTest, IntegersWrapAndNeverTrap) {
    constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
    constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
    struct {
        BinOp op;
        int64_t a, b, want;
    } cases[] = {
        {BinOp::add, kMax, 1, kMin}, {BinOp::sub, kMin, 1, kMax}, {BinOp::mult, kMax, 2, -2},
        {BinOp::div, 5, 0, 0},       {BinOp::div, -7, 2, -3},     {BinOp::div, kMin, -1, kMin},
        {BinOp::exp, 2, 10, 1024},   {BinOp::exp, 2, -1, 0},      {BinOp::exp, -2, 3, -8},
        {BinOp::exp, 10, 30, kMin},  // beyond the i64 range
    };
    for (const auto& c : cases) {
        vrkvar* res = calc(c.op, num(c.a), num(c.b));
        EXPECT_TRUE(res->is(Tag::INT));
        EXPECT_EQ(res->value.i, c.want) << c.a << " op" << int(c.op) << " " << c.b;
    }
    EXPECT_EQ(pow_to_int(std::nan("")), kMin);
    EXPECT_EQ(pow_to_int(-9223372036854775808.0), kMin);
    EXPECT_EQ(pow_to_int(-0.9), 0);
    EXPECT_EQ(pow_to_int(9223372036854774784.0), 9223372036854774784);
}

TEST_F(OperatorsTest, FloatsMixWithIntegersAndDivideByZeroToZero) {
    EXPECT_EQ(calc(BinOp::div, real(5.0), real(0.0))->value.f, 0.0);
    EXPECT_EQ(calc(BinOp::div, real(5.0), real(-0.0))->value.f, 0.0);
    EXPECT_EQ(calc(BinOp::add, num(1), real(0.5))->value.f, 1.5);
    EXPECT_EQ(calc(BinOp::sub, real(1.0), num(3))->value.f, -2.0);
    EXPECT_EQ(calc(BinOp::div, num(1), real(4))->value.f, 0.25);
    vrkvar* root = calc(BinOp::exp, real(2.0), real(0.5));
    EXPECT_TRUE(root->is(Tag::FLOAT));
    EXPECT_DOUBLE_EQ(root->value.f, std::sqrt(2.0));
}

TEST_F(OperatorsTest, PlusWithTextConcatenates) {
    EXPECT_EQ(to_string(calc(BinOp::add, text("ab"), num(1))), "ab1");
    EXPECT_EQ(to_string(calc(BinOp::add, num(1), text("ab"))), "1ab");
    EXPECT_EQ(to_string(calc(BinOp::add, text("x"), real(1.5))), "x1.500000");
    vrkvar* array = json({{"", 1}, {"", 2}});
    vrkvar* joined = calc(BinOp::add, array, text("s"));
    EXPECT_TRUE(joined->is(Tag::STRING));
    EXPECT_EQ(to_string(joined), to_string(array) + "s");
    EXPECT_EQ(to_string(joined).front(), '[');
    // The result cell may be either operand.
    vrkvar* l = text("ab");
    vrkvar* slot = l;
    run(BinOp::add, l, text("cd"), slot);
    EXPECT_EQ(to_string(l), "abcd");
    vrkvar* r = text("cd");
    slot = r;
    run(BinOp::add, text("ab"), r, slot);
    EXPECT_EQ(to_string(r), "abcd");
}

TEST_F(OperatorsTest, DivisionOfAMissingOperandIsReported) {
    vrkvar* slot = num(3);
    vrkvar* res = slot;
    EXPECT_NE(run(BinOp::div, nullptr, num(1), slot).find("div: division error"),
              std::string::npos);
    EXPECT_NE(run(BinOp::div, num(1), reinterpret_cast<vrkvar*>(1), slot).find("division error"),
              std::string::npos);
    EXPECT_EQ(slot, res);
    EXPECT_EQ(res->value.i, 3);
}

TEST_F(OperatorsTest, JsonWithScalarKeepsTheElementOnTheLeft) {
    vrkvar* j = json({{"", 6}, {"k", 0}});
    set_float(j->value.json->elements[1], 1.5);
    set_string(json_append(j->value.json, nullptr, nullptr), "s");
    auto values = [](vrkvar* c) {
        const auto& e = c->value.json->elements;
        return std::to_string(e[0]->value.i) + " " + std::to_string(e[1]->value.f) + " " +
               to_string(e[2]);
    };
    EXPECT_EQ(values(calc(BinOp::mult, j, num(2))), "12 3.000000 s");
    EXPECT_EQ(values(calc(BinOp::sub, num(2), j)), "4 -0.500000 s");
    EXPECT_EQ(values(calc(BinOp::div, j, num(0))), "0 0.000000 s");
    EXPECT_EQ(values(calc(BinOp::exp, j, real(2.0))), "36 2.250000 s");
    EXPECT_EQ(values(j), "6 1.500000 s") << "the operand itself is not changed";
    EXPECT_EQ(*calc(BinOp::add, j, num(1))->value.json->elements[1]->key, "k");
}

TEST_F(OperatorsTest, VectorsWithScalarWrapAtTheirWidth) {
    using u8 = std::vector<uint8_t>;
    using i32 = std::vector<int32_t>;
    EXPECT_EQ(items<u8>(calc(BinOp::add, vec(Tag::DATA, u8{250, 3}), num(10))), (u8{4, 13}));
    EXPECT_EQ(items<u8>(calc(BinOp::sub, vec(Tag::DATA, u8{10}), num(300))),
              (u8{222}));  // 300 -> 44
    EXPECT_EQ(items<u8>(calc(BinOp::sub, num(3), vec(Tag::DATA, u8{10}))), (u8{7}));
    EXPECT_EQ(items<u8>(calc(BinOp::div, vec(Tag::DATA, u8{9, 8}), num(0))), (u8{0, 0}));
    EXPECT_EQ(items<u8>(calc(BinOp::exp, vec(Tag::DATA, u8{2, 3}), num(8))), (u8{0, 161}));
    const int32_t lo = std::numeric_limits<int32_t>::min(),
                  hi = std::numeric_limits<int32_t>::max();
    EXPECT_EQ(items<i32>(calc(BinOp::add, vec(Tag::INTSET, i32{hi, 7}), num(1))), (i32{lo, 8}));
    EXPECT_EQ(items<i32>(calc(BinOp::div, vec(Tag::INTSET, i32{lo, 7}), num(-1))), (i32{lo, -7}));
    EXPECT_EQ(items<i32>(calc(BinOp::add, vec(Tag::INTSET, i32{1}), num(4294967297))), (i32{2}));
    EXPECT_EQ(items<i32>(calc(BinOp::div, vec(Tag::INTSET, i32{5}), num(0))), (i32{0}));
    EXPECT_EQ(items<std::vector<int64_t>>(
                  calc(BinOp::exp, vec(Tag::BIGINTSET, std::vector<int64_t>{3}), num(2))),
              (std::vector<int64_t>{9}));
    EXPECT_EQ(items<std::vector<float>>(
                  calc(BinOp::mult, vec(Tag::FLOATSET, std::vector<float>{1.5f}), real(2.5))),
              (std::vector<float>{3.75f}));
    // Floating sets divide by a zero scalar the IEEE way, unguarded.
    EXPECT_TRUE(std::isinf((items<std::vector<float>>(
        calc(BinOp::div, vec(Tag::FLOATSET, std::vector<float>{1}), real(0.0))))[0]));
    EXPECT_TRUE(std::isinf((items<std::vector<double>>(
        calc(BinOp::div, vec(Tag::DOUBLESET, std::vector<double>{1}), num(0))))[0]));
}

TEST_F(OperatorsTest, SameVectorsCombineElementByElement) {
    using i32 = std::vector<int32_t>;
    using f64 = std::vector<double>;
    EXPECT_EQ(items<i32>(calc(BinOp::div, vec(Tag::INTSET, i32{10, 20, 30}),
                              vec(Tag::INTSET, i32{0, 3, -4}))),
              (i32{0, 6, -7}));
    EXPECT_EQ(items<f64>(
                  calc(BinOp::div, vec(Tag::DOUBLESET, f64{1, 2}), vec(Tag::DOUBLESET, f64{0, 4}))),
              (f64{0, 0.5}));
    using u8 = std::vector<uint8_t>;
    EXPECT_EQ(items<u8>(calc(BinOp::sub, vec(Tag::DATA, u8{1, 2}), vec(Tag::DATA, u8{2, 1}))),
              (u8{255, 1}));

    vrkvar* slot = num(0);
    const std::string out = run(BinOp::add, vec(Tag::INTSET, i32{1, 2}),
                                vec(Tag::INTSET, i32{1, 2, 3}), slot);
    EXPECT_NE(out.find("[LOG]: cannot operate on vectors with different size! (2 : 3)"),
              std::string::npos);
    EXPECT_EQ(items<i32>(slot), (i32{1, 2})) << "the result stays the copy of lhs";

    vrkvar* right = vec(Tag::INTSET, i32{3});  // result slot on rhs: read before overwritten
    slot = right;
    run(BinOp::div, vec(Tag::INTSET, i32{6}), right, slot);
    EXPECT_EQ(items<i32>(right), (i32{2}));
}

TEST_F(OperatorsTest, JsonPlusJsonAppendsWithKeysOtherOperatorsRefuse) {
    vrkvar* lhs = json({{"a", 1}, {"", 2}});
    vrkvar* rhs = json({{"", 3}, {"b", 4}});
    vrkvar* res = calc(BinOp::add, lhs, rhs);
    const auto& e = res->value.json->elements;
    ASSERT_EQ(e.size(), 4u);
    std::string seen;
    for (vrkelement* x : e)
        seen += (x->key && !x->key->empty() ? *x->key : "-") + std::to_string(x->value.i);
    EXPECT_EQ(seen, "a1-2-3b4");

    vrkvar* slot = rhs;  // the result is the right operand itself
    run(BinOp::add, lhs, rhs, slot);
    EXPECT_EQ(rhs->value.json->elements.size(), 4u);

    slot = num(0);
    EXPECT_NE(run(BinOp::mult, lhs, json({{"", 5}}), slot).find("[LOG]: cannot operate on json!"),
              std::string::npos);
    EXPECT_EQ(slot->value.json->elements.size(), 2u);
}

TEST_F(OperatorsTest, ObjectsAreAskedLeftFirstThenRight) {
    std::vector<ProbeCall> calls;
    vrkblock* block = block_new(nullptr);
    vrkvar* taker = ptr_to(new Probe(true, &calls));
    vrkvar* refuser = ptr_to(new Probe(false, &calls));
    vrkvar* five = num(5);
    vrkvar* slot = num(0);
    run(BinOp::add, taker, five, slot, block);
    EXPECT_EQ(slot->value.i, 99);
    run(BinOp::sub, refuser, taker, slot, block);  // refused on the left: the right one reverses
    run(BinOp::div, five, taker, slot, block);
    run(BinOp::mult, five, refuser, slot, block);
    EXPECT_EQ(slot->value.i, 99) << "a refusal from the right object leaves the result as it is";
    ASSERT_EQ(calls.size(), 5u);
    EXPECT_EQ(calls[0].slot + calls[1].slot + calls[2].slot + calls[3].slot + calls[4].slot,
              "addsubsub_reversediv_reversemult");
    EXPECT_TRUE(calls[0].block == block && calls[0].other == five);
    EXPECT_TRUE(calls[2].block == nullptr && calls[2].other == refuser)
        << "reverse subtraction has no block";
    EXPECT_TRUE(calls[3].block == block && calls[3].other == five);
    block_delete(block);
}

TEST_F(OperatorsTest, TextOrderFamiliesDiffer) {
    auto less = [&](vrkvar* l, vrkvar* r) { return order_test(5, r, l); };
    auto less_eq = [&](vrkvar* l, vrkvar* r) { return order_test(3, r, l); };
    auto greater = [&](vrkvar* l, vrkvar* r) { return order_test(4, r, l); };
    auto greater_eq = [&](vrkvar* l, vrkvar* r) { return order_test(2, r, l); };
    EXPECT_TRUE(less(text("abc"), text("ABD")));
    EXPECT_FALSE(less_eq(text("abc"), text("ABD")));
    EXPECT_FALSE(less(text("ab"), text("abc")));
    EXPECT_FALSE(greater(text("abc"), text("ab")));
    EXPECT_TRUE(less_eq(text("ab"), text("abc")));
    EXPECT_TRUE(greater_eq(text("abc"), text("ab")));
    EXPECT_TRUE(less(text("\xC3"), text("a"))) << "case-blind compare is signed";
    EXPECT_FALSE(less_eq(text("\xC3"), text("a"))) << "byte compare is unsigned";
    EXPECT_FALSE(less(text("12"), num(3))) << "an INT side makes it a number compare";
    EXPECT_TRUE(less(text("1.5"), real(2)));
    vrkvar* nan = real(std::nan(""));
    EXPECT_FALSE(less(nan, num(1)) || less_eq(nan, num(1)) || greater_eq(nan, num(1)));
    EXPECT_FALSE(order_test(1, num(1), num(2)) || order_test(6, num(1), num(2)));
}

TEST_F(OperatorsTest, EqualityEdgeCases) {
    vrkvar* fn = keep(cell_new(Tag::FUNCTION));
    EXPECT_TRUE(equals(num(1), fn) && equals(num(5), fn));
    EXPECT_FALSE(equals(num(0), fn));
    EXPECT_TRUE(equals(json({{"a", 1}}), json({{"b", 2}}))) << "JSON compare is a test of tags";
    EXPECT_TRUE(equals(num(2), json({{"", 7}, {"", 8}})));
    EXPECT_FALSE(equals(text("1.0"), real(1.0)));
}

}  // namespace
}  // namespace vrk
