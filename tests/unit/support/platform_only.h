// Marks for tests that hold on one platform only.
//
// The same unit tests are built for Linux and for Windows. A test whose subject
// exists on one side only (XDG files, the registry, ANSI escapes) opens with
// one of these marks: on the other platform it is reported as skipped, with the
// reason, instead of failing or being left out of the build.
#pragma once

#include <gtest/gtest.h>

#include <string_view>

#include "platform/system.h"

namespace vrk::test_platform {

// True in the Windows build.
inline bool built_for_windows() { return std::string_view(platform::platform_name()) == "WINDOWS"; }

}  // namespace vrk::test_platform

// Skips the rest of the test outside the Linux build.
#define VRK_LINUX_ONLY(reason) \
    if (::vrk::test_platform::built_for_windows()) GTEST_SKIP() << "Linux only: " << (reason)

// Skips the rest of the test outside the Windows build.
#define VRK_WINDOWS_ONLY(reason) \
    if (!::vrk::test_platform::built_for_windows()) GTEST_SKIP() << "Windows only: " << (reason)
