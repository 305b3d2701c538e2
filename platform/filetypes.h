// Where the association of the two file types with the executable is stored.
//
// Registering the file types means putting a handful of settings in place,
// each a location holding a text: on Windows the default values of keys under
// the user's classes in the registry, on Linux the files of the user's XDG
// data folder (a MIME package naming the two types and one desktop entry for
// each, which opens such a file with this executable). The host decides what
// to do with a setting (compare, write, report); this interface only names the
// settings and reads and writes them, and afterwards tells the desktop that
// the associations changed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vrk::platform {

// One setting of the registration.
struct FileTypeSetting {
    std::string location;  // registry key or file path
    std::string value;     // the text it must hold
};

// The settings that tie source (.vrs) and compiled (.vre) files to the
// executable at `executablePath`, in the order they are written.
std::vector<FileTypeSetting> file_type_settings(const std::string& executablePath);

// Outcome of reading a setting.
enum class SettingStatus : uint8_t { found, missing, failed };

// What a setting holds now.
struct SettingRead {
    SettingStatus status = SettingStatus::missing;  // found, missing or unreadable
    std::string value;                              // the text, when found
    int error = 0;                                  // system error number, when failed
    int unhandledType = -1;                         // system type of a non-text value, else -1
};

// Reads a setting.
SettingRead read_setting(const std::string& location);

// Creates the place a setting lives in (its key, or the folders of its file).
// Returns 0 or a system error number.
int create_setting_location(const std::string& location);

// Stores the text of a setting. Returns 0 or a system error number.
int write_setting(const std::string& location, const std::string& value);

// Tells the desktop that file associations changed.
void announce_file_types_changed();

// Whether the process may register the types for every user. Windows asks the
// process token and prints its own note to standard output when it cannot;
// Linux registers per user only, where no such right is needed, and says yes.
bool may_register_system_wide();

}  // namespace vrk::platform
