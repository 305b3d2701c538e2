// Block record: variables, embedded cells, reserved class slots, the busy
// test, tear-down, instance counting and retired globals.
#include <gtest/gtest.h>

#include "base/context.h"
#include "base/script_lock.h"
#include "host/engine.h"
#include "values/classref.h"
#include "vm/block.h"
#include "vm/globals.h"

namespace vrk {
namespace {

class BlockTest : public ::testing::Test {
protected:
    void SetUp() override { context().main_thread = current_thread_id(); }
};

TEST_F(BlockTest, DeclareFindAndNameVariables) {
    vrkblock* b = block_new(nullptr);
    vrkvar* x = b->declare_var("x");
    EXPECT_EQ(b->declare_var("x"), x) << "declaring twice gives the same cell";
    EXPECT_EQ(b->find_var("x"), x);
    EXPECT_EQ(b->find_var("missing"), nullptr);
    EXPECT_EQ(b->var_name(x), "x");
    EXPECT_EQ(b->var_name_at(0), "x");
    EXPECT_EQ(b->var_name_at(7), "");

    vrkvar* self = b->declare_var("this");
    EXPECT_EQ(b->this_index, 1);
    EXPECT_EQ(b->this_var(), self);
    EXPECT_TRUE(self->flags & flag::NO_COUNT);
    EXPECT_EQ(b->self_var(), nullptr);
    block_delete(b);
}

TEST_F(BlockTest, EmbeddedCellsAreToldFromEveryOtherCell) {
    vrkblock* b = block_new(nullptr);
    vrkvar* x = b->declare_var("x");
    EXPECT_TRUE(b->is_embedded(&b->result));
    EXPECT_TRUE(b->is_embedded(&b->native_result));
    EXPECT_TRUE(b->is_embedded(&b->scratch));
    EXPECT_FALSE(b->is_embedded(x)) << "a variable";
    vrkblock* other = block_new(nullptr);
    EXPECT_FALSE(b->is_embedded(&other->scratch)) << "another block's cell";
    EXPECT_FALSE(b->is_embedded(&b->scratch + 1)) << "just past the three";
    const auto before = reinterpret_cast<uintptr_t>(&b->result) - sizeof(vrkvar);
    EXPECT_FALSE(b->is_embedded(reinterpret_cast<const vrkvar*>(before))) << "just before them";
    block_delete(other);
    block_delete(b);
}

TEST_F(BlockTest, ClassSlotsShiftEveryIndex) {
    vrkblock* b = block_new(nullptr);
    vrkvar* a = b->declare_var("a");
    b->declare_var("this");
    b->make_class_slots();
    ASSERT_EQ(b->vars.size(), 11u);
    for (uint32_t i = 0; i < kClassSlotCount; ++i) EXPECT_EQ(b->vars[i]->type, Tag::VOID);
    EXPECT_EQ(b->find_var_index("a"), 9);
    EXPECT_EQ(b->find_var("a"), a);
    EXPECT_EQ(b->this_index, 10);
    EXPECT_STREQ(kClassSlotNames[static_cast<int>(ClassSlot::oparray)], "oparray");
    block_delete(b);
}

TEST_F(BlockTest, BusyIgnoresRunningOnlyForNativeBlocks) {
    vrkblock* b = block_new(nullptr);
    EXPECT_FALSE(b->busy());
    b->running = 1;
    EXPECT_TRUE(b->busy());
    b->native = 1;
    EXPECT_FALSE(b->busy()) << "a native block may be entered re-entrantly";
    b->resume_at = 3;
    EXPECT_TRUE(b->busy());
    b->resume_at = 0;
    b->hold = 1;
    EXPECT_TRUE(b->busy());
    b->hold = 0;
    b->running = 0;
    block_delete(b);
}

TEST_F(BlockTest, DestructionLeavesLiveSetAndRegistry) {
    vrkblock* parent = block_new(nullptr);
    vrkblock* child = vrkblock::add_child(parent, "");
    EXPECT_EQ(child->parent, parent);
    ASSERT_EQ(parent->get_children().size(), 1u);
    uint64_t index = child->registry_index;
    uint32_t id = child->registry_id;
    EXPECT_EQ(registry_get(index, id), child);
    EXPECT_TRUE(block_alive(child));
    block_delete(parent);
    EXPECT_FALSE(block_alive(child)) << "children die with their parent";
    EXPECT_EQ(registry_get(index, id), nullptr) << "a stale handle resolves to nothing";
}

TEST_F(BlockTest, DeletingASleepingBlockTellsTheEngine) {
    vrkscript engine;
    vrkblock* b = block_new(&engine);
    engine.newSleepers.push_back(b);
    engine.sleepingBlocks.push_back(vrkblock_handle::of(b));
    engine.sleepersChanged = 0;
    vrkblock_handle h = vrkblock_handle::of(b);
    block_delete(b);
    EXPECT_EQ(h.get(), nullptr);
    EXPECT_TRUE(engine.newSleepers.empty());
    EXPECT_EQ(engine.sleepersChanged, 1) << "the sleeper walk of the running frame must stop";
    ASSERT_FALSE(engine.removedSleepers.empty());
    EXPECT_EQ(engine.removedSleepers.back(), b);
}

TEST_F(BlockTest, CallbacksOfABlockFireOnceAtDestruction) {
    vrkblock* b = block_new(nullptr);
    std::vector<int> order;
    callback_add([&](uint64_t) { order.push_back(3); }, 77, b, 2);
    callback_add([&](uint64_t) { order.push_back(1); }, 78, b, 1);
    callback_add([&](uint64_t) { order.push_back(9); }, 79, nullptr, 1);
    block_delete(b);
    EXPECT_EQ(order, (std::vector<int>{1, 3})) << "ordinary callbacks first, the others after";
    EXPECT_TRUE(callback_fire(79, true));
    EXPECT_EQ(order.back(), 9);
    EXPECT_FALSE(callback_fire(79, true));
}

TEST_F(BlockTest, InstanceLivesWhileACountingCellHoldsIt) {
    // An instance without a destructor: the last counting holder deletes it.
    vrkblock* inst = block_new(nullptr);
    inst->make_class_slots();
    inst->kind = kind::INSTANCE;
    vrkvar* a = cell_new(Tag::INT);
    vrkvar* b = cell_new(Tag::INT);
    vrkvar* weak = cell_new(Tag::INT);
    weak->flags |= flag::NO_COUNT;
    for (vrkvar* c : {a, b, weak}) {
        c->type = Tag::CLASS;
        c->block = inst;
        class_add_holder(c, inst);
    }
    EXPECT_EQ(inst->get_class_data().refs, 2);
    clearblock(a, nullptr, false);
    EXPECT_EQ(a->type, Tag::INT);
    EXPECT_TRUE(block_alive(inst));
    clearblock(b, nullptr, false);
    EXPECT_FALSE(block_alive(inst)) << "second holder gone: instance deleted";
    EXPECT_EQ(weak->type, Tag::INT) << "cells still pointing at a deleted instance are blanked";
    EXPECT_EQ(weak->block, nullptr);
    cell_free(a);
    cell_free(b);
    cell_free(weak);
}

TEST_F(BlockTest, BlueprintsAreNeverReleased) {
    vrkblock* blueprint = block_new(nullptr);
    blueprint->make_class_slots();
    blueprint->kind = kind::CLASS;
    vrkvar* c = cell_new(Tag::INT);
    c->type = Tag::CLASS;
    c->block = blueprint;
    clearblock(c, nullptr, true);
    EXPECT_TRUE(block_alive(blueprint));
    EXPECT_EQ(c->type, Tag::INT);
    cell_free(c);
    block_delete(blueprint);
}

TEST_F(BlockTest, RetiredGlobalSlotIsRevived) {
    vrkscript engine;
    vrkvar* v = declare_global(&engine, "score");
    EXPECT_TRUE(v->flags & flag::GLOBAL_SLOT);
    set_int(v, 42);
    int64_t index = engine.globalBlock->find_var_index("score");
    retire_global(&engine, "score");
    EXPECT_EQ(engine.globalBlock->find_var_index("score"), -1);
    EXPECT_EQ(engine.globalBlock->find_var_index("score__VORKAGC"), index);
    EXPECT_EQ(to_int(v), 0) << "a retired cell is reset";
    vrkvar* again = declare_global(&engine, "score");
    EXPECT_EQ(again, v) << "the same slot comes back, so compiled code keeps working";
    EXPECT_EQ(engine.globalBlock->find_var_index("score"), index);
}

TEST_F(BlockTest, RegisteringAFunctionTwiceKeepsOneCell) {
    vrkscript engine;
    int which = 0;
    vrkvar* first = engine.registerFunction(
        "probe",
        [&](vrkblock*, std::vector<vrkvar*>&, void*, vrkvar& r) {
            which = 1;
            return &r;
        },
        1, nullptr, "first", false, false);
    vrkvar* second = engine.registerFunction(
        "probe",
        [&](vrkblock*, std::vector<vrkvar*>&, void*, vrkvar& r) {
            which = 2;
            return &r;
        },
        2, nullptr, "second", false, true);
    EXPECT_EQ(first, second);
    EXPECT_EQ(second->type, Tag::FUNCTION);
    EXPECT_EQ(second->aux, 2);
    ASSERT_NE(second->block, nullptr);
    EXPECT_TRUE(second->block->native);
    ASSERT_EQ(second->block->code.size(), 1u);
    auto* record = reinterpret_cast<vrknative*>(second->block->code[0].ref);
    std::vector<vrkvar*> args;
    vrkvar result;
    record->fn(nullptr, args, record->user, result);
    EXPECT_EQ(which, 2) << "the last registration wins";
    EXPECT_TRUE(record->deref_args);
}

}  // namespace
}  // namespace vrk
