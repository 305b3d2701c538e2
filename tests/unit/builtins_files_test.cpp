// The threaded file builtins hand their work to worker threads and write the
// result cell when the job ends; child processes leave no descriptor behind.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "base/context.h"
#include "base/script_lock.h"
#include "builtins/data.h"
#include "builtins/registry.h"
#include "host/engine.h"
#include "platform/process_spawn.h"
#include "platform/system.h"
#include "values/json.h"
#include "vm/block.h"

namespace vrk {
namespace {

namespace fs = std::filesystem;

class BuiltinsFilesTest : public ::testing::Test {
protected:
    void SetUp() override {
        context().main_thread = current_thread_id();
        caller = block_new(&engine);
        dir = fs::temp_directory_path() /
              ("vorka_files_test_" + std::to_string(std::random_device{}()));
        fs::create_directories(dir / "sub");
        std::ofstream(dir / "a.txt", std::ios::binary) << "alpha";
        std::ofstream(dir / "sub" / "b.bin", std::ios::binary) << "beta!";
    }
    void TearDown() override {
        for (vrkvar* c : owned) cell_free(c);
        reset(&result, Tag::INT);
        block_delete(caller);
        std::error_code ignored;
        fs::remove_all(dir, ignored);
    }

    // Calls a builtin as the run loop would and, when it went to a worker,
    // runs frames until the worker has been reaped.
    vrkvar* call(const char* name, std::vector<vrkvar*> args) {
        reset(&result, Tag::INT);
        vrkvar* fn = engine.firstBlock->find_var(name);
        EXPECT_NE(fn, nullptr) << name;
        if (!fn) return nullptr;
        vrknative* record = fn->value.native;
        vrkvar* answer = record->fn(caller, args, record->user, result);
        while (!engine.activeThreads.empty() || !engine.pendingThreads.empty()) engine.frame();
        return answer;
    }
    vrkvar* text(const std::string& s) {
        owned.push_back(cell_new(Tag::INT));
        set_string(owned.back(), s);
        return owned.back();
    }
    std::vector<std::string> strings(vrkvar* cell) {
        std::vector<std::string> out;
        if (cell->type != Tag::JSON) return out;
        for (vrkelement* e : cell->value.json->elements) out.push_back(to_string(e));
        return out;
    }

    vrkscript engine;
    vrkblock* caller = nullptr;
    vrkvar result;
    std::vector<vrkvar*> owned;
    fs::path dir;
};

TEST_F(BuiltinsFilesTest, ThreadedReadsAndHashesAgreeWithTheDirectForms) {
    const std::string a = (dir / "a.txt").generic_string();
    vrkvar* r = call("filereadthread", {text(a)});
    ASSERT_EQ(r, &result);
    ASSERT_EQ(result.type, Tag::DATA);
    EXPECT_EQ(std::string(result.value.data->begin(), result.value.data->end()), "alpha");

    call("filehash", {text(a)});
    const int64_t direct = to_int(&result);
    const std::string bytes = "alpha";
    EXPECT_EQ(direct, static_cast<int32_t>(
                          data_hash(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size())));
    call("filehashthread", {text(a)});
    EXPECT_EQ(to_int(&result), direct);

    call("filereadthread", {text((dir / "missing").generic_string())});
    ASSERT_EQ(result.type, Tag::DATA);
    EXPECT_TRUE(result.value.data->empty());
}

TEST_F(BuiltinsFilesTest, WalksFillTheResultOnTheWorker) {
    const std::string d = dir.generic_string();
    call("files", {text(d), text(""), text(d + "/nothing")});
    EXPECT_EQ(strings(&result), (std::vector<std::string>{d + "/a.txt", d + "/sub/b.bin"}));
    call("filesext", {text(d), text(".bin")});
    EXPECT_EQ(strings(&result), (std::vector<std::string>{d + "/sub/b.bin"}));
    call("folders", {text(d)});
    EXPECT_EQ(strings(&result), (std::vector<std::string>{d + "/sub"}));
    call("folder_content", {text(d)});
    ASSERT_EQ(result.type, Tag::JSON);
    ASSERT_EQ(result.value.json->elements.size(), 2u);
    EXPECT_EQ(strings(result.value.json->elements[0]), (std::vector<std::string>{"a.txt"}));
    EXPECT_EQ(strings(result.value.json->elements[1]), (std::vector<std::string>{"sub"}));
}

// Open descriptors of the process, counted through /proc (Linux only).
std::size_t open_descriptors() {
    std::size_t n = 0;
    for ([[maybe_unused]] const auto& e : fs::directory_iterator("/proc/self/fd")) ++n;
    return n;
}

TEST(ProcessSpawnTest, ChildrenLeaveNoDescriptorAndCanBeEndedInAnyState) {
    if (std::string(platform::platform_name()) != "LINUX") GTEST_SKIP() << "uses /bin/cat";
    const std::size_t before = open_descriptors();
    for (int round = 0; round < 3; ++round) {
        platform::spawned_process child;
        std::string failure;
        ASSERT_TRUE(platform::spawn_process("/bin/cat", nullptr, child, failure)) << failure;
        ASSERT_TRUE(platform::process_write(child, "ping", 4));
        std::string got;
        char buffer[16];
        while (got.size() < 4) {
            if (platform::process_available(child) > 0) {
                const int64_t n = platform::process_read(child, buffer, sizeof(buffer));
                ASSERT_GT(n, 0);
                got.append(buffer, static_cast<std::size_t>(n));
            } else {
                platform::sleep_ms(1);
            }
        }
        EXPECT_EQ(got, "ping");
        platform::process_terminate(child);
        EXPECT_EQ(child.process, 0);
        EXPECT_FALSE(platform::process_write(child, "x", 1));
    }
    // A child that ends by itself is collected, and a write to it fails
    // without ending the test process.
    platform::spawned_process quick;
    std::string failure;
    const std::string line = "/bin/sh -c \"exit 0\"";
    ASSERT_TRUE(platform::spawn_process("/bin/sh", &line, quick, failure));
    while (!quick.collected) {
        platform::process_available(quick);
        platform::sleep_ms(1);
    }
    std::vector<char> lots(1 << 20, 'x');
    EXPECT_FALSE(platform::process_write(quick, lots.data(), lots.size()));
    platform::process_terminate(quick);

    EXPECT_FALSE(platform::spawn_process("/nonexistent/program", nullptr, quick, failure));
    EXPECT_EQ(failure, "create");
    EXPECT_EQ(open_descriptors(), before);
}

}  // namespace
}  // namespace vrk
