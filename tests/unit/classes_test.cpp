// Classes, structs, member paths and list literals in the compiler: what a
// declaration makes of its cell and body, how a dotted path becomes subscripts
// with and without type knowledge, and the code that literals and member
// subscripts compile to. What scripts see of all this is in
// tests/scripts/classes and tests/scripts/lists.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "base/context.h"
#include "base/log.h"
#include "base/script_lock.h"
#include "frontend/compile.h"
#include "frontend/compile_context.h"
#include "frontend/compile_state.h"
#include "frontend/compiler.h"
#include "frontend/parser.h"
#include "host/engine.h"
#include "support/engine_fixture.h"
#include "values/cell.h"
#include "values/pools.h"
#include "vm/block.h"
#include "vm/dump_code.h"
#include "vm/run.h"

namespace vrk {
namespace {

class ClassesTest : public test::EngineFixture {
protected:
    // The opcodes and args of the instructions of `b`, with " B" for a ref to
    // the block itself.
    static std::string listing(vrkblock* b) {
        return dump_code(b, "; ", [b](uint64_t ref, std::string&) { return ref != ref_of(b); });
    }

    // `token` rewritten as a member path in `b`.
    std::string rewritten(vrkblock* b, std::string token) {
        compile_state state;
        b->compile_state_ptr = &state;
        rewrite_member_path(b, token);
        b->compile_state_ptr = nullptr;
        return token;
    }

    static std::string index_text(vrkblock* b, const std::string& name) {
        return std::to_string(b->find_var_index(name));
    }
};

TEST_F(ClassesTest, ClassDeclarationMakesAConstantClassCellAndRunsTheBody) {
    vrkblock* root = parse(
        "class A = {\n    x = 5;\n    y = x + 1;\n};\nclass A = {\n    x = 2;\n};\n"
        "class B {\n    q = 1;\n};\n");
    vrkvar* a = nullptr;
    for (vrkvar* v : root->vars)
        if (v->type == Tag::CLASS && !a) a = v;
    ASSERT_NE(a, nullptr);
    EXPECT_TRUE(a->constant);
    EXPECT_TRUE(a->attrs & attr::NO_DESTRUCTOR);
    vrkblock* cls = a->block;
    EXPECT_EQ(cls->kind & (kind::CLASS | kind::SINGLETON), kind::CLASS);
    EXPECT_TRUE(cls->is_function) << "a class body is a function body";
    ASSERT_TRUE(cls->class_data && cls->class_data->name);
    EXPECT_EQ(*cls->class_data->name, "A");
    EXPECT_EQ(cls->class_data->refs, 1);
    EXPECT_EQ(std::count(cls->class_data->cells.begin(), cls->class_data->cells.end(), a), 1)
        << "the declaring cell is listed once, or its release would leave a dangling entry";

    // Nine reserved VOID slots in front of the members, and the body has run.
    for (uint32_t i = 0; i < kClassSlotCount; ++i) EXPECT_EQ(cls->vars[i]->type, Tag::VOID) << i;
    EXPECT_GE(cls->find_var_index("x"), 9);
    EXPECT_EQ(to_int(cls->find_var("y")), 6) << "static initialisers run at compile time";
    EXPECT_EQ(listing(root).find("SET " + index_text(root, "A")), std::string::npos)
        << "nothing is stored";

    // The second declaration warns and makes a new variable; without "=" the
    // name is dropped.
    EXPECT_TRUE(logged(
        "warning: new variable (A) declared but this name already exists. creating new var..."));
    EXPECT_NE(root->find_var("A"), a);
    EXPECT_EQ(root->find_var("B"), nullptr);

    // Reserved slots are members by name, never variables.
    int64_t index = -1;
    cls->get_names()["opadd"] = 2;
    EXPECT_EQ(find_variable(cls, "opadd", &index, nullptr), nullptr);
    EXPECT_TRUE(find_member(root, cls, "opadd", index));
    EXPECT_EQ(index, 2);
    EXPECT_FALSE(find_member(root, cls, "missing", index));
}

TEST_F(ClassesTest, MemberPathsWithAndWithoutTypeKnowledge) {
    vrkblock* root = parse(
        "class A = {\n    x = 1;\n    y = 2;\n};\nstruct P = {\n    a = 0;\n    int b = 0;\n};\n");
    vrkblock* cls = root->find_var("A")->block;
    vrkblock* b = make_block("", root);
    const std::string x = index_text(cls, "x");
    const std::string y = index_text(cls, "y");

    EXPECT_EQ(rewritten(b, "u.b.$k"), "u[\"b\"][k]") << "nothing known: keys at run time";
    EXPECT_EQ(rewritten(b, "A.y"), "A[" + y + "]");
    EXPECT_EQ(rewritten(b, "A.x[2].z"), "A[" + x + "][2][\"z\"]")
        << "one level of members, then keys";

    messages.clear();
    EXPECT_EQ(rewritten(b, "A.nope"), "A[\"nope\"]");
    EXPECT_TRUE(logged("error, variable A does not have class member nope!"));
    messages.clear();
    cls->get_names()["oparray"] = 6;
    EXPECT_EQ(rewritten(b, "A.nope"), "A[\"nope\"]");
    EXPECT_FALSE(logged("class error")) << "oparray takes unknown names";

    // A struct-typed variable: element positions.
    vrkvar* p = b->declare_var("p");
    p->flags |= flag::CLASS_HINT;
    p->block = root->find_var("P")->block;
    EXPECT_EQ(rewritten(b, "p.b"), "p[1]");
    EXPECT_EQ(rewritten(b, "p.c"), "p[\"c\"]");

    // An array of a class: the first piece indexes, the next meets the class.
    vrkvar* list = b->declare_var("pts");
    list->attrs |= attr::CLASS_HINT2;
    list->flags |= flag::KEEP_HINT;
    list->block = cls;
    EXPECT_EQ(rewritten(b, "pts.$i.y"), "pts[i][" + y + "]");
    EXPECT_TRUE(logged("skipping array index."));

    compile_state state;
    b->compile_state_ptr = &state;
    EXPECT_EQ(resolve_type(b, "A.y"), cls->find_var("y"));
    EXPECT_EQ(resolve_type(b, "P.b"), root->find_var("P")->block->find_var("b"));
    EXPECT_EQ(resolve_type(b, "A.nope"), nullptr);
    EXPECT_EQ(resolve_type(b, "Nothing"), nullptr);
    b->compile_state_ptr = nullptr;
    EXPECT_TRUE(logged("cannot resolve type: A.nope"));
    EXPECT_TRUE(logged("cannot get type of: Nothing"));
}

TEST_F(ClassesTest, MethodsReachMembersByPositionThroughThis) {
    vrkblock* root = parse("class A = {\n    x = 1;\n    y = 2;\n};\nr = A[nope];\n");
    EXPECT_TRUE(logged("cannot find member nope in class!"));
    EXPECT_NE(listing(root).find("INDEX 0"), std::string::npos)
        << "an unknown member is a key at run time";

    // `this.y` and the bare member `x`, which a parameter of that name does
    // not shadow; no member is looked up by name.
    vrkblock* cls = root->find_var("A")->block;
    vrkblock* method = make_block("this.y = 5;z = x;", cls);
    method->is_function = 1;
    method->declare_var("x");
    messages.clear();
    compile_block(method);
    EXPECT_TRUE(logged("added missing 'this' for class member x"));
    const std::string code = listing(method);
    EXPECT_NE(code.find("CLASS_ACCESS " + index_text(cls, "y") + "; SET -2"), std::string::npos)
        << code;
    EXPECT_NE(code.find("CLASS_ACCESS " + index_text(cls, "x") + "; RESET 0; SET"),
              std::string::npos)
        << code;
    EXPECT_EQ(code.find("INDEX"), std::string::npos) << code;

    // A nested block of the method finds the class through its own `this`.
    vrkblock* inner = make_block("w = this.x;", method);
    compile_block(inner);
    EXPECT_NE(listing(inner).find("CLASS_ACCESS " + index_text(cls, "x")), std::string::npos)
        << listing(inner);
    EXPECT_FALSE(needs_this(cls, "x")) << "the class body itself needs no `this`";
    EXPECT_TRUE(needs_this(method, "x.k[1]"));
}

TEST_F(ClassesTest, ListLiteralCode) {
    vrkblock* root = make_block("a = [];b = [k = 1];");
    compile_block(root);
    // Its variable, the clear of the JSON on top, the elements, the variable and
    // the hand-over of its list.
    EXPECT_TRUE(listing(root).starts_with(
        "LOAD 0 B; LOAD 6; LOAD 0 B; LOAD 8; SET 1 B; LOAD 2 B; LOAD 6; "))
        << listing(root);
    EXPECT_EQ(root->vars[0]->type, Tag::JSON);
    EXPECT_EQ(root->find_var_index("LAMBDADATALIST0_I"), 2)
        << "the newest literal holds the shared name";

    // A missing "]" is reported; the literal is still the empty list.
    messages.clear();
    vrkblock* bad = make_block("");
    compile_state state;
    bad->compile_state_ptr = &state;
    token_list_literal(bad, "[1", std::string::npos);
    bad->compile_state_ptr = nullptr;
    EXPECT_TRUE(logged("Syntax error: syntax error"));
    EXPECT_EQ(listing(bad), "LOAD 0 B; LOAD 6; LOAD 0 B; LOAD 8");
}

TEST_F(ClassesTest, GlobalDeclarationsOfTypesAndSingletons) {
    vrkblock* root = parse("global int n = 2.5;\nglobal singleton S = {\n    v = 3;\n};\n");
    EXPECT_FALSE(logged("creating new var")) << "a new global is the declared variable";
    EXPECT_EQ(root->find_var("n"), nullptr);
    vrkvar* n = engine->globalBlock->find_var("n");
    ASSERT_NE(n, nullptr);
    EXPECT_TRUE(n->flags & flag::FIXED_TYPE);
    vrkvar* s = engine->globalBlock->find_var("S");
    ASSERT_NE(s, nullptr);
    ASSERT_EQ(s->type, Tag::CLASS);
    EXPECT_TRUE(s->block->kind & kind::SINGLETON);
    run(root, nullptr, 0, nullptr);
    EXPECT_EQ(to_int(n), 2);

    // The same singleton declared again is the one there is.
    vrkblock* again = parse("global singleton S = {\n    v = 4;\n};\n");
    EXPECT_TRUE(logged("not overriding already declared singleton S"));
    EXPECT_EQ(again->find_var("S"), nullptr);
    EXPECT_EQ(to_int(s->block->find_var("v")), 3);
}

}  // namespace
}  // namespace vrk
