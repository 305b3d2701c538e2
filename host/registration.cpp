// The registration run mode and setRegistryDefault.
#include "host/registration.h"

#include "base/log.h"
#include "platform/filetypes.h"
#include "platform/system.h"

namespace vrk {

namespace {

// Wait before the registration ends.
constexpr int64_t kRegistrationWaitMs = 3000;
// Exit code of the registration.
constexpr int kRegistrationExitCode = 1;

}  // namespace

void setRegistryDefault(const std::string& location, const std::string& value) {
    const char* where = location.c_str();
    const platform::SettingRead current = platform::read_setting(location);
    if (current.status == platform::SettingStatus::failed)
        log().log("RegGetValue( %s ): %s\n", where, platform::error_text(current.error).c_str());
    if (current.unhandledType >= 0)
        log().log("RegGetValue( %s ) found type unhandled %d\n", where, current.unhandledType);
    if (current.status != platform::SettingStatus::missing && current.value == value) return;

    if (const int error = platform::create_setting_location(location))
        log().log("RegCreateKeyEx( %s ): %s\n", where, platform::error_text(error).c_str());
    if (const int error = platform::write_setting(location, value))
        log().log("RegSetValueEx( %s ): %s\n", where, platform::error_text(error).c_str());

    if (current.status == platform::SettingStatus::found)
        log().log("RegSet( %s ): changed \"%s\" to \"%s\"\n", where, current.value.c_str(),
                  value.c_str());
    else
        log().log("RegSet( %s ): set to \"%s\"", where, value.c_str());
}

int register_file_types(const std::string& executablePath) {
    if (!platform::may_register_system_wide())
        log().error("you have to run this as administrator to register vorkascript system wide.");
    for (const platform::FileTypeSetting& setting : platform::file_type_settings(executablePath))
        setRegistryDefault(setting.location, setting.value);
    platform::announce_file_types_changed();
    platform::sleep_ms(kRegistrationWaitMs);
    return kRegistrationExitCode;
}

}  // namespace vrk
