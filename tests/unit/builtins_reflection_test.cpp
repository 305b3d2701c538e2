// The reflection builtins on native objects, which no script can make yet:
// type names of live and stale handles, validity, `new`, `copy` through the
// object's clone, `free` with the global flag, and the last object registered.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/context.h"
#include "base/log.h"
#include "base/script_lock.h"
#include "builtins/registry.h"
#include "host/engine.h"
#include "support/log_capture.h"
#include "values/object.h"
#include "vm/block.h"

namespace vrk {
namespace {

using test::LogCapture;

// An object that counts how it ends and hands out a separate twin as its copy.
class gadget : public vrkobject {
public:
    explicit gadget(int* destroyed_count = nullptr) : destroyed(destroyed_count) {
        type_name = "gadget";
    }
    void destroy() override {
        if (destroyed) ++*destroyed;
        delete this;
    }
    vrkobject* clone() override { return new gadget(destroyed); }

    int* destroyed = nullptr;  // raised when the object ends
};

class BuiltinsReflectionTest : public ::testing::Test {
protected:
    void SetUp() override {
        context().main_thread = current_thread_id();
        caller = block_new(&engine);
    }
    void TearDown() override {
        for (vrkvar* c : owned) {
            // The handles hold no count of their own; objects are ended by the tests.
            c->type = Tag::INT;
            c->value.i = 0;
            cell_free(c);
        }
        reset(&result, Tag::INT);
        block_delete(caller);
    }

    vrkvar* call(const char* name, std::vector<vrkvar*> args) {
        // The result cell is reused from call to call: what the last call left
        // in it (a string, a list) goes back to the pools first.
        reset(&result, Tag::INT);
        result.aux = 0;
        vrkvar* fn = engine.firstBlock->find_var(name);
        EXPECT_NE(fn, nullptr) << name;
        if (!fn) return nullptr;
        vrknative* record = fn->value.native;
        return record->fn(caller, args, record->user, result);
    }
    std::string text_of(vrkvar* c) { return to_string(c); }

    // A handle of the object that holds no reference.
    vrkvar* handle(vrkobject* object) {
        vrkvar* c = cell_new(Tag::INT);
        owned.push_back(c);
        c->type = Tag::PTR;
        c->value.i = object->registry_id;
        c->handle_index = object->registry_index;
        c->set_aux(0, kHandleMark);
        return c;
    }

    vrkscript engine;
    vrkblock* caller = nullptr;
    vrkvar result;
    std::vector<vrkvar*> owned;
};

TEST_F(BuiltinsReflectionTest, TypeNamesOfLiveAndStaleHandles) {
    auto* object = new gadget();
    vrkvar* live = handle(object);
    vrkvar* stale = handle(object);
    EXPECT_EQ(text_of(call("vtype", {live})), "gadget");
    EXPECT_EQ(text_of(call("vtype2", {live})), "gadget");
    EXPECT_EQ(text_of(call("vscripttype", {live})), "gadget");
    EXPECT_EQ(to_int(call("isvalid", {live})), 1);
    EXPECT_EQ(call("vaddress_obj", {live})->value.i, reinterpret_cast<intptr_t>(object));
    object->destroy();

    LogCapture capture;
    EXPECT_EQ(text_of(call("vtype", {stale})), "PTR");
    EXPECT_TRUE(capture.saw("invalid object ptr."));
    EXPECT_TRUE(capture.saw("ID: "));
    EXPECT_EQ(text_of(call("vtype2", {stale})), "invalid_object");
    EXPECT_EQ(text_of(call("vscripttype", {stale})), "err");
    EXPECT_EQ(to_int(call("isvalid", {stale})), 0);
    EXPECT_EQ(to_int(call("vaddress_obj", {stale})), 0);
}

TEST_F(BuiltinsReflectionTest, NewKeepsTheObjectThroughItsLastReleaseUntilFree) {
    int destroyed = 0;
    auto* object = new gadget(&destroyed);
    vrkvar* h = handle(object);
    object->addRef();  // the script's one holder
    EXPECT_EQ(call("new", {h}), h) << "the call's value is the argument cell";
    EXPECT_EQ(object->ref_count, 2);
    EXPECT_TRUE(object->object_flags & object_flag::DETACHED);
    object->release();  // the holder lets go
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(to_int(call("isvalid", {h})), 1);

    EXPECT_EQ(to_int(call("free", {h})), 1);
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(to_int(call("isvalid", {h})), 0);

    LogCapture capture;
    EXPECT_EQ(to_int(call("free", {h})), 0) << "a second free finds nothing";
    EXPECT_TRUE(capture.saw("invalid parameters (or already deleted)! free"));
}

TEST_F(BuiltinsReflectionTest, FreeRefusesAGlobalObject) {
    int destroyed = 0;
    auto* object = new gadget(&destroyed);
    object->object_flags |= object_flag::GLOBAL;
    vrkvar* h = handle(object);
    LogCapture capture;
    EXPECT_EQ(to_int(call("free", {h})), 0);
    EXPECT_TRUE(capture.saw("cannot delete global var gadget !"));
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(to_int(call("isvalid", {h})), 1);
    object->destroy();
}

TEST_F(BuiltinsReflectionTest, CopyHandsOutTheClonesHandleWithItsOwnReference) {
    int destroyed = 0;
    auto* object = new gadget(&destroyed);
    vrkvar* h = handle(object);
    vrkvar* answer = call("copy", {h});
    ASSERT_EQ(answer->type, Tag::PTR);
    vrkobject* twin = object_of(answer);
    ASSERT_NE(twin, nullptr);
    EXPECT_NE(twin, object);
    EXPECT_EQ(twin->ref_count, 1);
    EXPECT_EQ(object->ref_count, 0);
    // Letting the answer go ends the twin only.
    reset(&result, Tag::INT);
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(to_int(call("isvalid", {h})), 1);
    object->destroy();
}

TEST_F(BuiltinsReflectionTest, LastObjectIsTheNewestObjectEvenWhenABlockCameLater) {
    int destroyed = 0;
    auto* older = new gadget(&destroyed);
    auto* newer = new gadget(&destroyed);
    vrkblock* later = block_new(&engine);  // registered after both objects
    vrkvar* answer = call("getlastobject", {});
    EXPECT_EQ(object_of(answer), newer);
    EXPECT_EQ(newer->ref_count, 1);
    reset(&result, Tag::INT);
    EXPECT_EQ(destroyed, 1) << "the answer held the only reference";
    answer = call("getlastobject", {});
    EXPECT_EQ(object_of(answer), older);
    reset(&result, Tag::INT);
    block_delete(later);
}

}  // namespace
}  // namespace vrk
