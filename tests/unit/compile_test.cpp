// The compiler: exact instruction sequences of representative tokens, the
// driver's text repair and token split, control statements, calls, and small
// programs compiled and run end to end.
#include <gtest/gtest.h>

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

class CompileTest : public test::EngineFixture {
protected:
    // The code of `b` as text: "OP arg ref" per instruction, with ref shown as
    // B (the block itself), F (registered functions), P (the parent), -1, or
    // omitted when 0.
    std::string listing(vrkblock* b) const {
        return dump_code(b, "; ", [&](uint64_t ref, std::string& out) {
            if (ref == 0 || ref == ref_of(b) || ref == kRefMinusOne || ref < 16) return false;
            if (ref == ref_of(engine->firstBlock))
                out = "F";
            else if (b->parent && ref == ref_of(b->parent))
                out = "P";
            else
                out = "?";
            return true;
        });
    }

    // Index of a named variable of `b` (fails the test when absent).
    uint32_t var_index(vrkblock* b, const std::string& name) {
        const int64_t i = b->find_var_index(name);
        EXPECT_GE(i, 0) << name;
        return static_cast<uint32_t>(i);
    }
    vrkvar* var(vrkblock* b, const std::string& name) { return b->find_var(name); }
};

using test::Strings;

TEST_F(CompileTest, ArithmeticIsRightAssociativeAndUsesHiddenResults) {
    vrkblock* b = compiled("a=10;b=3;c=2;x = a - b - c;");
    // Constants and variables: 10@0 a@1 3@2 b@3 2@4 c@5; then the hidden
    // results of the two subtractions and x.
    EXPECT_EQ(
        listing(b),
        "LOAD 0 B; SET 1 B; LOAD 2 B; SET 3 B; LOAD 4 B; SET 5 B; "
        "LOAD 1 B; SET 6 B; SUB_TMP 0; LOAD 3 B; SET 7 B; SUB_TMP 0; LOAD 5 B; SUB 0; SUB 0; SET 8 B");
    run(b, nullptr, 0, nullptr);
    EXPECT_EQ(to_int(var(b, "x")), 9) << "a-(b-c)";

    vrkblock* mixed = compiled("x = 2 * 3 + 4; y = 2 ^ 3; z = 7 / 2;");
    run(mixed, nullptr, 0, nullptr);
    EXPECT_EQ(to_int(var(mixed, "x")), 10) << "splits at + first";
    EXPECT_EQ(to_int(var(mixed, "y")), 8);
    EXPECT_EQ(to_int(var(mixed, "z")), 3);
}

TEST_F(CompileTest, LogicalOperatorsSplitBeforeTheAssignment) {
    vrkblock* b = compiled("a=1;b=0;x = a && b;");
    EXPECT_EQ(listing(b),
              "LOAD 0 B; SET 1 B; LOAD 2 B; SET 3 B; "
              "LOAD 1 B; SET 4 B; ARG 0 1; LOAD 3 B; CMP 7 B")
        << "(x = a) && b, and nothing more";

    vrkblock* c = compiled("x = 1 || 0;");
    EXPECT_EQ(listing(c), "LOAD 0 B; SET 1 B; ARG 0 1; LOAD 2 B; CMP 6 B");
    run(c, nullptr, 0, nullptr);
    EXPECT_EQ(to_int(var(c, "x")), 1);

    vrkblock* bits = compiled("a=6;b=3;x = a | b;");
    EXPECT_EQ(listing(bits).substr(listing(bits).find("LOAD 1 B")),
              "LOAD 1 B; SET 4 B; BIT_TMP 0; LOAD 3 B; BIT_OR 0; SET 5 B")
        << "bit operators compute into a hidden result";
    run(bits, nullptr, 0, nullptr);
    EXPECT_EQ(to_int(var(bits, "x")), 7);
    EXPECT_EQ(to_int(var(bits, "a")), 6) << "the left operand is left alone";
}

TEST_F(CompileTest, ComparisonsAndCompoundAssignments) {
    vrkblock* b = compiled("a=1;b=2;a == b;a != b;a >= b;a <= b;a < b;a > b;a === b;");
    const std::string all = listing(b);
    const std::string tests = all.substr(all.find("SET 3 B; ") + 9);
    EXPECT_EQ(tests,
              "LOAD 3 B; ARG 0 1; LOAD 1 B; CMP 0 B; "  // == evaluates the right side first
              "LOAD 1 B; ARG 0 1; LOAD 3 B; CMP 1 B; "
              "LOAD 1 B; ARG 0 1; LOAD 3 B; CMP 2 B; "
              "LOAD 1 B; ARG 0 1; LOAD 3 B; CMP 3 B; "
              "LOAD 1 B; ARG 0 1; LOAD 3 B; CMP 5 B; "
              "LOAD 1 B; ARG 0 1; LOAD 3 B; CMP 4 B; "
              "LOAD 3 B; ARG 0 1; LOAD 1 B; CMP -1 B");

    vrkblock* c = compiled("i=1;i += 4;i -= 1;i *= 6;i /= 4;i ^= 2;i++;i--;i--;");
    const std::string code = listing(c);
    EXPECT_EQ(code.substr(0, code.find("; LOAD 1 B; SUB_TMP")),
              "LOAD 0 B; SET 1 B; LOAD 1 B; ADD_TMP 0; LOAD 2 B; ADD 0")
        << "a compound assignment works in place, without a hidden result";
    EXPECT_TRUE(code.ends_with("LOAD 1 B; INC 0 B; LOAD 1 B; DEC 0 B; LOAD 1 B; DEC 0 B")) << code;
    run(c, nullptr, 0, nullptr);
    EXPECT_EQ(to_int(var(c, "i")), 35) << "((1+4-1)*6/4)^2 = 36, +1 -1 -1";
}

TEST_F(CompileTest, LiteralsConstantsAndUnknownNames) {
    vrkblock* b = compiled("x = 5; y = 5; z = -5; s = \"a\\nb\"; t = \"q\\\"\"; f = 1.5; w = - 5;");
    EXPECT_TRUE(listing(b).starts_with("LOAD 0 B; SET 1 B; LOAD 0 B; SET 2 B"))
        << "one constant cell per literal text and block";
    run(b, nullptr, 0, nullptr);
    EXPECT_EQ(to_int(var(b, "z")), -5);
    EXPECT_EQ(to_string(var(b, "s")), "a\nb");
    EXPECT_EQ(to_string(var(b, "t")), "q\\\"") << "no escape but \\n: the backslash stays";
    EXPECT_DOUBLE_EQ(to_float(var(b, "f")), 1.5);
    EXPECT_TRUE(logged("- 5 is not a variable name nor a constant."))
        << "a blank stays in the literal text";
    EXPECT_EQ(to_string(var(b, "w")), "- 5");

    messages.clear();
    vrkblock* u = compiled("q = nothing_here; k = true; m = none; r = undefined;");
    EXPECT_TRUE(logged("UNKNOWN_VARIABLE"));
    EXPECT_TRUE(logged("nothing_here is not a variable name nor a constant."));
    EXPECT_NE(listing(u).find("LOAD 1; SET"), std::string::npos);
    EXPECT_NE(listing(u).find("LOAD 7; SET"), std::string::npos);
    run(u, nullptr, 0, nullptr);
    EXPECT_EQ(to_string(var(u, "q")), "nothing_here")
        << "an unknown name evaluates to its own text";
    EXPECT_EQ(to_int(var(u, "k")), 1);
}

TEST_F(CompileTest, FormattedStringsAndNegation) {
    vrkblock* b = compiled(
        "n = 4; s = f\"n={{n+1}}!\"; p = f\"plain\"; bad = f\"x{{n\"; t = !n; u = !n+1;");
    run(b, nullptr, 0, nullptr);
    EXPECT_EQ(to_string(var(b, "s")), "n=5!");
    EXPECT_EQ(to_string(var(b, "p")), "plain");
    EXPECT_TRUE(logged("cannot find closing }} in formatted string"));
    EXPECT_EQ(to_string(var(b, "bad")), "x{{n") << "taken as a constant";
    EXPECT_EQ(to_int(var(b, "t")), 0);
    EXPECT_EQ(to_int(var(b, "u")), 1) << "the ! applies to n alone: (!n)+1";
}

TEST_F(CompileTest, IfElseChainPatchesEveryBranchJump) {
    vrkblock* b = make_block("c=1;if (c) {##BLK0} else if (c) {##BLK1} else {##BLK2};");
    make_block("print(1);", b);
    make_block("print(2);", b);
    make_block("print(3);", b);
    compile_block(b);
    // 1@0 c@1; the `if`: c, JMP_FALSE, body, RUN_CHILD, JMP; then each branch.
    EXPECT_EQ(listing(b),
              "LOAD 0 B; SET 1 B; "
              "LOAD 1 B; JMP_FALSE 2 B; LOAD 2 B; RUN_CHILD 0 B; JMP 8 B; "
              "LOAD 1 B; JMP_FALSE 2 B; LOAD 3 B; RUN_CHILD 1 B; JMP 3 B; "
              "LOAD 4 B; RUN_CHILD 2 B; JMP 0 B");
    for (vrkblock* child : *b->children) EXPECT_TRUE(child->compiled);
    run(b, nullptr, 0, nullptr);
    EXPECT_EQ(printed, Strings{"1"});

    printed.clear();
    vrkblock* d = make_block("c=0;if (c) {##BLK0} else {##BLK1};");
    make_block("print(1);", d);
    make_block("print(2);", d);
    compile_block(d);
    run(d, nullptr, 0, nullptr);
    EXPECT_EQ(printed, Strings{"2"});
}

TEST_F(CompileTest, ElseTokensThatFollowJoinTheIf) {
    // The `else` is a token of its own (behind a line marker).
    vrkblock* b = make_block("c=0;if (c) {##BLK0};\n##LN=3\n else {##BLK1};");
    make_block("print(1);", b);
    make_block("print(2);", b);
    compile_block(b);
    run(b, nullptr, 0, nullptr);
    EXPECT_EQ(printed, Strings{"2"});
}

TEST_F(CompileTest, WhileAndForLoops) {
    vrkblock* b = make_block("i=0;while (i < 3) {##BLK0};");
    make_block("print(i);i++;", b);
    compile_block(b);
    // 0@0 i@1 3@2; the body's function cell (its LOAD taken back) is @3.
    EXPECT_EQ(
        listing(b),
        "LOAD 0 B; SET 1 B; "
        "LOAD 1 B; ARG 0 1; LOAD 2 B; CMP 5 B; JMP_FALSE_LOOP 2 B; RUN_CHILD 0 B; JMP -7 B; NOP 0 B");
    EXPECT_TRUE((*b->children)[0]->is_loop_body);
    run(b, nullptr, 0, nullptr);
    EXPECT_EQ(printed, (Strings{"0", "1", "2"}));

    printed.clear();
    vrkblock* f = make_block("s=0;for (k=0; k<5; k++) {##BLK0};print(s);");
    make_block("if (k == 3) {##BLK0};s += k;", f);
    make_block("continue;", (*f->children)[0]);
    compile_block(f);
    run(f, nullptr, 0, nullptr);
    EXPECT_EQ(printed, Strings{"7"}) << "0+1+2+4, 3 skipped";

    printed.clear();
    vrkblock* w = make_block("n=0;while (1) {##BLK0};print(n);");
    make_block("n++;if (n > 4) {##BLK0};", w);
    make_block("break;", (*w->children)[0]);
    compile_block(w);
    run(w, nullptr, 0, nullptr);
    EXPECT_EQ(printed, Strings{"5"});
}

TEST_F(CompileTest, LoopWithoutChildBodyIsRejected) {
    vrkblock* b = compiled("x=1;while (x) x = 0;");
    EXPECT_TRUE(logged("internal error"));
    EXPECT_TRUE(b->code.empty()) << "the block's code is discarded";
    EXPECT_TRUE(b->vars.empty());
    EXPECT_EQ(b->find_var("x"), nullptr);

    messages.clear();
    compiled("for (i=0; i<2) {##BLK0};");
    EXPECT_TRUE(logged("syntax error in for loop"));
}

TEST_F(CompileTest, CallsBindArgumentsLastFirst) {
    vrkblock* b = compiled("x = 7; print(x);");
    const uint32_t p = static_cast<uint32_t>(engine->firstBlock->find_var_index("print"));
    EXPECT_EQ(listing(b),
              "LOAD 0 B; SET 1 B; LOAD " + std::to_string(p) +
                  " F; LOAD 4; CALL_PREP 1; LOAD 1 B; ARG -1; CALL_PREP 0 -1; POP 1 3; SET 0 -1; "
                  "RESET 1; CALL " +
                  std::to_string(p) + " F")
        << "print takes plain arguments: ARG -1";

    vrkblock* f = compiled("f(1, 2);");
    // f is not known: a FUNCTION cell is made for it (index 0), to be filled
    // by a later declaration.
    EXPECT_EQ(f->vars[0]->type, Tag::FUNCTION);
    EXPECT_EQ(listing(f),
              "LOAD 0 B; LOAD 4; CALL_PREP 2; LOAD 1 B; ARG 1 1; LOAD 2 B; ARG 2; CALL_PREP 0 -1; "
              "POP 1 3; SET 1 -1; POP 1 1; SET 0 -1; RESET 1; CALL 0 B");

    vrkblock* g = compiled("g();");
    EXPECT_EQ(listing(g), "LOAD 0 B; LOAD 4; CALL_PREP 0; CALL_PREP 0 -1; RESET 1; CALL 0 B");

    run(b, nullptr, 0, nullptr);
    EXPECT_EQ(printed, Strings{"7"});
}

TEST_F(CompileTest, CommandFormAndParentheses) {
    vrkblock* b = compiled("x = (1 + 2) * 3; print x; print x 5;");
    run(b, nullptr, 0, nullptr);
    EXPECT_EQ(to_int(var(b, "x")), 9);
    EXPECT_EQ(printed, (Strings{"9", "9", "5"})) << "print x 5 is print(x,5)";
}

TEST_F(CompileTest, ReturnEmitsTheValueAndTheReturnLoad) {
    vrkblock* b = compiled("x = 3;return x;");
    EXPECT_EQ(listing(b), "LOAD 0 B; SET 1 B; LOAD 1 B; LOAD -1");
    vrkblock* c = compiled("return;");
    EXPECT_EQ(listing(c), "LOAD 0 B; LOAD -1");
    EXPECT_EQ(to_int(c->vars[0]), 0);
    vrkblock* d = compiled("break;continue;");
    EXPECT_EQ(listing(d), "BREAK 0 B; BREAK 1 B");
}

TEST_F(CompileTest, DriverRepairsTextAndSplitsTokens) {
    // A body followed by a statement gets its ";"; one followed by else does
    // not, even behind a marker line.
    vrkblock* b = make_block("if (1) {##BLK0} x = 1;if (0) {##BLK1}\n##LN=9\nelse {##BLK2}");
    make_block("", b);
    make_block("", b);
    make_block("", b);
    compile_block(b);
    EXPECT_EQ(*b->code_text, "if (1) {##BLK0};x = 1;if (0) {##BLK1}\n##LN=9\nelse {##BLK2};");
    EXPECT_NE(b->find_var("x"), nullptr);

    // A block's last statement without ";" is lost when it has others.
    vrkblock* lost = compiled("a=1;b=2");
    EXPECT_NE(lost->find_var("a"), nullptr);
    EXPECT_EQ(lost->find_var("b"), nullptr);
    vrkblock* kept = compiled("a=1");
    EXPECT_NE(kept->find_var("a"), nullptr);

    // A token with one newline cannot hold a marker pair.
    messages.clear();
    vrkblock* broken = compiled("x = 1\n;");
    EXPECT_TRUE(logged("internal compiler error in token x = 1\n!"));
    EXPECT_TRUE(broken->code.empty());

    // Markers inside a statement become tokens of their own: the error names
    // the line of the marker.
    messages.clear();
    compiled("\n##LN=41\nq = (1,\n##LN=42\nunknown_thing);");
    EXPECT_TRUE(logged("Line Number: 42"));
}

TEST_F(CompileTest, IndentedBodiesBecomeChildBlocks) {
    vrkblock* b = compiled("c = 0;if (c) print(1);\n##LN=2\n;print(2);");
    ASSERT_TRUE(b->children);
    ASSERT_EQ(b->children->size(), 1u);
    EXPECT_EQ(*(*b->children)[0]->full_source, " print(1);");
    run(b, nullptr, 0, nullptr);
    EXPECT_EQ(printed, Strings{"2"});

    printed.clear();
    vrkblock* tail = compiled("c = 1;if (c) print(7);");
    EXPECT_FALSE(tail->children && !tail->children->empty())
        << "a head at the very end stays inline";
    run(tail, nullptr, 0, nullptr);
    EXPECT_EQ(printed, Strings{"7"});
}

TEST_F(CompileTest, NamesResolveOutwardAndThisPropagates) {
    vrkblock* root = make_block("a = 1;if (a) {##BLK0};");
    vrkblock* body = make_block("b = a + 1;t = this;", root);
    compile_block(root);
    EXPECT_TRUE(listing(body).starts_with("LOAD 1 P")) << "a is the parent's variable";
    ASSERT_GE(body->this_index, 0);
    EXPECT_TRUE(body->this_var()->flags & flag::NO_COUNT);
    EXPECT_GE(root->this_index, 0) << "`this` is made known in the enclosing block";

    int64_t index = -1;
    vrkblock* owner = nullptr;
    EXPECT_NE(find_variable(body, "print", &index, &owner), nullptr);
    EXPECT_EQ(owner, engine->firstBlock);
    engine->globalBlock->declare_var("g");
    EXPECT_NE(find_variable(body, "g", &index, &owner), nullptr);
    EXPECT_EQ(owner, engine->globalBlock);
    EXPECT_EQ(find_variable(body, "", &index, &owner), nullptr);
    EXPECT_EQ(index, -1);
}

TEST_F(CompileTest, SubscriptsAndMemberPaths) {
    vrkblock* b = compiled("a = 1;a[0] = 5;x = a[0];y = a.k;");
    const std::string code = listing(b);
    EXPECT_NE(code.find("PUSH 0; LOAD 1 B; PUSH 1; LOAD 3 B; INDEX -1; SET -2; RESET 0"),
              std::string::npos)
        << code;
    EXPECT_NE(code.find("LOAD 1 B; PUSH 1; LOAD 3 B; INDEX 0; RESET 0; SET"), std::string::npos)
        << code;
    // a.k is a["k"]: a constant "k" as the key.
    const uint32_t k = static_cast<uint32_t>(b->vars.size() - 2);
    EXPECT_EQ(to_string(b->vars[k]), "k");
}

TEST_F(CompileTest, DeclarationsAndStores) {
    vrkblock* b = compiled("x = 1;x = null;buf = staticbuffer(16);auto s = 2;global g = 3;var q;");
    const std::string code = listing(b);
    EXPECT_TRUE(code.starts_with("LOAD 0 B; SET 1 B; LOAD -2; SET 1 B; ")) << code;
    vrkvar* buf = var(b, "buf");
    ASSERT_NE(buf, nullptr);
    EXPECT_EQ(buf->type, Tag::DATA);
    EXPECT_TRUE(buf->flags & flag::STATIC_BUFFER);
    ASSERT_NE(as_data(buf), nullptr);
    EXPECT_EQ(as_data(buf)->size(), 16u);
    EXPECT_TRUE(var(b, "s")->attrs & attr::OWNS_RESULT);
    ASSERT_TRUE(b->scoped);
    EXPECT_EQ(b->scoped->front(), var_index(b, "s"));
    EXPECT_EQ(b->find_var("g"), nullptr) << "a global lives in the engine";
    run(b, nullptr, 0, nullptr);
    ASSERT_NE(engine->globalBlock->find_var("g"), nullptr);
    EXPECT_EQ(to_int(engine->globalBlock->find_var("g")), 3);
    ASSERT_NE(var(b, "q"), nullptr) << "`var q` declares q";

    messages.clear();
    vrkblock* t = compiled("x = 1;int x = 2.5;");
    EXPECT_TRUE(logged(
        "warning: new variable (x) declared but this name already exists. creating new var..."));
    EXPECT_EQ(t->vars.size(), 4u) << "the old cell stays";
    EXPECT_TRUE(var(t, "x")->flags & flag::FIXED_TYPE);
    run(t, nullptr, 0, nullptr);
    EXPECT_EQ(var(t, "x")->type, Tag::INT);
    EXPECT_EQ(to_int(var(t, "x")), 2);
}

TEST_F(CompileTest, AnonymousTextBlockCompilesAtOnceAndKeepsConstants) {
    vrkblock* b = compiled("a = 5;{ b = 5; };c = 5;");
    EXPECT_EQ(listing(b), "LOAD 0 B; SET 1 B; RUN_CHILD 0 B; LOAD 0 B; SET 2 B")
        << "the constant 5 is still cached after the nested compile";
    ASSERT_TRUE(b->children && b->children->size() == 1);
    vrkblock* child = (*b->children)[0];
    EXPECT_TRUE(child->compiled);
    EXPECT_NE(child->find_var("b"), nullptr);
    EXPECT_EQ(child->compile_state_ptr, nullptr);
}

TEST_F(CompileTest, ElseChainCompiledTwiceWithInlineAndFollowingBranches) {
    vrkblock* b = make_block("c=0;if (c) {##BLK0} else {##BLK1};\n##LN=2\nelse {##BLK2};");
    for (int i = 0; i < 3; ++i) make_block("", b);
    compile_block(b);
    std::vector<int64_t> children;
    for (const vrkinstr& ins : b->code)
        if (ins.opcode() == Op::RUN_CHILD) children.push_back(ins.arg);
    EXPECT_EQ(children, (std::vector<int64_t>{0, 2, 1, 0, 2}));
}

TEST_F(CompileTest, UnbracedElseJoinsItsIf) {
    for (const auto& [value, expected] : {std::pair{"0", "2"}, std::pair{"1", "1"}}) {
        printed.clear();
        vrkblock* b = compiled(std::string("c=") + value + ";if (c) print(1);else print(2);x=1;");
        ASSERT_TRUE(b->children);
        EXPECT_EQ(b->children->size(), 2u);
        run(b, nullptr, 0, nullptr);
        EXPECT_EQ(printed, Strings{expected});
    }
}

TEST_F(CompileTest, CollectionLoopRewritesIntoCountedLoop) {
    const uint32_t before = compile_context().iterative_loop_counter;
    vrkblock* b = make_block("coll=1;for(#x, i::coll) {##BLK0};for(y::coll) {##BLK1};");
    make_block("print(x);", b);
    make_block("print(y);", b);
    compile_block(b);
    vrkblock* first = (*b->children)[0];
    ASSERT_NE(first->full_source, nullptr);
    EXPECT_EQ(*first->full_source, "x=#coll[ i];") << "by reference, with the user's index";
    EXPECT_NE(first->code_text->find("x=#coll[ i];"), std::string::npos);
    EXPECT_TRUE(first->is_loop_body);
    EXPECT_NE(b->find_var("i"), nullptr) << "the index is counted in the loop's block";
    const std::string generated = "ITERATIVE_LOOPER_" + std::to_string(before + 1) + "I";
    EXPECT_EQ(*(*b->children)[1]->full_source, "y=coll[" + generated + "];");
    EXPECT_NE(b->find_var(generated), nullptr);
    EXPECT_EQ(compile_context().iterative_loop_counter, before + 2);
}

TEST_F(CompileTest, BadBlockReferencesAreReported) {
    vrkblock* b = compiled("x = ##BLK4;y = ##BLKq;");
    EXPECT_TRUE(logged("blocknum compilation error!"));
    EXPECT_TRUE(logged("compile error stoi! ##BLKq"));
    EXPECT_EQ(listing(b), "SET 0 B; SET 1 B") << "nothing is emitted for them";
}

TEST_F(CompileTest, DebugTablesAreKeyedByToken) {
    context().debug_info = true;
    vrkblock* b = compiled("\n##PUSHN=demo.vrs\n;\n##LN=5\nx = 1;\n##LN=6\ny = x + 2;");
    context().debug_info = false;
    ASSERT_TRUE(b->line_table);
    std::vector<vrkline_entry> entries;
    for (const auto& [token, entry] : *b->line_table) entries.push_back(entry);
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].line, 5u);
    EXPECT_EQ(entries[0].text, "x = 1");
    EXPECT_EQ(entries[0].first, 0u);
    EXPECT_EQ(entries[0].last, 1u);
    EXPECT_EQ(entries[1].line, 6u);
    EXPECT_EQ(entries[1].first, 2u);
    EXPECT_EQ(entries[1].last, b->code.size() - 1);
    ASSERT_TRUE(b->file_table);
    ASSERT_FALSE(b->file_table->empty());
    EXPECT_EQ(b->file_table->front().name, "demo.vrs");
}

TEST_F(CompileTest, ScriptsRunEndToEnd) {
    EXPECT_EQ(run_script("x = 2;\ny = x * 5 + 1;\nprint(y);\n"), Strings{"11"});
    EXPECT_EQ(
        run_script("total = 0;\nfor (i = 1; i <= 4; i++) {\n  total += i;\n}\nprint(total);\n"),
        Strings{"10"});
    EXPECT_EQ(
        run_script(
            "n = 3;\nif (n > 5) {\n  print(\"big\");\n}\nelse if (n > 2) {\n  print(\"mid\");\n}\n"
            "else {\n  print(\"small\");\n}\nprint(\"end\");\n"),
        (Strings{"mid", "end"}));
    EXPECT_EQ(run_script("i = 0;\nwhile (i < 3) {\n  print(f\"i={{i}}\");\n  i++;\n}\n"),
              (Strings{"i=0", "i=1", "i=2"}));
    EXPECT_EQ(
        run_script(
            "a = 1;\nif (a == 1)\n    print(\"one\");\nelse\n    print(\"other\");\nprint(\"done\");\n"),
        (Strings{"one", "done"}));
}

}  // namespace
}  // namespace vrk
