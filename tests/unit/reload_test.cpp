// Reload on file change: the platform's folder watcher and the listener's
// conditions, debounce and reload, driven without the 3 s poll of the host.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/context.h"
#include "base/log.h"
#include "base/script_lock.h"
#include "frontend/parser.h"
#include "host/engine.h"
#include "host/host_state.h"
#include "host/reload.h"
#include "platform/system.h"
#include "support/platform_only.h"
#include "vm/block.h"
#include "vm/run.h"

namespace vrk::test {
namespace {

namespace fs = std::filesystem;
using platform::FW::Action;

void write_file(const fs::path& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
}

// A fresh folder, removed with the fixture.
class TempFolder {
public:
    explicit TempFolder(const char* name) {
        path = fs::temp_directory_path() /
               (std::string(name) + "_" + std::to_string(platform::monotonic_ms()));
        fs::remove_all(path);
        fs::create_directories(path);
    }
    ~TempFolder() {
        std::error_code error;
        fs::remove_all(path, error);
    }
    fs::path path;  // the folder
};

// Records every change it hears of.
struct Recorder : platform::FW::FileWatchListener {
    struct Change {
        std::string directory;  // folder as given to addWatch
        std::string fileName;   // name below it
        Action action;          // what happened
    };
    void handleFileAction(platform::FW::WatchID, const std::string& directory,
                          const std::string& fileName, Action action) override {
        changes.push_back({directory, fileName, action});
    }
    bool saw(const std::string& name, Action action) const {
        for (const auto& c : changes)
            if (c.fileName == name && c.action == action) return true;
        return false;
    }
    std::vector<Change> changes;  // in the order heard
};

TEST(FileWatcher, MissingFolderThrowsWithItsName) {
    platform::FW::FileWatcher watcher;
    Recorder recorder;
    const std::string missing = (fs::temp_directory_path() / "vorka_no_such_folder_x").string();
    try {
        watcher.addWatch(missing, &recorder, true);
        FAIL() << "no exception";
    } catch (const platform::FW::FileNotFoundException& e) {
        EXPECT_EQ(std::string(e.what()), "File not found (" + missing + ")");
    }
}

TEST(FileWatcher, ReportsChangesRelativeToTheWatchedFolder) {
    VRK_LINUX_ONLY("change notifications under wine are not relied on");
    TempFolder folder("vorka_watch");
    fs::create_directories(folder.path / "sub");
    write_file(folder.path / "old.txt", "x");
    platform::FW::FileWatcher watcher;
    Recorder recorder;
    const std::string top = folder.path.string();
    watcher.addWatch(top, &recorder, true);
    watcher.update();
    EXPECT_TRUE(recorder.changes.empty()) << "nothing happened yet";

    write_file(folder.path / "a.vrs", "print(1);");  // created and written
    write_file(folder.path / "sub" / "b.vrs", "x");  // in a sub-folder
    fs::create_directories(folder.path / "late");    // a folder made after the watch
    watcher.update();                                // puts the new folder under watch
    write_file(folder.path / "late" / "c.vrs", "x");
    fs::rename(folder.path / "old.txt", folder.path / "new.txt");
    fs::remove(folder.path / "a.vrs");
    watcher.update();

    EXPECT_TRUE(recorder.saw("a.vrs", Action::Add));
    EXPECT_TRUE(recorder.saw("a.vrs", Action::Modified));
    EXPECT_TRUE(recorder.saw("sub/b.vrs", Action::Modified));
    EXPECT_TRUE(recorder.saw("late/c.vrs", Action::Modified));
    EXPECT_TRUE(recorder.saw("old.txt", Action::Delete)) << "a rename's old name goes";
    EXPECT_TRUE(recorder.saw("new.txt", Action::Add)) << "and its new name comes";
    EXPECT_TRUE(recorder.saw("a.vrs", Action::Delete));
    for (const auto& c : recorder.changes) EXPECT_EQ(c.directory, top);

    const std::size_t heard = recorder.changes.size();
    watcher.removeWatch(top);
    write_file(folder.path / "d.vrs", "x");
    watcher.update();
    EXPECT_EQ(recorder.changes.size(), heard) << "a removed watch is silent";
}

// The listener against a real engine and script; each change is handed over
// from another thread, as the watcher thread does, while this thread runs
// the frames that the reload waits for.
class ReloadTest : public ::testing::Test {
protected:
    void SetUp() override {
        context().main_thread = current_thread_id();
        script = folder.path / "t.vrs";
        // The root waits, so that a reload has a waiting block to stop.
        write_file(script, "print(\"reload test ran\");\nsleep(1000000);\n");
        vrkhost_state& host = host_state();
        host.mainEngine = &engine;
        host.scriptDirectory = folder.path.string();
        host.scriptPath = script.string();
        host.autoReload = 1;
        host.nextReloadTime = 0;
        host.mainParser = engine.load(script.string(), true, true);
        ASSERT_NE(host.mainParser, nullptr);
        ASSERT_NE(host.mainParser->root_block, nullptr);
        run(host.mainParser->root_block, nullptr, 0, kSelfUnchanged);
        engine.frame();
        ASSERT_EQ(engine.sleepingBlocks.size(), 1u);
        runs = 0;
        listenerId = log().addListener([this](ScriptLogType, const char* text) {
            if (std::string(text).find("reload test ran") != std::string::npos) ++runs;
            return true;
        });
    }
    void TearDown() override {
        log().removeListener(listenerId);
        vrkhost_state& host = host_state();
        host.mainEngine = nullptr;
        host.mainParser = nullptr;
        host.autoReload = 0;
        host.scriptDirectory.clear();
        host.scriptPath.clear();
        host.nextReloadTime = 0;
    }

    // One change through the listener on a thread of its own.
    void change(const std::string& directory, const std::string& name, Action action) {
        std::atomic<bool> done{false};
        std::thread watcherThread([&] {
            UpdateListener listener;
            listener.handleFileAction(1, directory, name, action);
            done = true;
        });
        while (!done) {
            engine.frame();
            platform::sleep_ms(1);
        }
        watcherThread.join();
        engine.frame();
    }
    std::string dir() const { return folder.path.string(); }

    TempFolder folder{"vorka_reload"};
    fs::path script;
    vrkscript engine;
    std::atomic<int> runs{0};  // "reload test ran" lines since SetUp
    uint32_t listenerId = 0;
};

TEST_F(ReloadTest, OnlyAWriteOfAVrsNameInTheScriptFolderReloads) {
    vrkhost_state& host = host_state();
    host.autoReload = 0;
    change(dir(), "t.vrs", Action::Modified);
    EXPECT_EQ(host.nextReloadTime.load(), 0) << "auto reload off: no effect at all";

    host.autoReload = 1;
    const std::pair<std::string, Action> ignored[] = {
        {"t.vrs", Action::Add}, {"t.vrs", Action::Delete}, {"notes.txt", Action::Modified}};
    for (const auto& [name, action] : ignored) {
        host.nextReloadTime = 0;
        const int64_t before = platform::monotonic_ms();
        change(dir(), name, action);
        EXPECT_GE(host.nextReloadTime.load(), before + kReloadDebounceMs)
            << name << ": a change that does not match still starts the quiet time";
    }
    host.nextReloadTime = 0;
    change(dir() + "/", "t.vrs", Action::Modified);
    host.nextReloadTime = 0;
    change("", "t.vrs", Action::Modified);
    EXPECT_EQ(runs, 0) << "no reload so far";
    EXPECT_EQ(engine.sleepingBlocks.size(), 1u) << "the first root still waits";

    host.nextReloadTime = 0;
    change(dir(), "t.vrs.bak", Action::Modified);
    EXPECT_EQ(runs, 1) << "\".vrs\" anywhere in the name reloads: the new root ran";
    EXPECT_EQ(engine.parsers.size(), 1u) << "one script";
    EXPECT_TRUE(engine.retiredParsers.empty()) << "the stopped old script was not kept";

    host.nextReloadTime = 0;
    change(dir(), "sub/other.vrs", Action::Modified);
    EXPECT_EQ(runs, 2) << "a file in a sub-folder reloads the first script too";
    EXPECT_EQ(engine.parsers.size(), 1u);
    EXPECT_EQ(engine.sleepingBlocks.size(), 1u) << "only the new root waits";
}

TEST_F(ReloadTest, ChangesWithinTheQuietTimeAfterAReloadAreIgnored) {
    vrkhost_state& host = host_state();
    write_file(script, "print(\"reload test ran\");\n");  // the new text does not wait
    change(dir(), "t.vrs", Action::Modified);
    change(dir(), "t.vrs", Action::Modified);
    change(dir(), "t.vrs", Action::Modified);
    EXPECT_EQ(runs, 1) << "three saves in a row reload once";
    EXPECT_TRUE(engine.sleepingBlocks.empty()) << "the old waiting root was stopped";
    EXPECT_EQ(engine.parsers.size(), 1u);
    EXPECT_GT(host.nextReloadTime.load(), platform::monotonic_ms());
}

}  // namespace
}  // namespace vrk::test
