// Run-time copies: what a copy owns and what it shares, the choice of a block
// for a call, closures, and class instances.
#include <memory>
#include <string>
#include <vector>

#include "frontend/emit.h"
#include "support/program.h"
#include "values/classref.h"
#include "values/closure.h"
#include "vm/copies.h"

namespace vrk::test {
namespace {

class CopiesTest : public VmTest {
protected:
    // A function F inside an enclosing block P, with a nested body C:
    //   P: shared
    //   F: parameter p0 (by reference), own, a constant; loads own and shared
    //   C: loads F's own and P's shared
    void SetUp() override {
        VmTest::SetUp();
        shared = P.variable("shared", 7);
        reset(F.var(0), Tag::VOID);
        F.var(0)->attrs |= attr::BY_REF_PARAM;
        F.var(0)->flags |= kParameterFlag;
        own = F.variable("own", 3);
        constant = F.constant(42);
        F.load(own).load_from(P, shared).emit(Op::RUN_CHILD, 0, F.ref());
        C.load_from(F, own).load_from(P, shared);
        F.block()->code_text = string_new();
        *F.block()->code_text = "F's text";
    }

    program P = w.block();
    program F = function_in(P, 1);
    program C = w.child(F);
    uint32_t shared = 0;
    uint32_t own = 0;
    uint32_t constant = 0;

private:
    program function_in(const program& parent, int params) {
        program f = w.child(parent);
        f.block()->is_function = 1;
        f.block()->param_count = static_cast<int16_t>(params);
        for (int i = 0; i < params; ++i)
            reset(f.block()->declare_var("p" + std::to_string(i)), Tag::VOID);
        return f;
    }
};

TEST_F(CopiesTest, CopyOwnsItsBlocksAndSharesTheEnclosingOnes) {
    vrkblock* copy = clone_block(F.block(), nullptr, true);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->parent, P.block());
    EXPECT_EQ(P.block()->children->back(), copy) << "the copy joins its source's parent";
    EXPECT_TRUE(copy->kind & kind::COPY);
    EXPECT_EQ(copy->names, F.block()->names) << "names are shared";
    EXPECT_TRUE(copy->names_shared);
    EXPECT_EQ(copy->code_text, F.block()->code_text) << "the text is shared";
    EXPECT_TRUE(copy->text_shared);

    ASSERT_EQ(copy->code.size(), 3u);
    EXPECT_EQ(copy->code[0].ref_block(), copy) << "its own variables are the copy's";
    EXPECT_EQ(copy->code[1].ref_block(), P.block()) << "an enclosing block stays shared";
    EXPECT_EQ(copy->code[2].ref_block(), copy);
    ASSERT_TRUE(copy->children);
    ASSERT_EQ(copy->children->size(), 1u);
    vrkblock* inner = copy->children->front();
    EXPECT_NE(inner, C.block());
    EXPECT_EQ(inner->parent, copy);
    EXPECT_EQ(inner->code[0].ref_block(), copy);
    EXPECT_EQ(inner->code[1].ref_block(), P.block());

    EXPECT_EQ(to_int(copy->vars[constant]), 42) << "constants come along";
    EXPECT_TRUE(copy->vars[constant]->constant);
    EXPECT_EQ(to_int(copy->vars[own]), 0) << "plain variables start afresh";
    vrkvar* param = copy->vars[0];
    EXPECT_EQ(param->type, Tag::VOID);
    EXPECT_TRUE(param->attrs & attr::BY_REF_PARAM) << "a parameter keeps its declaration";
    EXPECT_TRUE(param->flags & kParameterFlag);

    // While a caller has bound an argument, the declared cell sits in the
    // caller's params; a copy made then still gets the declaration.
    vrkblock* caller = w.block().block();
    vrkvar* argument = cell_new(Tag::INT);
    vrkvar* declared = F.var(0);
    F.block()->vars[0] = argument;
    caller->params = {declared};
    caller->params_bound = 1;
    caller->callee = F.block();
    F.block()->caller = caller;
    vrkblock* second = clone_block(F.block(), nullptr, true);
    EXPECT_TRUE(second->vars[0]->attrs & attr::BY_REF_PARAM);
    F.block()->vars[0] = declared;
    caller->params.clear();
    caller->params_bound = 0;
    F.block()->caller = nullptr;
    cell_free(argument);

    // A detached copy has no parent; one with an owner is that owner's child.
    vrkblock* detached = clone_block(F.block(), kNoOwner, false);
    EXPECT_EQ(detached->parent, nullptr);
    EXPECT_TRUE(detached->code.empty()) << "without code only the data goes";
    EXPECT_FALSE(detached->children && !detached->children->empty());
    block_delete(detached);
    vrkblock* owner = w.block().block();
    vrkblock* owned = clone_block(F.block(), owner, true);
    EXPECT_EQ(owned->parent, owner);
    EXPECT_EQ(owner->children->back(), owned);
}

TEST_F(CopiesTest, InstancesAreChosenIdleFirst) {
    vrkvar* cell = cell_new(Tag::FUNCTION);
    cell->block = F.block();
    EXPECT_EQ(get_instance(F.block(), cell, false), F.block())
        << "an idle function runs in its own block";

    F.block()->running = 1;
    vrkblock* first = get_instance(F.block(), cell, false);
    ASSERT_NE(first, nullptr);
    EXPECT_NE(first, F.block());
    EXPECT_EQ(F.block()->copies->size(), 1u);
    EXPECT_EQ(get_instance(F.block(), cell, false), first) << "an idle copy is reused";
    first->resume_at = 5;
    vrkblock* second = get_instance(F.block(), cell, false);
    EXPECT_NE(second, first) << "a suspended copy is busy";
    EXPECT_EQ(F.block()->copies->size(), 2u);
    first->resume_at = 0;
    F.block()->running = 0;
    EXPECT_EQ(get_instance(F.block(), cell, true), first) << "force passes over the idle source";

    // A copy that went elsewhere leaves the list.
    (*P.block()->children).pop_back();
    block_delete(second);
    first->hold = 1;
    vrkblock* third = get_instance(F.block(), cell, true);
    EXPECT_EQ(F.block()->copies->size(), 2u) << "the dead copy went, a new one came";
    EXPECT_NE(third, first);
    EXPECT_TRUE(block_alive(third));
    first->hold = 0;

    vrkvar* not_a_function = cell_new(Tag::INT);
    EXPECT_EQ(get_instance(F.block(), not_a_function, false), nullptr);
    cell_free(not_a_function);

    program n = w.native(
        "n", [](vrkblock*, std::vector<vrkvar*>&, void*, vrkvar&) { return nullptr; }, 0);
    n.block()->sleeping = 1;
    EXPECT_EQ(get_instance(n.block(), nullptr, false), nullptr) << "a native block is never copied";
    n.block()->sleeping = 0;
    cell->block = nullptr;
    cell_free(cell);
}

TEST_F(CopiesTest, ARecursionTakesTheCopyItsLastReturnFreed) {
    vrkvar* cell = cell_new(Tag::FUNCTION);
    cell->block = F.block();
    // A recursion four levels deep: the source and three copies run.
    F.block()->running = 1;
    std::vector<vrkblock*> chain;
    for (int level = 0; level < 3; ++level) {
        vrkblock* c = get_instance(F.block(), cell, false);
        ASSERT_NE(c, nullptr);
        c->running = 1;
        chain.push_back(c);
    }
    ASSERT_EQ(F.block()->copies->size(), 3u);
    EXPECT_EQ(chain[0], (*F.block()->copies)[0]);

    // The deepest returns; the level above calls again and gets it back.
    end_running(chain[2]);
    EXPECT_EQ(get_instance(F.block(), cell, false), chain[2]);
    // Two levels return; the next call takes the shallower of the two.
    end_running(chain[1]);
    EXPECT_EQ(get_instance(F.block(), cell, false), chain[1]);
    chain[1]->running = 1;
    EXPECT_EQ(get_instance(F.block(), cell, false), chain[2]);
    // A copy that is busy without running (asleep) is passed over, and one
    // that ends out of order is found again.
    chain[1]->running = 0;
    chain[1]->sleeping = 1;
    end_running(chain[0]);
    EXPECT_EQ(get_instance(F.block(), cell, false), chain[0]);
    chain[0]->running = 1;
    EXPECT_EQ(get_instance(F.block(), cell, false), chain[2]);
    chain[1]->sleeping = 0;
    EXPECT_EQ(get_instance(F.block(), cell, false), chain[1]);

    // The recursion ends.
    for (vrkblock* c : chain) c->running = 0;
    F.block()->running = 0;
    cell->block = nullptr;
    cell_free(cell);
}

TEST_F(CopiesTest, ClosureIsLoadedIntoTheChosenBlock) {
    // A lambda: variable 2 receives the value captured in store variable 3.
    const uint32_t target = F.variable("k");
    const uint32_t store = F.variable("k__lambda_store__", 0);
    F.block()->kind |= kind::LAMBDA;
    F.block()->get_captures().emplace_back(target, static_cast<int32_t>(store));
    set_int(F.var(store), 11);

    vrkvar* source = cell_new(Tag::FUNCTION);
    source->block = F.block();
    vrkvar* value = cell_new(Tag::INT);
    assign(value, source);  // takes the closure: k = 11
    set_int(F.var(store), 99);

    F.block()->running = 1;
    vrkblock* copy = get_instance(F.block(), value, false);
    ASSERT_NE(copy, F.block());
    EXPECT_EQ(to_int(copy->vars[target]), 11) << "the value at the time the closure was taken";
    EXPECT_TRUE(copy->vars[target]->flags & flag::CAPTURED);
    F.block()->running = 0;

    load_closure(value, F.block());
    EXPECT_EQ(to_int(F.var(target)), 11);
    reset(value, Tag::INT);
    cell_free(value);
    source->block = nullptr;
    cell_free(source);
}

TEST_F(CopiesTest, InstanceOfAClassSharesFunctionsAndOwnsData) {
    // Blueprint: the reserved slots, a field `x` = 5, a method `m`, a
    // constructor with one parameter that receives the value 8.
    program cls = w.block();
    vrkblock* bp = cls.block();
    bp->kind = kind::CLASS;
    bp->make_class_slots();
    bp->get_class_data().name = std::make_unique<std::string>("K");
    const uint32_t x = cls.variable("x", 5);
    program method = w.child(cls);
    method.block()->is_function = 1;
    const uint32_t m = cls.function_var("m", method.block());
    cls.var(m)->flags |= flag::DECLARED_FUNCTION;

    program ctor = w.child(cls);
    ctor.block()->is_function = 1;
    ctor.block()->param_count = 1;
    vrkvar* a = ctor.block()->declare_var("a");
    reset(a, Tag::VOID);
    a->flags |= kParameterFlag;
    ctor.block()->declare_var("this");
    reset(bp->vars[0], Tag::FUNCTION);
    bp->vars[0]->block = ctor.block();
    bp->vars[0]->flags |= flag::DECLARED_FUNCTION;
    set_int(a, 8);  // what `K(8)` stores before the instance is made

    vrkvar* dest = cell_new(Tag::INT);
    reset(dest, Tag::CLASS);
    vrkblock* inst = copyConstruct(dest, bp, nullptr);
    ASSERT_NE(inst, nullptr);
    EXPECT_EQ(dest->type, Tag::CLASS);
    EXPECT_EQ(dest->block, inst);
    EXPECT_TRUE(inst->kind & kind::INSTANCE);
    EXPECT_TRUE(inst->kind & kind::COPY);
    EXPECT_FALSE(inst->kind & kind::CLASS);
    EXPECT_EQ(inst->parent, nullptr);
    ASSERT_TRUE(inst->class_data);
    EXPECT_EQ(inst->class_data->refs, 1);
    EXPECT_EQ(*inst->class_data->name, "K");
    EXPECT_TRUE(dest->attrs & attr::INSTANCE_CELL);

    EXPECT_EQ(to_int(inst->vars[x]), 5) << "fields start with the blueprint's values";
    set_int(inst->vars[x], 6);
    EXPECT_EQ(to_int(cls.var(x)), 5) << "and are the instance's own";
    EXPECT_EQ(inst->vars[m]->type, Tag::REF) << "methods are the blueprint's";
    EXPECT_EQ(deref(inst->vars[m]), cls.var(m));

    // The constructor ran in a copy, with the argument handed over and `this`
    // the new instance.
    ASSERT_TRUE(ctor.block()->copies);
    vrkblock* ran = ctor.block()->copies->front();
    EXPECT_EQ(a->type, Tag::VOID) << "the argument left the constructor's own cell";
    EXPECT_EQ(to_int(ran->vars[0]), 8);
    EXPECT_FALSE(ran->vars[0]->flags & kParameterFlag) << "a passed argument is no default's";
    ASSERT_NE(ran->this_var(), nullptr);
    EXPECT_EQ(deref(ran->this_var())->block, inst);

    clearblock(dest, nullptr, false);
    EXPECT_FALSE(block_alive(inst)) << "the last holder lets the instance go";
    cell_free(dest);
}

}  // namespace
}  // namespace vrk::test
