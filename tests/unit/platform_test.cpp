// The platform services that behave alike on every platform: folder listings
// in name order with folders marked, a frame clock that a wake-up ends, and
// the local calendar of a moment.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "platform/files.h"
#include "platform/frame_clock.h"
#include "platform/local_time.h"

namespace vrk {
namespace {

namespace fs = std::filesystem;

TEST(PlatformFiles, ListsEntriesByNameWithFoldersMarked) {
    std::random_device random;
    const fs::path dir = fs::temp_directory_path() / ("vorka_files_" + std::to_string(random()));
    fs::create_directories(dir / "b_folder");
    std::ofstream(dir / "c.txt") << "x";
    std::ofstream(dir / "a.vrs") << "x";
    // A name beyond ASCII comes back as the same UTF-8 bytes.
    std::ofstream(dir / fs::path(u8"\u00e9t\u00e9.txt")) << "x";

    std::vector<platform::folder_entry> entries;
    ASSERT_TRUE(platform::list_folder(dir.string(), entries));
    std::vector<std::string> names;
    for (const platform::folder_entry& entry : entries) {
        if (entry.name == "." || entry.name == "..") continue;
        names.push_back(entry.name + (entry.is_directory ? "/" : ""));
    }
    EXPECT_EQ(names,
              (std::vector<std::string>{"a.vrs", "b_folder/", "c.txt", "\xc3\xa9t\xc3\xa9.txt"}));

    EXPECT_FALSE(platform::list_folder((dir / "missing").string(), entries));
    EXPECT_TRUE(entries.empty());
    fs::remove_all(dir);
}

TEST(PlatformFrameClock, AWakeEndsTheNextWait) {
    int error = -1;
    std::unique_ptr<platform::FrameClock> clock = platform::FrameClock::create(error);
    ASSERT_NE(clock, nullptr) << "system error " << error;
    clock->wake();
    EXPECT_TRUE(clock->wait());
    // Without a wake-up the periodic tick ends the wait.
    EXPECT_TRUE(clock->wait());
}

TEST(PlatformLocalTime, AMomentReadsAsItsDateInAnyZone) {
    // Mid-month noon, so that no time zone moves the date out of the month.
    const platform::calendar_time t = platform::local_time(1721044800);  // 2024-07-15 12:00 UTC
    EXPECT_EQ(t.year, 2024);
    EXPECT_EQ(t.month, 7);
    EXPECT_TRUE(t.day >= 14 && t.day <= 16) << t.day;
    EXPECT_EQ(t.minute % 15, 0);  // every zone is a whole quarter hour off UTC
    EXPECT_EQ(t.second, 0);
}

}  // namespace
}  // namespace vrk
