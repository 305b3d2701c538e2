// Tests of the free lists, the foreign-thread queues, the script lock, block
// temporaries and the callback queue.
#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "base/context.h"
#include "base/script_lock.h"
#include "values/pools.h"
#include "values/value_context.h"
#include "vm/block.h"

namespace vrk {
namespace {

class PoolsTest : public ::testing::Test {
protected:
    void SetUp() override { context().main_thread = current_thread_id(); }

    template <class T>
    static bool pooled(const vrkpool<T>& pool, const T* record) {
        return std::find(pool.free.begin(), pool.free.end(), record) != pool.free.end();
    }
};

// A one-shot signal between two threads.
class Signal {
public:
    void raise() {
        std::lock_guard<std::mutex> guard(m_);
        raised_ = true;
        cv_.notify_all();
    }
    void wait() {
        std::unique_lock<std::mutex> guard(m_);
        cv_.wait(guard, [this] { return raised_; });
    }

private:
    std::mutex m_;
    std::condition_variable cv_;
    bool raised_ = false;
};

TEST_F(PoolsTest, CellsComeBackBlankAndThePoolIsCapped) {
    vrkpool<vrkvar>& pool = value_context().pools.cell_pool;
    vrkvar* cell = cell_new(Tag::INT);
    cell->value.i = 42;
    cell->flags = flag::FIXED_TYPE | flag::NO_COUNT;
    cell->attrs = attr::OWNS_RESULT;
    cell->constant = 1;
    cell_free(cell);
    vrkvar* again = cell_new(Tag::INT);
    ASSERT_EQ(again, cell);
    EXPECT_EQ(again->value.i, 0);
    EXPECT_EQ(again->flags, 0);
    EXPECT_EQ(again->attrs, 0);
    EXPECT_EQ(again->constant, 0);
    cell_free(again);

    // Empty the pool, then give 1024 back: it is full, and the next cell freed
    // is destroyed.
    std::vector<vrkvar*> cells;
    for (std::size_t i = 0; i < kPoolCap + 1; ++i) cells.push_back(cell_new(Tag::INT));
    for (std::size_t i = 0; i < kPoolCap; ++i) cell_free(cells[i]);
    EXPECT_EQ(pool.free.size(), kPoolCap);
    const uint32_t live = live_cells();
    const uint32_t created = pool.created;
    cell_free(cells.back());
    EXPECT_EQ(pool.free.size(), kPoolCap);
    EXPECT_EQ(live_cells(), live - 1);
    cell_free(cell_new(Tag::INT));
    EXPECT_EQ(pool.created, created);
}

TEST_F(PoolsTest, DataBuffersOverOneMebibyteAreNotKept) {
    vrkpool<std::vector<uint8_t>>& pool = value_context().pools.data_pool;
    auto* fits = data_new();
    fits->reserve(kDataPoolMaxBytes);
    ASSERT_EQ(fits->capacity(), kDataPoolMaxBytes);
    fits->resize(10);
    data_free(fits);
    auto* too_big = data_new();
    ASSERT_EQ(too_big, fits);
    EXPECT_TRUE(too_big->empty());
    too_big->reserve(kDataPoolMaxBytes + 1);
    data_free(too_big);
    EXPECT_FALSE(pooled(pool, too_big));

    std::vector<std::vector<uint8_t>*> buffers;
    for (std::size_t i = 0; i < kDataPoolCap + 1; ++i) buffers.push_back(data_new());
    for (auto* b : buffers) data_free(b);
    EXPECT_EQ(pool.free.size(), kDataPoolCap);
    EXPECT_FALSE(pooled(pool, buffers.back()));
}

TEST_F(PoolsTest, ElementsKeepTheirKeyStringEmptied) {
    vrkelement* e = element_new_keyed("name");
    ASSERT_NE(e->key, nullptr);
    EXPECT_EQ(*e->key, "name");
    std::string* key = e->key;
    element_free(e);
    vrkelement* f = element_new();
    ASSERT_EQ(f, e);
    EXPECT_EQ(f->key, key);
    EXPECT_TRUE(f->key->empty());
    element_free(f);

    testing::internal::CaptureStdout();
    string_free(nullptr);
    cell_free(nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "[WARN]: null pointer passed!\n[WARN]: null pointer passed!\n");
}

TEST_F(PoolsTest, ElementsComeFromChunksThatGoBackOnceEmpty) {
    vrkslabs& slabs = value_context().pools.element_slabs;
    const uint32_t chunks = slabs.chunks;
    const uint32_t live = live_cells();
    // Ten chunks' worth, some keyed: every record names its chunk, and the
    // records of a new chunk are counted as cell records at once.
    std::vector<vrkelement*> elements;
    for (uint32_t i = 0; i < 10 * kSlabRecords; ++i)
        elements.push_back(i % 3 == 0 ? element_new_keyed("k" + std::to_string(i)) : element_new());
    std::vector<const vrkslab*> used;
    for (vrkelement* e : elements) {
        ASSERT_NE(e->slab, nullptr);
        EXPECT_EQ(e->type, Tag::INT);
        EXPECT_EQ(e->value.i, 0);
        if (std::find(used.begin(), used.end(), e->slab) == used.end()) used.push_back(e->slab);
    }
    EXPECT_GE(used.size(), 10u);
    auto counted = [&] {
        return int64_t{live} + (int64_t{slabs.chunks} - int64_t{chunks}) * kSlabRecords;
    };
    EXPECT_EQ(live_cells(), counted());
    // Freed, all but a few empty chunks go back to the heap, and the count
    // follows them.
    for (vrkelement* e : elements) element_free(e);
    EXPECT_LE(slabs.chunks, chunks + kSlabsKept);
    EXPECT_EQ(live_cells(), counted());
    // A record taken again is blank, with its key string emptied.
    vrkelement* again = element_new();
    EXPECT_TRUE(again->key == nullptr || again->key->empty());
    EXPECT_EQ(again->value.i, 0);
    element_free(again);
}

TEST_F(PoolsTest, WithoutPoolingElementsAreMadeAloneAndEmptyChunksGo) {
    vrkpools& pools = value_context().pools;
    vrkelement* cut = element_new_keyed("before");
    ASSERT_NE(cut->slab, nullptr);
    pools.set_pooling(false);
    vrkelement* alone = element_new_keyed("during");
    EXPECT_EQ(alone->slab, nullptr);
    const uint32_t live = live_cells();
    element_free(alone);
    EXPECT_EQ(live_cells(), live - 1);
    // A chunk record freed now goes back to its chunk, but records are made
    // alone until pooling is on again.
    element_free(cut);
    vrkelement* next = element_new();
    EXPECT_EQ(next->slab, nullptr);
    element_free(next);
    pools.set_pooling(true);
    vrkelement* pooled_again = element_new();
    EXPECT_NE(pooled_again->slab, nullptr);
    element_free(pooled_again);
}

TEST_F(PoolsTest, RecordsFreedOnAWorkerWaitForTheDrain) {
    vrkpools& pools = value_context().pools;
    // Leave room in the pools, so that the drained records are kept.
    std::vector<vrkvar*> held;
    while (pools.cell_pool.free.size() > 8) held.push_back(cell_new(Tag::INT));

    vrkvar* cell = cell_new(Tag::INT);
    vrkjson* json = json_new();
    vrkelement* element = element_new();
    json->elements.push_back(element);
    const uint32_t live = live_cells();
    uint32_t live_in_worker = 0;
    bool worker_pools = true;
    std::thread worker([&] {
        worker_pools = pool_thread();
        vrkvar* fresh = cell_new(Tag::INT);  // from the heap
        live_in_worker = live_cells();
        cell_free(fresh);
        cell_free(cell);
        json_free(json);
    });
    worker.join();
    EXPECT_FALSE(worker_pools);
    EXPECT_EQ(live_in_worker, live + 1);
    EXPECT_FALSE(pooled(pools.cell_pool, cell));
    EXPECT_EQ(json->elements.size(), 1u);

    drain_free_queues();
    EXPECT_TRUE(pools.cell_queue.empty());
    EXPECT_TRUE(pools.json_queue.empty());
    EXPECT_TRUE(pooled(pools.cell_pool, cell));
    EXPECT_TRUE(vrkslabs::is_free(element));
    EXPECT_TRUE(json->elements.empty());
    EXPECT_EQ(json_new(), json);
    json_free(json);
    for (vrkvar* c : held) cell_free(c);
}

TEST_F(PoolsTest, WorkerScriptLockWaitsForTheMainThread) {
    vrkcontext& ctx = context();
    const uint32_t main_id = current_thread_id();
    ctx.global_lock.lock();  // as a frame does
    ctx.lock_thread = main_id;

    Signal started, holding, released, resume;
    std::atomic<bool> acquired{false};
    uint32_t owner_seen = 0;
    uint32_t depth_nested = 0;
    std::thread worker([&] {
        started.raise();
        ScriptLock guard;
        acquired = true;
        owner_seen = pool_thread() ? ctx.lock_thread.load() : 0;
        {
            ScriptLock inner;
            depth_nested = ctx.lock_depth;
        }
        holding.raise();
        resume.wait();
        guard.unlock();
        released.raise();
    });

    started.wait();
    EXPECT_FALSE(acquired.load());
    {
        ScriptLock main_guard;  // takes nothing
        EXPECT_TRUE(pool_thread());
    }
    ctx.lock_thread = 0;
    ctx.global_lock.unlock();

    holding.wait();
    EXPECT_NE(owner_seen, main_id);
    EXPECT_NE(owner_seen, 0u);
    EXPECT_EQ(depth_nested, 2u);
    EXPECT_FALSE(ctx.global_lock.try_lock());
    resume.raise();
    released.wait();
    // Inside the unlock bracket the lock is free; the guard takes it back to
    // release it at the end of its scope.
    ASSERT_TRUE(ctx.global_lock.try_lock());
    ctx.global_lock.unlock();
    worker.join();
    EXPECT_EQ(ctx.lock_thread, 0u);
    EXPECT_EQ(ctx.lock_depth, 0u);
}

TEST_F(PoolsTest, MainThreadUnlockGivesTheFrameLockAwayAndTakesItBack) {
    vrkcontext& ctx = context();
    const uint32_t main_id = current_thread_id();
    ctx.global_lock.lock();
    ctx.lock_thread = main_id;
    auto other_can_lock = [&] {
        bool got = false;
        std::thread t([&] {
            got = ctx.global_lock.try_lock();
            if (got) ctx.global_lock.unlock();
        });
        t.join();
        return got;
    };
    {
        ScriptLock guard;
        EXPECT_FALSE(other_can_lock());
        guard.unlock();
        EXPECT_TRUE(other_can_lock());
    }
    EXPECT_EQ(ctx.lock_thread, main_id);
    EXPECT_FALSE(other_can_lock());
    ctx.lock_thread = 0;
    ctx.global_lock.unlock();
}

TEST_F(PoolsTest, TempPoolCountsAndReplacesLostEntries) {
    vrkblock block(nullptr);
    vrkvar* a = take_temp(&block);
    vrkvar* b = take_temp(&block);
    vrktemp_pool& temps = block.get_temp_pool();
    EXPECT_EQ(temps.in_use, 2);
    b->value.i = 99;
    b->attrs = attr::OWNS_RESULT;
    return_temp(&block, b);
    EXPECT_EQ(temps.in_use, 1);
    vrkvar* c = take_temp(&block);
    EXPECT_EQ(c, b);
    EXPECT_EQ(c->value.i, 0);
    EXPECT_EQ(c->attrs, 0);

    // A lost (null) entry is reported and a new temp made in its place.
    temps.free.push_back(nullptr);
    testing::internal::CaptureStdout();
    vrkvar* d = take_temp(&block);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("allocation failure!"),
              std::string::npos);
    EXPECT_NE(d, nullptr);
    EXPECT_EQ(temps.all.size(), 3u);
    EXPECT_EQ(temps.in_use, 3);
    for (vrkvar* t : {a, c, d}) return_temp(&block, t);
    EXPECT_EQ(temps.in_use, 0);
}

TEST_F(PoolsTest, CallbacksFireOnceByHandle) {
    std::vector<uint64_t> calls;
    auto record = [&](uint64_t h) { calls.push_back(h); };
    callback_add(record, 9001, nullptr, 1);
    callback_add(record, 9001, nullptr, 3);
    callback_add(record, 9002, nullptr, 1);
    EXPECT_TRUE(callback_fire(9001, false));
    EXPECT_TRUE(calls.empty());
    EXPECT_TRUE(callback_fire(9001, true));
    EXPECT_EQ(calls, (std::vector<uint64_t>{9001, 9001}));
    EXPECT_FALSE(callback_fire(9001, true));
    // A callback may fire others while it runs.
    callback_add(
        [&](uint64_t h) {
            calls.push_back(h);
            callback_fire(9002, true);
        },
        9003, nullptr, 1);
    EXPECT_TRUE(callback_fire(9003, true));
    EXPECT_EQ(calls, (std::vector<uint64_t>{9001, 9001, 9003, 9002}));
}

}  // namespace
}  // namespace vrk
