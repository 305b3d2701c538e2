// Function declarations and calls in the compiler: the declaration's store and
// parameters, attribute words, lambdas, the reserved functions of a class, the
// special names, the text rewrites (thread sugar, colon calls), member calls on
// a call's result, and the default-argument builtin.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "base/context.h"
#include "base/log.h"
#include "base/script_lock.h"
#include "builtins/math.h"
#include "frontend/compile.h"
#include "frontend/compile_context.h"
#include "frontend/compiler.h"
#include "frontend/parser.h"
#include "host/engine.h"
#include "support/engine_fixture.h"
#include "values/cell.h"
#include "values/pools.h"
#include "vm/block.h"
#include "vm/copies.h"
#include "vm/dump_code.h"
#include "vm/run.h"

namespace vrk {
namespace {

using test::Strings;

class FunctionsTest : public test::EngineFixture {
protected:
    // "OP arg ref" per instruction; ref shown as B (the block), F (registered
    // functions), G (globals), C0.. (children of the block), -1, a small
    // number, or nothing for 0.
    std::string listing(vrkblock* b) const {
        return dump_code(b, "; ", [&](uint64_t ref, std::string& out) {
            if (ref == 0 || ref == ref_of(b)) return false;
            if (ref == ref_of(engine->firstBlock)) {
                out = "F";
            } else if (engine->globalBlock && ref == ref_of(engine->globalBlock)) {
                out = "G";
            } else if (ref == kRefMinusOne || ref < 16) {
                return false;
            } else {
                out = "?";
                for (std::size_t i = 0; b->children && i < b->children->size(); ++i)
                    if (ref == ref_of((*b->children)[i])) out = "C" + std::to_string(i);
            }
            return true;
        });
    }

    int64_t index_of(vrkblock* b, const std::string& name) { return b->find_var_index(name); }
    std::string at(vrkblock* b, const std::string& name) {
        return std::to_string(index_of(b, name));
    }
};

TEST_F(FunctionsTest, DeclarationStoresTheBodyAndDeclaresItsParameters) {
    vrkblock* b = make_block("f(a, #b, c = 3) {##BLK0};");
    vrkblock* body = make_block("return a;", b);
    compile_block(b);

    // The callee search made the cell of f (0) before the body's constant (1).
    EXPECT_EQ(listing(b), "LOAD 1 B; PUSH 1; LOAD 0 B; SET -1");
    vrkvar* f = b->find_var("f");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->type, Tag::FUNCTION);
    EXPECT_EQ(f->block, body) << "calls compiled before the store already reach the body";
    EXPECT_EQ(f->aux, 3);
    EXPECT_TRUE(f->flags & flag::DECLARED_FUNCTION);

    EXPECT_EQ(body->param_count, 3);
    EXPECT_EQ(body->is_function, 1);
    EXPECT_EQ(index_of(body, "a"), 0);
    EXPECT_EQ(index_of(body, "b"), 1);
    EXPECT_EQ(index_of(body, "c"), 2);
    for (int i = 0; i < 3; ++i) {
        vrkvar* p = body->vars[static_cast<std::size_t>(i)];
        EXPECT_EQ(p->type, Tag::VOID) << i;
        EXPECT_TRUE(p->flags & kParameterFlag) << i;
        EXPECT_EQ((p->attrs & attr::BY_REF_PARAM) != 0, i == 1) << i;
    }
    EXPECT_TRUE(starts_with(*body->code_text, "set_internal_param_var(3,c, 3);"))
        << "the default is a statement in front of the body: " << *body->code_text;

    // `name(...) = {...}` is the same declaration.
    vrkblock* eq = make_block("g(x) = {##BLK0};");
    vrkblock* eq_body = make_block("return x;", eq);
    compile_block(eq);
    EXPECT_EQ(eq->find_var("g")->block, eq_body);
    EXPECT_EQ(listing(eq), "LOAD 1 B; PUSH 1; LOAD 0 B; SET -1");
}

TEST_F(FunctionsTest, TypeWordsOfParametersCarryOverToTheFollowingOnes) {
    vrkblock* b = make_block(
        "f(int a, b, string c) {##BLK0}; g(auto x, y) {##BLK1}; h(int[] p, q) {##BLK2};");
    vrkblock* f = make_block("", b);
    vrkblock* g = make_block("", b);
    vrkblock* h = make_block("", b);
    compile_block(b);

    const auto param = [](vrkblock* fn, std::size_t i) { return fn->vars[i]; };
    EXPECT_EQ(param(f, 0)->type, Tag::INT);
    EXPECT_TRUE(param(f, 0)->flags & flag::FIXED_TYPE);
    EXPECT_EQ(param(f, 1)->type, Tag::INT) << "an untyped parameter keeps the type before it";
    EXPECT_TRUE(param(f, 1)->flags & flag::FIXED_TYPE);
    EXPECT_EQ(param(f, 2)->type, Tag::STRING);

    ASSERT_TRUE(g->scoped);
    EXPECT_EQ(*g->scoped, (std::vector<uint32_t>{0, 1})) << "auto makes both scoped";
    EXPECT_TRUE(param(g, 1)->attrs & attr::OWNS_RESULT);

    EXPECT_TRUE(param(h, 0)->flags & flag::KEEP_HINT);
    EXPECT_TRUE(param(h, 1)->flags & flag::KEEP_HINT)
        << "[] holds for the following parameters too";
    EXPECT_EQ(param(h, 1)->type, Tag::INT);
}

TEST_F(FunctionsTest, AttributeWords) {
    vrkblock* b = make_block(
        "locked extern ext(a) {##BLK0}; global glob() {##BLK1}; parallel par() {##BLK2}; "
        "recursive rec() {##BLK3}; threaded threaded_join thr() {##BLK4}; nosuchtype typed() {##BLK5};");
    for (int i = 0; i < 6; ++i) make_block("", b);
    compile_block(b);
    vrkblock* ext = (*b->children)[0];
    vrkblock* glob = (*b->children)[1];

    EXPECT_EQ(ext->options & kLockedOption, kLockedOption);
    EXPECT_TRUE(ext->kind & kind::EXTERN);
    EXPECT_EQ(engine->extern_blocks["ext"], ext);

    ASSERT_NE(engine->globalBlock, nullptr);
    vrkvar* g = engine->globalBlock->find_var("glob");
    ASSERT_NE(g, nullptr) << "a global function lives in the engine's global block";
    EXPECT_EQ(g->block, glob);
    EXPECT_EQ(b->find_var("glob"), nullptr);
    EXPECT_NE(listing(b).find("PUSH 1; LOAD " + at(engine->globalBlock, "glob") + " G; SET -1"),
              std::string::npos)
        << listing(b);

    EXPECT_TRUE(logged("\"parallel\" is deprecated! parallel par() {##BLK2}"));
    EXPECT_TRUE(logged("\"recursive\" is deprecated! recursive rec() {##BLK3}"));
    EXPECT_TRUE(logged("cannot get type of: nosuchtype"))
        << "the first other word is the return type";
    // The deprecated words change nothing else: the functions are declared.
    EXPECT_EQ(b->find_var("par")->block, (*b->children)[2]);
    EXPECT_EQ(b->find_var("thr")->block, (*b->children)[4]);
    EXPECT_EQ((*b->children)[4]->options, 0);
}

TEST_F(FunctionsTest, LambdaCopiesItsCapturesIntoStoreVariables) {
    vrkblock* b = make_block("k = 1; g = [k, this](y) {##BLK0}; p = [](y) {##BLK1};");
    vrkblock* lambda = make_block("return k + y;", b);
    vrkblock* plain = make_block("return y;", b);
    compile_block(b);

    EXPECT_TRUE(lambda->kind & kind::LAMBDA);
    EXPECT_FALSE(plain->kind & kind::LAMBDA) << "an empty capture list makes no lambda";
    EXPECT_EQ(index_of(lambda, "y"), 0) << "parameters come first";
    const int64_t k = index_of(lambda, "k");
    const int64_t k_store = index_of(lambda, "k__lambda_store__");
    const int64_t this_store = index_of(lambda, "this__lambda_store__");
    ASSERT_GE(k, 0);
    ASSERT_GE(k_store, 0);
    ASSERT_GE(this_store, 0);
    EXPECT_GE(lambda->this_index, 0);
    EXPECT_GE(b->this_index, 0) << "`this` is made known in the enclosing block as well";
    EXPECT_TRUE(lambda->vars[static_cast<std::size_t>(k)]->flags & flag::CAPTURED);
    EXPECT_TRUE(lambda->vars[static_cast<std::size_t>(this_store)]->flags & flag::NO_COUNT);
    ASSERT_TRUE(lambda->captures);
    ASSERT_EQ(lambda->captures->size(), 2u);
    EXPECT_EQ(
        lambda->captures->front(),
        (std::pair<uint32_t, int32_t>{static_cast<uint32_t>(k), static_cast<int32_t>(k_store)}));

    // The anonymous function gets a cell of its own in this block (2, made by
    // the callee search before the body's constant, 3), and the value goes
    // from there into g (5). `this` of the block is 4.
    const std::string code = listing(b);
    EXPECT_EQ(code.substr(0, code.find("; LOAD 7 B")),
              "LOAD 0 B; SET 1 B; LOAD 3 B; "
              "PUSH 1; LOAD 1 B; SET " +
                  std::to_string(k_store) +
                  " C0; POP 1; "
                  "PUSH 1; LOAD 4 B; SET " +
                  std::to_string(this_store) +
                  " C0; POP 1; "
                  "SET 2 B; SET 5 B")
        << code;
    EXPECT_EQ(index_of(b, "g"), 5);

    // Run: the capture is the value at the declaration, not the later one.
    EXPECT_EQ(
        run_script(
            "k = 10;\nadd = [k](y) {\n  return k + y;\n};\nk = 20;\nprint(add(1));\nprint(k);\n"),
        (Strings{"11", "20"}));
}

TEST_F(FunctionsTest, ReservedFunctionsOfAClassTakeTheirSlots) {
    vrkblock* cls = make_block("P(a) {##BLK0}; ~P() {##BLK1}; opadd(o) {##BLK2}; m() {##BLK3};");
    for (int i = 0; i < 4; ++i) make_block("", cls);
    cls->kind = kind::CLASS;
    cls->make_class_slots();
    cls->get_class_data().name = std::make_unique<std::string>("P");
    compile_block(cls);

    const auto slot = [cls](ClassSlot s) { return cls->vars[static_cast<std::size_t>(s)]; };
    EXPECT_EQ(slot(ClassSlot::constructor)->type, Tag::FUNCTION);
    EXPECT_EQ(slot(ClassSlot::constructor)->block, (*cls->children)[0])
        << "the class's own name is the constructor";
    EXPECT_EQ(slot(ClassSlot::destructor)->block, (*cls->children)[1]);
    EXPECT_EQ(slot(ClassSlot::opadd)->block, (*cls->children)[2]);
    EXPECT_EQ(slot(ClassSlot::opsub)->type, Tag::VOID);
    EXPECT_EQ(index_of(cls, "P"), 0);
    EXPECT_EQ(index_of(cls, "~P"), 1);
    EXPECT_GE(index_of(cls, "m"), static_cast<int64_t>(kClassSlotCount)) << "a method is a member";
    // The store names the slot by position: the name search passes slots over.
    EXPECT_NE(listing(cls).find("PUSH 1; LOAD 0 B; SET -1"), std::string::npos) << listing(cls);
    EXPECT_NE(listing(cls).find("PUSH 1; LOAD 2 B; SET -1"), std::string::npos) << listing(cls);
    EXPECT_FALSE(logged("is not a variable name")) << "no slot name is taken for a constant";
}

TEST_F(FunctionsTest, FrameAndEndFunctions) {
    vrkblock* b = make_block(
        "onFrameTick() {##BLK0}; die() {##BLK1}; onFrame(x) {##BLK2}; die(y) {##BLK3};");
    for (int i = 0; i < 4; ++i) make_block("", b);
    compile_block(b);
    EXPECT_EQ(engine->frame_blocks, std::vector<vrkblock*>{(*b->children)[0]})
        << "seven letters decide, and a parameter keeps a function out";
    ASSERT_TRUE(b->die_blocks);
    EXPECT_EQ(*b->die_blocks, std::vector<vrkblock*>{(*b->children)[1]});
    EXPECT_TRUE(logged("onFrame callback should not have any arguments."));
    EXPECT_TRUE(logged("die function cannot take arguments."));
    EXPECT_TRUE(logged("die(y) {##BLK3}"));
}

TEST_F(FunctionsTest, ThreadSugarAndColonCallsAreRewrites) {
    const auto same = [this](const std::string& sugar, const std::string& plain) {
        EXPECT_EQ(listing(compiled(sugar)), listing(compiled(plain))) << sugar << " vs " << plain;
    };
    same("~f(1);", "thread(f,1);");
    same("~f();", "thread(f);");
    same("o = 1; ~o.f(2);", "o = 1; thread_class(o.f,o,2);");
    same("a = 1; a:f(2);", "a = 1; f(a,2);");
    same("a = 1; a:f();", "a = 1; f(a);");
    same("a = 1; a:f( );", "a = 1; f(a );");

    vrkblock* negated = compiled("a = 1; !a:f();");
    EXPECT_TRUE(listing(negated).ends_with("CALL " + at(negated, "f") + " B; NOT 0"))
        << listing(negated);

    // `a:f(b) {...}` declares f(a, b).
    vrkblock* decl = make_block("p:pair(q) {##BLK0};");
    vrkblock* body = make_block("return p + q;", decl);
    compile_block(decl);
    EXPECT_EQ(body->param_count, 2);
    EXPECT_EQ(index_of(body, "p"), 0);
    EXPECT_EQ(index_of(body, "q"), 1);
}

TEST_F(FunctionsTest, MembersOfACallResultAreLookedUpInIt) {
    vrkblock* b = compiled("f().g(1);");
    const std::string code = listing(b);
    // The call of f, then "g" looked up in its value, then the call of that.
    EXPECT_EQ(
        code,
        "LOAD 0 B; LOAD 4; CALL_PREP 0; CALL_PREP 0 -1; RESET 1; CALL 0 B; "
        "PUSH 1; LOAD 1 B; INDEX 0; LOAD 4; CALL_PREP 1; LOAD 2 B; ARG 1; CALL_PREP 0 -1; POP 1 3; "
        "SET 0 -1; RESET 1; CALL -1")
        << code;
    EXPECT_EQ(to_string(b->vars[1]), "g");

    EXPECT_EQ(
        run_script(
            "twice(v) {\n  return v * 2;\n}\nmk() {\n  r = 0;\n  r[\"twice\"] = twice;\n"
            "  r[\"name\"] = \"made\";\n  return r;\n}\nprint(mk().twice(21));\nprint(mk().name);\n"
            "o = mk();\nprint(o.twice(4));\nprint(mk()[\"name\"]);\n"),
        (Strings{"42", "made", "8", "made"}));
}

TEST_F(FunctionsTest, CallsAndControlFlowRunEndToEnd) {
    EXPECT_EQ(
        run_script(
            "fib(n) {\n  if (n < 2) {\n    return n;\n  }\n  return fib(n - 1) + fib(n - 2);\n}\n"
            "print(fib(15));\n"),
        Strings{"610"});
    EXPECT_EQ(
        run_script(
            "add(a, b = 5, c = a) {\n  return a + b * 100 + c * 10000;\n}\n"
            "print(add(1, 2, 3));\nprint(add(1, 2));\nprint(add(7));\nprint(add(1, 2, 3));\n"),
        (Strings{"30201", "10201", "70507", "30201"}))
        << "a default applies to every call that leaves the parameter out";
    EXPECT_EQ(
        run_script("stop() {\n  break;\n}\nfor (i = 0; i < 3; i++) {\n  stop();\n  print(i);\n}\n"),
        (Strings{"0", "1", "2"}))
        << "break at function level ends the function only";
    EXPECT_EQ(run_script("later(2);\nlater(x) {\n  print(x);\n}\n"), Strings{"2"})
        << "a call before the declaration";
    EXPECT_EQ(run_script("bump(#v) {\n  $v = $v + 1;\n}\nq = 5;\nbump(q);\nbump(#q);\nprint(q);\n"),
              Strings{"7"});
}

TEST_F(FunctionsTest, DefaultBuiltinCountsTheArgumentsOfTheRunningCall) {
    vrkblock* fn = make_block("");
    vrkvar* param = fn->declare_var("p");
    reset(param, Tag::VOID);
    param->flags |= kParameterFlag;
    vrkvar* position = cell_new(Tag::INT);
    vrkvar* fallback = cell_new(Tag::INT);
    set_int(fallback, 9);
    vrkvar result;
    std::vector<vrkvar*> args{position, param, fallback};
    const auto call = [&](int64_t k) {
        set_int(position, k);
        return lib::set_internal_param_var(engine.get(), fn, args, nullptr, result);
    };

    // Run from outside: the parameter's own cell says nothing was passed.
    fn->caller = fn;
    EXPECT_EQ(call(1), &result);
    EXPECT_EQ(to_int(&result), 0);
    EXPECT_EQ(to_int(param), 9);
    reset(param, Tag::VOID);
    param->flags &= static_cast<uint16_t>(~kParameterFlag);
    call(1);
    EXPECT_EQ(param->type, Tag::VOID) << "a cell that took an argument keeps it";

    // Called: the caller's binding holds one displaced cell per argument.
    vrkblock* caller = make_block("");
    vrkvar displaced;
    caller->params_bound = 1;
    caller->callee = fn;
    caller->params = {&displaced};
    fn->caller = caller;
    call(1);
    EXPECT_EQ(param->type, Tag::VOID) << "position 1 was passed";
    call(2);
    EXPECT_EQ(to_int(param), 9) << "position 2 was not";
    caller->params.clear();
    caller->params_bound = 0;

    std::vector<vrkvar*> two{position, param};
    lib::set_internal_param_var(engine.get(), fn, two, nullptr, result);
    EXPECT_TRUE(logged("INVALID BLK!"));
    cell_free(position);
    cell_free(fallback);
}

}  // namespace
}  // namespace vrk
