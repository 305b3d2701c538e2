// Tests of the file-type registration: setRegistryDefault writes only what
// changed and reports it, and the settings name the executable correctly.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "base/log.h"
#include "host/registration.h"
#include "platform/filetypes.h"
#include "support/platform_only.h"

namespace vrk {
namespace {

namespace fs = std::filesystem;

// Collects the log lines written while it exists.
class LogCapture {
public:
    LogCapture() {
        id = log().addListener([this](ScriptLogType, const char* text) {
            lines.emplace_back(text);
            return true;
        });
    }
    ~LogCapture() { log().removeListener(id); }
    std::vector<std::string> lines;  // messages without prefix

private:
    uint32_t id = 0;
};

class Registration : public ::testing::Test {
protected:
    void SetUp() override {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        folder = fs::temp_directory_path() / (std::string("vorka-registration-") + info->name());
        fs::remove_all(folder);
    }
    void TearDown() override { fs::remove_all(folder); }

    static std::string content(const fs::path& path) {
        std::ifstream in(path, std::ios::binary);
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }

    fs::path folder;
};

TEST_F(Registration, WritesOnlyWhatChangedAndReportsIt) {
    VRK_LINUX_ONLY("settings are files");
    const std::string path = (folder / "deep" / "er" / "setting.txt").string();
    LogCapture capture;

    setRegistryDefault(path, "first");
    EXPECT_EQ(content(path), "first");
    ASSERT_EQ(capture.lines.size(), 1u);
    EXPECT_EQ(capture.lines[0], "RegSet( " + path + " ): set to \"first\"");

    setRegistryDefault(path, "first");
    EXPECT_EQ(capture.lines.size(), 1u);  // unchanged: silent

    setRegistryDefault(path, "second %s");
    EXPECT_EQ(content(path), "second %s");
    ASSERT_EQ(capture.lines.size(), 2u);
    EXPECT_EQ(capture.lines[1], "RegSet( " + path + " ): changed \"first\" to \"second %s\"\n");
}

TEST_F(Registration, ReportsSettingsThatCannotBeReadOrWritten) {
    VRK_LINUX_ONLY("settings are files");
    // A folder where the file should be can be opened but neither read nor written.
    fs::create_directories(folder / "taken");
    const std::string path = (folder / "taken").string();
    LogCapture capture;
    setRegistryDefault(path, "value");
    ASSERT_EQ(capture.lines.size(), 3u);
    EXPECT_EQ(capture.lines[0].rfind("RegGetValue( " + path + " ): ", 0), 0u);
    EXPECT_EQ(capture.lines[1].rfind("RegSetValueEx( " + path + " ): ", 0), 0u);
    EXPECT_EQ(capture.lines[2], "RegSet( " + path + " ): set to \"value\"");
    EXPECT_TRUE(fs::is_directory(folder / "taken"));
}

TEST(FileTypeSettings, NameBothTypesAndOpenThemWithTheExecutable) {
    VRK_LINUX_ONLY("a MIME package and desktop entries");
    const auto settings = platform::file_type_settings("/opt/my vorka/bin$/vor\"ka%");
    ASSERT_EQ(settings.size(), 3u);
    EXPECT_TRUE(settings[0].location.ends_with("/mime/packages/vorkascript.xml"));
    EXPECT_NE(settings[0].value.find("<glob pattern=\"*.vrs\"/>"), std::string::npos);
    EXPECT_NE(settings[0].value.find("<glob pattern=\"*.vre\"/>"), std::string::npos);
    EXPECT_NE(settings[0].value.find("<sub-class-of type=\"text/plain\"/>"), std::string::npos);

    EXPECT_TRUE(settings[1].location.ends_with("/applications/vorkascript.desktop"));
    EXPECT_TRUE(settings[2].location.ends_with("/applications/vorkascript-program.desktop"));
    // Quoted, with $ and " escaped inside the quotes, the escaping backslashes
    // doubled for the desktop file's string rules, and % doubled.
    const std::string program = "Exec=\"/opt/my vorka/bin\\\\$/vor\\\\\"ka%%\"";
    EXPECT_NE(settings[1].value.find(program + " -s=%f\n"), std::string::npos);
    EXPECT_NE(settings[1].value.find("MimeType=text/x-vorkascript;\n"), std::string::npos);
    EXPECT_NE(settings[2].value.find(program + " -crun=%f\n"), std::string::npos);
    EXPECT_NE(settings[2].value.find("MimeType=application/x-vorkascript-program;\n"),
              std::string::npos);
}

TEST_F(Registration, RegistryKeysWrittenOnlyWhenChanged) {
    VRK_WINDOWS_ONLY("settings are registry keys");
    // A fresh key each run: the registry outlives the test.
    std::random_device random;
    const std::string key = "Software\\vorka-tests\\run" + std::to_string(random());
    LogCapture capture;

    setRegistryDefault(key, "first");
    platform::SettingRead read = platform::read_setting(key);
    ASSERT_EQ(read.status, platform::SettingStatus::found);
    EXPECT_EQ(read.value, "first");
    EXPECT_EQ(read.unhandledType, -1);
    ASSERT_EQ(capture.lines.size(), 1u);
    EXPECT_EQ(capture.lines[0], "RegSet( " + key + " ): set to \"first\"");

    setRegistryDefault(key, "first");
    EXPECT_EQ(capture.lines.size(), 1u);  // unchanged: silent

    setRegistryDefault(key, "second %s");
    EXPECT_EQ(platform::read_setting(key).value, "second %s");
    ASSERT_EQ(capture.lines.size(), 2u);
    EXPECT_EQ(capture.lines[1], "RegSet( " + key + " ): changed \"first\" to \"second %s\"\n");

    EXPECT_EQ(platform::read_setting(key + "\\absent").status, platform::SettingStatus::missing);
}

TEST(FileTypeSettings, RegistryKeysNameBothTypesAndTheirCommands) {
    VRK_WINDOWS_ONLY("settings are registry keys");
    const auto settings = platform::file_type_settings("C:\\my vorka\\vorka.exe");
    ASSERT_EQ(settings.size(), 8u);
    const std::vector<std::pair<std::string, std::string>> expected = {
        {".vrs", "tallowmere.vorkaengine.1"},
        {".vrs\\Content Type", "text/plain"},
        {".vrs\\PerceivedType", "text"},
        {".vre", "tallowmere.vorkaengine.4"},
        {"tallowmere.vorkaengine.1", "vorkascript"},
        {"tallowmere.vorkaengine.1\\Shell\\Open\\Command", "\"C:\\my vorka\\vorka.exe\" -s=\"%1\""},
        {"tallowmere.vorkaengine.4", "VorkaExecutable"},
        {"tallowmere.vorkaengine.4\\Shell\\Open\\Command",
         "\"C:\\my vorka\\vorka.exe\" -crun=\"%1\""},
    };
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(settings[i].location, "Software\\Classes\\" + expected[i].first);
        EXPECT_EQ(settings[i].value, expected[i].second);
    }
}

}  // namespace
}  // namespace vrk
