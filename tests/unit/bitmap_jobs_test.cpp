// Bitmap work on worker threads: the threaded members and the JPEG builtins
// run as jobs while the calling block sleeps, count in the object's `jobs`
// while they run, and hand their results back before the block wakes.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "base/context.h"
#include "base/script_lock.h"
#include "host/engine.h"
#include "objects/bitmap.h"
#include "objects/type_registry.h"
#include "values/cell.h"
#include "values/object.h"
#include "vm/block.h"

namespace vrk {
namespace {

class BitmapJobsTest : public ::testing::Test {
protected:
    void SetUp() override {
        context().main_thread = current_thread_id();
        caller = block_new(&engine);
        image = new ScriptBMP;
        set_object(&handle, image, false);
        image->image.create(6, 4, 3);
        image->image.set_pixel(2, 1, {250, 20, 10});
    }
    void TearDown() override {
        for (vrkvar* c : owned) cell_free(c);
        reset(&result, Tag::INT);
        reset(&handle, Tag::INT);
        block_delete(caller);
    }

    // Runs frames until every worker has been reaped (a minute at most: a
    // loaded machine may take its time over an encoder).
    void finish_jobs() {
        for (int i = 0; i < 60000 && !engine.activeThreads.empty(); ++i) {
            engine.frame();
            if (!engine.activeThreads.empty())
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        ASSERT_TRUE(engine.activeThreads.empty());
    }

    vrkvar* call(const char* name, std::vector<vrkvar*> args) {
        reset(&result, Tag::INT);
        vrkvar* fn = engine.firstBlock->find_var(name);
        EXPECT_NE(fn, nullptr) << name;
        vrknative* record = fn->value.native;
        return record->fn(caller, args, record->user, result);
    }

    // Calls member `name` of the bitmap as `image.name(args)` does.
    vrkvar* member(const char* name, std::vector<vrkvar*> args) {
        reset(&result, Tag::INT);
        const vrkmember_table* table = find_members("bitmap");
        EXPECT_NE(table, nullptr);
        for (const vrkmember& m : *table) {
            if (m.name != name || !m.function_cell) continue;
            caller->get_object_stack().push_back(image);
            vrknative* record = m.function_cell->value.native;
            vrkvar* r = record->fn(caller, args, record->user, result);
            caller->get_object_stack().pop_back();
            return r;
        }
        ADD_FAILURE() << "no member " << name;
        return nullptr;
    }

    vrkvar* cell(Tag tag) {
        owned.push_back(cell_new(tag));
        return owned.back();
    }

    vrkscript engine;
    vrkblock* caller = nullptr;
    ScriptBMP* image = nullptr;
    vrkvar handle;
    vrkvar result;
    std::vector<vrkvar*> owned;
};

TEST_F(BitmapJobsTest, ThreadedMembersRunAsJobsAndHandBackTheirResults) {
    vrkvar* png = cell(Tag::DATA);
    member("save_mem_async", {png});
    EXPECT_EQ(caller->suspended, 2) << "the caller sleeps while the job runs";
    finish_jobs();
    EXPECT_EQ(image->jobs.load(), 0);
    ASSERT_GT(png->value.data->size(), 8u);
    EXPECT_EQ((*png->value.data)[1], 'P');

    auto* other = new ScriptBMP;
    vrkvar other_handle;
    set_object(&other_handle, other, false);
    caller->suspended = 0;
    caller->get_object_stack().push_back(other);
    const vrkmember_table* table = find_members("bitmap");
    for (const vrkmember& m : *table) {
        if (m.name != "load_mem_async") continue;
        EXPECT_TRUE(m.threaded);
        vrknative* record = m.function_cell->value.native;
        std::vector<vrkvar*> args{png};
        reset(&result, Tag::INT);
        record->fn(caller, args, record->user, result);
    }
    caller->get_object_stack().pop_back();
    finish_jobs();
    EXPECT_EQ(to_int(&result), 1);
    EXPECT_EQ(other->image.data, image->image.data) << "the PNG brings back every byte";
    reset(&other_handle, Tag::INT);
}

TEST_F(BitmapJobsTest, JpegBuiltinsEncodeAndDecodeOnWorkers) {
    vrkvar* out = cell(Tag::DATA);
    call("jpg_encode", {&handle, out});
    EXPECT_EQ(caller->suspended, 2);
    finish_jobs();
    EXPECT_EQ(image->jobs.load(), 0) << "the encode counted as a job of the bitmap";
    ASSERT_GT(out->value.data->size(), 3u);
    EXPECT_EQ((*out->value.data)[0], 0xFF);
    EXPECT_EQ((*out->value.data)[1], 0xD8);

    vrkvar* w = cell(Tag::INT);
    vrkvar* h = cell(Tag::INT);
    caller->suspended = 0;
    call("jpg_decode", {out, w, h});
    finish_jobs();
    EXPECT_EQ(to_int(&result), 1);
    EXPECT_EQ(to_int(w), 6);
    EXPECT_EQ(to_int(h), 4);
    EXPECT_EQ(out->value.data->size(), 6u * 4u * 3u);
}

}  // namespace
}  // namespace vrk
