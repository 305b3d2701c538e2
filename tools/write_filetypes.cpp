// Writes the file-type registration files for an installed executable.
//
// `make install` runs this with XDG_DATA_HOME pointing at the install tree's
// share folder, so the MIME package and the two desktop entries are the very
// files the registration run mode writes for a user, naming the executable by
// the path it will have once installed (not the staging path under DESTDIR).
//
// Usage: vorka_filetypes EXECUTABLE_PATH
// Prints each file written; exits 1 when one could not be written.
#include <cstdio>
#include <string>

#include "platform/filetypes.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: vorka_filetypes EXECUTABLE_PATH\n");
        return 2;
    }
    int status = 0;
    for (const vrk::platform::FileTypeSetting& setting :
         vrk::platform::file_type_settings(argv[1])) {
        int error = vrk::platform::create_setting_location(setting.location);
        if (!error) error = vrk::platform::write_setting(setting.location, setting.value);
        if (error) {
            std::fprintf(stderr, "vorka_filetypes: cannot write %s\n", setting.location.c_str());
            status = 1;
            continue;
        }
        std::printf("%s\n", setting.location.c_str());
    }
    return status;
}
