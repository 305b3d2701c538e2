// The guarded pointer registry: ids that wrap past 0, reused indices with new
// ids, and the resolver's type-hash fast path and cast fallback; the default
// life of an object (deep copy through its saved form, deferred deletion).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>

#include "base/context.h"
#include "base/script_lock.h"
#include "host/engine.h"
#include "objects/object_ext.h"
#include "objects/type_registry.h"
#include "support/saved_support.h"
#include "values/value_context.h"
#include "vm/block.h"

namespace vrk::test {
namespace {

// A registered type with no state and no saved form of its own.
class plain_probe : public vrkobject_ext<plain_probe, vrkobject> {
public:
    static constexpr const char* script_type_name = "registry_probe";
};

// A type whose saved form is refused.
class unsaveable_probe : public vrkobject_ext<unsaveable_probe, vrkobject> {
public:
    static constexpr const char* script_type_name = "unsaveable_probe";
    bool serialize(ScriptCacheWriter&) override { return false; }
};

// Derived from a registered type: found through the cast fallback.
class derived_probe : public plain_probe {};

class ObjectRegistryTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        register_native_types();
        if (!find_type("registry_probe")) registerType<plain_probe>("registry_probe");
    }
};

TEST_F(ObjectRegistryTest, IdsWrapPastZeroAndReusedIndicesGetNewIds) {
    vrkregistry& reg = value_context().registry;
    const uint32_t saved = reg.next_id;
    reg.next_id = UINT32_MAX - 1;
    auto a = std::make_unique<plain_probe>();
    auto b = std::make_unique<plain_probe>();
    EXPECT_EQ(a->registry_id, UINT32_MAX);
    EXPECT_EQ(b->registry_id, 1u) << "the counter skips 0 when it wraps";
    EXPECT_EQ(value_context().registry.last_registered, static_cast<vrkptr_base*>(b.get()));

    const uint64_t index = a->registry_index;
    const uint32_t old_id = a->registry_id;
    a.reset();
    EXPECT_EQ(registry_get(index, old_id), nullptr);
    auto c = std::make_unique<plain_probe>();
    EXPECT_EQ(c->registry_index, index) << "a freed index is used again";
    EXPECT_NE(c->registry_id, old_id);
    EXPECT_EQ(resolve<plain_probe>(index, old_id), nullptr) << "the old handle stays invalid";
    EXPECT_EQ(resolve<plain_probe>(index, c->registry_id), c.get());
    EXPECT_EQ(resolve<vrkobject>(index, 0), nullptr) << "id 0 never designates an object";
    reg.next_id = std::max(saved, reg.next_id);
}

TEST_F(ObjectRegistryTest, ResolverTakesTheHashPathAndFallsBackToACast) {
    auto p = std::make_unique<plain_probe>();
    auto d = std::make_unique<derived_probe>();
    const vrkregistry_slot* slot = registry_slot(p->registry_index, p->registry_id);
    ASSERT_NE(slot, nullptr);
    EXPECT_EQ(slot->type_hash, registry_type_hash<plain_probe>());
    EXPECT_EQ(slot->object, p.get());

    EXPECT_EQ(resolve<plain_probe>(p->registry_index, p->registry_id), p.get());
    EXPECT_EQ(resolve<vrkobject>(p->registry_index, p->registry_id), p.get());
    EXPECT_EQ(resolve<unsaveable_probe>(p->registry_index, p->registry_id), nullptr)
        << "another type does not resolve";
    // The derived object is registered under its base's hash: the cast finds it.
    EXPECT_EQ(resolve<derived_probe>(d->registry_index, d->registry_id), d.get());
    EXPECT_EQ(resolve<derived_probe>(p->registry_index, p->registry_id), nullptr);
    EXPECT_EQ(resolve<plain_probe>(d->registry_index, d->registry_id), d.get());
    EXPECT_EQ(resolve<plain_probe>(d->registry_index + 1000000, d->registry_id), nullptr);
}

TEST_F(ObjectRegistryTest, StaleHandleResolvesToNothing) {
    OwnedCell cell;
    auto* p = std::make_unique<plain_probe>().release();
    set_object(cell.get(), p, true);
    EXPECT_EQ(object_of(cell.get()), p);
    EXPECT_EQ(p->ref_count, 1);
    EXPECT_NE(cell->attrs & attr::FRESH_RESULT, 0);
    delete p;  // the object ends behind the handle's back
    EXPECT_EQ(object_of(cell.get()), nullptr);
    EXPECT_EQ(object_as<plain_probe>(cell.get()), nullptr);
    cell->value.i = 0;  // nothing left to release
}

TEST_F(ObjectRegistryTest, DeepCopyGoesThroughTheSavedForm) {
    auto original = std::make_unique<plain_probe>();
    vrkobject* copy = original->deepCopy();
    ASSERT_NE(copy, nullptr) << "a type without a saved form of its own copies by name";
    EXPECT_NE(copy, original.get());
    EXPECT_STREQ(copy->type_name, "registry_probe");
    EXPECT_NE(dynamic_cast<plain_probe*>(copy), nullptr);
    delete copy;

    LogRecorder log;
    auto refused = std::make_unique<unsaveable_probe>();
    EXPECT_EQ(refused->deepCopy(), nullptr);
    EXPECT_TRUE(log.saw("cannot create a deep copy of unsaveable_probe!"));
}

TEST_F(ObjectRegistryTest, TypesRegisterOnceAndTheBaseCannotBeMade) {
    LogRecorder log;
    registerType<plain_probe>("registry_probe");
    EXPECT_TRUE(log.saw("script type already exists! registry_probe"));
    EXPECT_EQ(create_object("vrkobject"), nullptr);
    EXPECT_TRUE(log.saw("cannot instantiate vrkobject!"));
    EXPECT_EQ(create_object("no such type"), nullptr);
    vrkobject* v = create_object("vec");
    ASSERT_NE(v, nullptr);
    EXPECT_STREQ(v->type_name, "vec");
    delete v;
}

TEST_F(ObjectRegistryTest, DetachedObjectsOutliveTheirLastHandle) {
    auto* p = std::make_unique<plain_probe>().release();
    p->object_flags |= object_flag::DETACHED;
    const uint64_t index = p->registry_index;
    const uint32_t id = p->registry_id;
    p->addRef();
    p->release();
    EXPECT_EQ(resolve<plain_probe>(index, id), p) << "release to 0 leaves a detached object";
    LogRecorder log;
    p->release();
    EXPECT_TRUE(log.saw("error ref count < 0 !"));
    delete p;
}

TEST_F(ObjectRegistryTest, ObjectsOfARunningScriptEndAtTheFrameEnd) {
    context().main_thread = current_thread_id();
    vrkscript engine;
    vrkblock* owner = block_new(&engine);
    auto* p = std::make_unique<plain_probe>().release();
    const uint64_t index = p->registry_index;
    const uint32_t id = p->registry_id;
    associateBlock(p, owner);
    EXPECT_EQ(p->owner_block, owner);
    p->addRef();
    p->release();
    EXPECT_EQ(resolve<plain_probe>(index, id), p) << "queued, not deleted yet";
    ASSERT_EQ(engine.deletedObjects.size(), 1u);
    engine.frame();
    EXPECT_EQ(resolve<plain_probe>(index, id), nullptr) << "deleted at the frame end";

    // The end of the block unties its objects: they are deleted at once then.
    auto* q = std::make_unique<plain_probe>().release();
    const uint64_t q_index = q->registry_index;
    const uint32_t q_id = q->registry_id;
    associateBlock(q, owner);
    block_delete(owner);
    EXPECT_EQ(q->owner_block, nullptr);
    q->addRef();
    q->release();
    EXPECT_EQ(resolve<plain_probe>(q_index, q_id), nullptr);
    EXPECT_TRUE(engine.deletedObjects.empty());
}

}  // namespace
}  // namespace vrk::test
