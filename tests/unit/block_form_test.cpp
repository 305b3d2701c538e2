// Tests of the block record: golden bytes, a hand-built tree that goes out and
// comes back (as a copy next to its source), the form without code, links to
// the engine's tables, program construction, and truncated or corrupted
// records of every length.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "frontend/emit.h"
#include "frontend/parser.h"
#include "host/engine.h"
#include "saved/block_form.h"
#include "saved/program.h"
#include "support/program.h"
#include "support/saved_support.h"
#include "values/cache.h"
#include "vm/block.h"
#include "vm/globals.h"

namespace vrk {
namespace {

using Bytes = std::vector<uint8_t>;
using test::LogRecorder;
using test::program;
using test::ref_of;

Bytes image(vrkblock* b, bool withCode = true) {
    Bytes out;
    ScriptCacheWriter w(out);
    toCache(b, w, withCode);
    return out;
}

// Reads `bytes` into a new block below `parent` (not one of its children);
// the caller deletes it.
vrkblock* load(const Bytes& bytes, vrkblock* parent, vrkscript* engine = nullptr) {
    vrkblock* b = block_new(engine);
    b->parent = parent;
    ScriptCacheReader r(bytes);
    fromCache(b, r);
    return b;
}

vrkblock* child(vrkblock* b, std::size_t i) { return b->children ? b->children->at(i) : nullptr; }

class BlockFormTest : public test::VmTest {};

TEST_F(BlockFormTest, GoldenBytesOfASmallBlock) {
    program g = w.block();
    g.block()->compiled = 1;
    g.load(g.constant(7));
    const Bytes expected{
        0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // compiled .. is_loop_body
        0x00, 0x00, 0xFB, 0xFA,                          // param_count, marker
        0x00, 0xFB, 0xFA,                                // no children
        0x00, 0xFB, 0xFA,                                // no die blocks
        0x01, 0x01,                                      // one instruction:
        0x1F, 0x00, 0x01, 0x00, 0xFF, 0xFF, 0xFF, 0xFF,  //   LOAD 0 of the block itself
        0xFB, 0xFA,                                      //
        0x04, 0xFF, 0xFF, 0xFF, 0xFF,                    // this_index -1
        0x04, 0xFF, 0xFF, 0xFF, 0xFF,                    // self_index -1
        0x01, 0x01,                                      // one variable:
        0x00, 0x02,                                      //   a constant
        0xD2, 0x04, 0x00, 0x00, 0x01, 0x07,              //   INT 7
        0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,        //   trailer
        0xFB, 0xFA,                                      //
        0xFB, 0xFA,                                      // no extern name
        0x00, 0xFB, 0xFA,                                // no name table
        0x00, 0x00,                                      // no scoped list, no captures
    };
    EXPECT_EQ(image(g.block()), expected);

    vrkblock* back = load(expected, nullptr);
    ASSERT_EQ(back->code.size(), 1u);
    EXPECT_EQ(back->code[0].ref_block(), back);
    EXPECT_EQ(to_int(back->vars[0]), 7);
    EXPECT_EQ(back->vars[0]->constant, 1);
    EXPECT_EQ(back->compiled, 1);
    block_delete(back);
}

// A tree with every kind of content: outer P > R > {F, C > K, S, D}.
TEST_F(BlockFormTest, AClassValueHoldsOnlyAClass) {
    // A damaged record could make a class value hold its own block, which
    // releasing the value would destroy: such a link is refused.
    program g = w.block();
    vrkvar* cls = g.block()->declare_var("c");
    reset(cls, Tag::CLASS);
    cls->block = g.block();
    cls->constant = 1;
    cls->flags = flag::MOVABLE;
    cls->attrs = attr::OWNS_RESULT;
    const Bytes bytes = image(g.block());
    cls->block = nullptr;

    LogRecorder log;
    vrkblock* back = load(bytes, nullptr);
    EXPECT_TRUE(log.saw("error constructing program..."));
    EXPECT_EQ(back->vars[0]->type, Tag::CLASS);
    EXPECT_EQ(back->vars[0]->block, nullptr);
    block_delete(back);

    // A class blueprint among the children is linked.
    program blueprint = w.child(g);
    blueprint.block()->kind = kind::CLASS;
    cls->block = blueprint.block();
    vrkblock* linked = load(image(g.block()), nullptr);
    EXPECT_EQ(linked->vars[0]->block, child(linked, 0));
    block_delete(linked);
    cls->block = nullptr;
}

class TreeTest : public BlockFormTest {
protected:
    void SetUp() override {
        BlockFormTest::SetUp();
        p = w.block().block();
        program r = w.child(program(p));
        R = r.block();
        program f = w.child(r);
        F = f.block();
        program c = w.child(r);
        C = c.block();
        program k = w.child(c);
        K = k.block();
        S = w.child(r).block();
        D = w.child(r).block();

        R->compiled = 1;
        R->mode = 3;
        vrkvar* x = R->declare_var("x");  // 0: a plain variable
        set_int(x, 5);
        x->flags = flag::FIXED_TYPE;
        r.constant(42);                    // 1: a hidden constant
        r.constant_string("hi");           // 2
        vrkvar* fn = R->declare_var("f");  // 3: a declared function
        reset(fn, Tag::FUNCTION);
        fn->block = F;
        fn->aux = 1;
        fn->flags = flag::DECLARED_FUNCTION;
        fn->constant = 1;
        vrkvar* buf = R->declare_var("buf");  // 4: a static buffer
        as_data(buf)->assign(16, 7);
        buf->flags = flag::STATIC_BUFFER;
        vrkvar* cap = R->declare_var("cap");  // 5: a captured cell
        set_int(cap, 3);
        cap->flags = flag::CAPTURED;
        R->declare_var("this");                  // 6
        reset(R->declare_var("obj"), Tag::PTR);  // 7: an object handle
        vrkvar* st = R->declare_var("st");       // 8: a struct record
        reset(st, Tag::JSON);
        st->flags = flag::STRUCT_VAR;
        st->block = S;
        vrkvar* sc = R->declare_var("sc");  // 9: a scoped constant
        set_string(sc, "scoped");
        sc->attrs = attr::OWNS_RESULT;
        sc->constant = 1;
        R->get_scoped() = {9};
        R->get_captures() = {{5, 5}};
        r.load(0)                                                                   // itself
            .load_from(program(p), 0)                                               // its parent
            .emit(Op::RUN_CHILD, 0, ref_of(F))                                      // a child
            .emit(Op::POP, 1, 3)                                                    // a number
            .emit(Op::SET, -1, kRefMinusOne)                                        // all ones
            .emit(Op::INDEX, -1, reinterpret_cast<uint64_t>(new vrkindex_cache()))  // a cache
            .emit(Op::CALL_PREP, 0, ref_of(K))  // a class's constructor
            .emit(Op::SWAP, 1, 100)             // the largest number
            .emit(Op::LOAD, 0, 100);            // a number where a block belongs

        F->is_function = 1;
        F->param_count = 1;
        reset(F->declare_var("p0"), Tag::VOID);
        vrkvar* y = F->declare_var("y");
        set_int(y, 7);
        y->flags = flag::VALUE_HINT;
        f.load(1).load_from(r, 0).emit(Op::CALL, 0, ref_of(K));

        C->kind = kind::CLASS;
        C->declare_var("m");
        C->make_class_slots();
        vrkvar* ctor = C->vars[0];
        reset(ctor, Tag::FUNCTION);
        ctor->block = K;
        ctor->constant = 1;
        K->is_function = 1;
        k.emit(Op::LOAD, 9, ref_of(C));

        S->kind = kind::STRUCT;
        S->declare_var("a");
        S->declare_var("b");
        D->is_function = 1;
        R->get_die_blocks().push_back(D);
    }

    vrkblock* p = nullptr;
    vrkblock *R = nullptr, *F = nullptr, *C = nullptr, *K = nullptr, *S = nullptr, *D = nullptr;
};

TEST_F(TreeTest, ACopyComesBackWithItsOwnBlocksAndSharedParents) {
    const Bytes bytes = image(R);
    LogRecorder log;
    vrkblock* copy = load(bytes, p);
    EXPECT_EQ(log.errors(), 0u);

    ASSERT_TRUE(copy->children);
    ASSERT_EQ(copy->children->size(), 4u);
    vrkblock* f = child(copy, 0);
    vrkblock* c = child(copy, 1);
    vrkblock* s = child(copy, 2);
    vrkblock* k = child(c, 0);
    ASSERT_NE(k, nullptr);
    EXPECT_EQ(f->parent, copy);
    EXPECT_EQ(k->parent, c);
    EXPECT_EQ(c->kind, kind::CLASS);
    EXPECT_EQ(s->kind, kind::STRUCT);
    EXPECT_EQ(f->param_count, 1);
    EXPECT_EQ(copy->mode, 3);
    ASSERT_TRUE(copy->die_blocks);
    ASSERT_EQ(copy->die_blocks->size(), 1u);
    EXPECT_NE(copy->die_blocks->front(), child(copy, 3)) << "a die function is saved apart";
    EXPECT_EQ(copy->die_blocks->front()->parent, copy);

    // Instructions: own blocks are the copy's, the enclosing block is shared.
    ASSERT_EQ(copy->code.size(), R->code.size());
    EXPECT_EQ(copy->code[0].ref_block(), copy);
    EXPECT_EQ(copy->code[1].ref_block(), p);
    EXPECT_EQ(copy->code[2].ref_block(), f);
    EXPECT_EQ(copy->code[3].ref, 3u);
    EXPECT_EQ(copy->code[4].ref, kRefMinusOne);
    EXPECT_EQ(copy->code[4].arg, -1);
    EXPECT_EQ(copy->code[5].ref, 0u) << "the look-up cache is not saved";
    EXPECT_EQ(copy->code[6].ref_block(), k) << "a constructor through the second index";
    EXPECT_EQ(copy->code[7].ref, 100u);
    EXPECT_EQ(copy->code[8].ref, 0u) << "a number is never taken for a block";
    ASSERT_EQ(f->code.size(), 3u);
    EXPECT_EQ(f->code[0].ref_block(), f);
    EXPECT_EQ(f->code[1].ref_block(), copy);
    EXPECT_EQ(f->code[2].ref_block(), k);
    EXPECT_EQ(k->code.at(0).ref_block(), c);
    EXPECT_EQ(k->code.at(0).arg, 9);

    // Variables.
    const auto& v = copy->vars;
    ASSERT_EQ(v.size(), 10u);
    EXPECT_EQ(v[0]->type, Tag::INT);
    EXPECT_EQ(v[0]->value.i, 0) << "a plain variable keeps its flags, not its value";
    EXPECT_EQ(v[0]->flags, flag::FIXED_TYPE);
    EXPECT_EQ(to_int(v[1]), 42);
    EXPECT_EQ(v[1]->constant, 1);
    EXPECT_EQ(to_string(v[2]), "hi");
    EXPECT_EQ(v[3]->type, Tag::FUNCTION);
    EXPECT_EQ(v[3]->block, f);
    EXPECT_EQ(v[3]->aux, 1);
    EXPECT_EQ(copy->find_var_index("f"), 3) << "a declared function keeps its name";
    EXPECT_EQ(copy->find_var_index("x"), -1) << "plain names are not saved";
    ASSERT_EQ(v[4]->type, Tag::DATA);
    EXPECT_EQ(*v[4]->value.data, Bytes(16, 0)) << "a static buffer keeps its size, zeroed";
    EXPECT_TRUE(v[4]->flags & flag::STATIC_BUFFER);
    EXPECT_EQ(v[5]->type, Tag::VOID);
    EXPECT_EQ(v[5]->flags, flag::CAPTURED);
    EXPECT_EQ(copy->this_index, 6);
    EXPECT_EQ(v[6]->type, Tag::VOID);
    EXPECT_TRUE(v[6]->flags & flag::NO_COUNT);
    EXPECT_EQ(v[7]->type, Tag::INT) << "object handles are not saved";
    ASSERT_EQ(v[8]->type, Tag::JSON);
    EXPECT_EQ(v[8]->block, s);
    EXPECT_TRUE(v[8]->flags & flag::STRUCT_VAR);
    EXPECT_EQ(*copy->scoped, std::vector<uint32_t>{9});
    ASSERT_TRUE(copy->captures);
    EXPECT_EQ(copy->captures->front(), (std::pair<uint32_t, int32_t>{5, 5}));

    // The class: slots, constructor, name table; the struct's name table.
    ASSERT_EQ(c->vars.size(), 10u);
    EXPECT_EQ(c->vars[0]->type, Tag::FUNCTION);
    EXPECT_EQ(c->vars[0]->block, k);
    EXPECT_EQ(c->vars[1]->type, Tag::VOID);
    EXPECT_EQ(c->find_var_index("m"), 9);
    EXPECT_EQ(s->find_var_index("b"), 1);

    // Written again, the copy gives the same bytes (but for the number that
    // stood where a block belongs).
    Bytes expected = bytes;
    const Bytes load_100{0x1F, 0x00, 0x00, 0x01, 0x64};
    auto at = std::search(expected.begin(), expected.end(), load_100.begin(), load_100.end());
    ASSERT_NE(at, expected.end());
    at = expected.erase(at + 3, at + 5);
    expected.insert(at, 0x00);
    EXPECT_EQ(image(copy), expected);

    // The die function saved apart belongs to the copy and goes with it, even
    // when other blocks go first.
    vrkblock* die = copy->die_blocks->front();
    block_delete(block_new(nullptr));
    block_delete(copy);
    EXPECT_FALSE(block_alive(die));
}

TEST_F(TreeTest, WithoutCodeOnlyTheDataGoes) {
    const Bytes bytes = image(R, false);
    const Bytes minus_one{0x04, 0xFF, 0xFF, 0xFF, 0xFF, 0xFB, 0xFA};
    ASSERT_GE(bytes.size(), 17u);
    EXPECT_EQ(Bytes(bytes.begin() + 12, bytes.begin() + 19), minus_one) << "no children";
    vrkblock* copy = load(bytes, p);
    EXPECT_TRUE(!copy->children || copy->children->empty());
    EXPECT_TRUE(copy->code.empty());
    ASSERT_EQ(copy->vars.size(), 10u);
    EXPECT_EQ(copy->vars[3]->type, Tag::FUNCTION);
    EXPECT_EQ(copy->vars[3]->block, nullptr) << "a function constant's block stays behind";
    EXPECT_EQ(to_int(copy->vars[1]), 42);
    ASSERT_TRUE(copy->die_blocks);
    EXPECT_EQ(copy->die_blocks->size(), 1u);
    block_delete(copy);
}

TEST_F(TreeTest, ReferencesThatCannotBeResolved) {
    // Loaded as a root, the reference to the enclosing block finds no parent.
    LogRecorder log;
    vrkblock* root = load(image(R), nullptr);
    EXPECT_TRUE(log.saw("error constructing program... 1"));
    EXPECT_EQ(root->code[1].ref, 0u);
    EXPECT_EQ(root->code[0].ref_block(), root);
    block_delete(root);

    // A ref of 100 is a number, one of 101 a block reference; a pointer to
    // nothing in the tree is reported while writing.
    program q = w.block();
    q.emit(Op::LOAD, 0, 100).emit(Op::LOAD, 0, 101);
    LogRecorder writing;
    const Bytes bytes = image(q.block());
    EXPECT_TRUE(writing.saw("ASM 31 index 0 BLK 65"));
    EXPECT_TRUE(writing.saw("error finding block for cache!"));
    const Bytes tail{0x1F, 0x00, 0x00, 0x01, 0x64, 0x1F, 0x00,
                     0x01, 0x01, 0x01, 0xFF, 0xFF, 0xFF, 0xFF};
    EXPECT_EQ(Bytes(bytes.begin() + 20, bytes.begin() + 34), tail);
}

TEST_F(TreeTest, EveryTruncationAndCorruptionIsSurvived) {
    const Bytes bytes = image(R);
    testing::internal::CaptureStdout();
    std::size_t reported = 0;
    for (std::size_t n = 0; n < bytes.size(); ++n) {
        LogRecorder log;
        vrkblock* b = load(Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(n)), p);
        reported += log.errors() > 0;
        block_delete(b);
    }
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        for (uint8_t flip : {0xFF, 0x01, 0x80}) {
            Bytes broken = bytes;
            broken[i] ^= flip;
            vrkblock* b = load(broken, p);
            block_delete(b);
        }
    }
    // Random bytes almost always fail the first marker.
    uint32_t seed = 12345;
    std::size_t first_marker = 0;
    for (int i = 0; i < 200; ++i) {
        Bytes noise(64);
        for (uint8_t& byte : noise) {
            seed = seed * 1103515245u + 12345u;
            byte = static_cast<uint8_t>(seed >> 16);
        }
        LogRecorder log;
        vrkblock* b = load(noise, p);
        first_marker += log.saw("program error 3.");
        block_delete(b);
    }
    testing::internal::GetCapturedStdout();
    EXPECT_GT(reported, bytes.size() * 9 / 10) << "a cut record is reported, not taken silently";
    EXPECT_GE(first_marker, 195u);
}

TEST_F(BlockFormTest, EngineTablesLinkByName) {
    vrkscript engine;
    vrkvar* twice = engine.registerFunction(
        "twice", [](vrkblock*, std::vector<vrkvar*>&, void*, vrkvar& r) { return &r; }, 1, nullptr,
        "", true, true);
    const int64_t twice_index = engine.firstBlock->find_var_index("twice");
    vrkvar* g = declare_global(&engine, "g");
    const int64_t g_index = engine.globalBlock->find_var_index("g");
    vrkblock* root = block_new(&engine);
    vrkblock* ext = block_new(&engine);
    ext->parent = root;
    root->get_children().push_back(ext);
    ext->kind = kind::EXTERN;
    engine.extern_blocks["ext"] = ext;
    vrkblock* named = block_new(&engine);
    vrkvar* named_cell = cell_new(Tag::FUNCTION);
    named_cell->block = named;
    engine.namedCells[named_cell] = "nc";
    (void)g;

    program r(root);
    r.emit(Op::CALL, twice_index, ref_of(engine.firstBlock))
        .emit(Op::LOAD, 0, ref_of(twice->block))
        .emit(Op::LOAD, g_index, ref_of(engine.globalBlock))
        .emit(Op::LOAD, 0, ref_of(named));
    ext->code.push_back(vrkinstr{static_cast<uint8_t>(Op::CALL), ref_of(ext), 0});
    const Bytes bytes = image(root);

    {
        // The same engine: every link comes back.
        LogRecorder log;
        engine.extern_blocks.erase("ext");
        vrkblock* back = load(bytes, nullptr, &engine);
        EXPECT_EQ(back->code[0].ref_block(), engine.firstBlock);
        EXPECT_EQ(back->code[0].arg, twice_index);
        EXPECT_EQ(back->code[1].ref_block(), twice->block);
        EXPECT_EQ(back->code[2].ref_block(), engine.globalBlock);
        EXPECT_EQ(back->code[2].arg, g_index);
        EXPECT_EQ(back->code[3].ref_block(), named);
        EXPECT_TRUE(log.saw("external..."));
        vrkblock* ext_back = child(back, 0);
        EXPECT_EQ(engine.extern_blocks["ext"], ext_back);
        EXPECT_EQ(ext_back->code.at(0).ref_block(), ext_back);
        EXPECT_EQ(log.errors(), 0u);
        block_delete(back);
        EXPECT_EQ(engine.extern_blocks.count("ext"), 0u)
            << "a destroyed block leaves the extern table";
    }
    {
        // An engine without them: reported, a missing global is created and
        // retired again with the program.
        vrkscript other;
        LogRecorder log;
        vrkblock* back = load(bytes, nullptr, &other);
        EXPECT_TRUE(log.saw("cannot find function twice!"));
        EXPECT_TRUE(log.saw("cannot find global var g! creating..."));
        EXPECT_EQ(back->code[0].ref_block(), other.firstBlock);
        EXPECT_EQ(back->code[0].arg, twice_index) << "arg unchanged";
        EXPECT_EQ(back->code[1].ref, 0u);
        EXPECT_EQ(back->code[2].ref_block(), other.globalBlock);
        EXPECT_EQ(back->code[2].arg, other.globalBlock->find_var_index("g"));
        EXPECT_EQ(back->code[3].ref, 0u);
        EXPECT_GE(other.globalBlock->find_var_index("g"), 0);
        // Blocks that go in between leave the program's call-backs alone.
        block_delete(block_new(&other));
        block_delete(back);
        EXPECT_EQ(other.globalBlock->find_var_index("g"), -1);
        EXPECT_GE(other.globalBlock->find_var_index("g__VORKAGC"), 0);
    }
    engine.namedCells.clear();
    cell_free(named_cell);
    block_delete(named);
    block_delete(root);
}

TEST_F(BlockFormTest, ProgramConstruction) {
    vrkscript engine;
    // A root whose singleton class body sets a root variable: it runs during
    // the load, before anything else.
    program root(block_new(&engine));
    const uint32_t x = root.variable("x", 0);
    program body = w.child(root);
    body.block()->kind = kind::SINGLETON;
    body.load(body.constant(9)).emit(Op::SET, x, root.ref());
    const std::string path = testing::TempDir() + "saved_program_test.vre";
    ASSERT_TRUE(write_program(root.block(), path));
    block_delete(root.block());

    vrkparser* parser = load_program(&engine, path);
    ASSERT_NE(parser, nullptr);
    ASSERT_NE(parser->root_block, nullptr);
    EXPECT_EQ(to_int(parser->root_block->vars[x]), 9) << "the singleton body ran at load";
    EXPECT_EQ(parser->root_block->parent, nullptr);

    // `save` writes the image of the root block.
    Bytes saved;
    ScriptCacheWriter writer(saved);
    save(parser, writer);
    EXPECT_EQ(saved, program_image(parser->root_block));

    // An empty image: the first marker fails and the program has no code.
    LogRecorder log;
    construct_from_bytes(parser, {});
    EXPECT_TRUE(log.saw("program error 3."));
    ASSERT_NE(parser->root_block, nullptr);
    EXPECT_TRUE(parser->root_block->code.empty());
    delete parser;
    std::remove(path.c_str());
}

// What the compiler sets up beside the code comes back after a load: the
// block of a declared function (called above its declaration), the empty list
// of a list literal, and the frame list entry of an onFrame function.
TEST_F(BlockFormTest, ALoadedProgramGetsBackWhatTheCompilerSetUp) {
    vrkscript engine;
    vrkparser* source = engine.load(
        "early = later(2);\nlater(n) { return n + 1; }\n"
        "onFrameTick() { }\nl = [];\n",
        false, true);
    ASSERT_NE(source, nullptr);
    ASSERT_NE(source->root_block, nullptr);
    const Bytes image = program_image(source->root_block);
    const std::size_t frames = engine.frame_blocks.size();

    std::unique_ptr<vrkparser> loaded(empty_program_parser(&engine));
    construct_from_bytes(loaded.get(), image);
    vrkblock* root = loaded->root_block;
    ASSERT_NE(root, nullptr);
    const int32_t later = root->find_var_index("later");
    ASSERT_GE(later, 0);
    const vrkvar* fn = root->vars[static_cast<std::size_t>(later)];
    EXPECT_EQ(fn->type, Tag::FUNCTION);
    ASSERT_NE(fn->block, nullptr) << "a call above the declaration finds the function";
    EXPECT_EQ(fn->aux, 1);
    EXPECT_TRUE(std::any_of(root->vars.begin(), root->vars.end(), [](const vrkvar* v) {
        return v && v->type == Tag::JSON;
    })) << "the list literal's cell is a list again";
    ASSERT_EQ(engine.frame_blocks.size(), frames + 1);
    EXPECT_NE(engine.frame_blocks.back(), nullptr);
    engine.frame_blocks.clear();
}

}  // namespace
}  // namespace vrk
