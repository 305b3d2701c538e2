# Which sources and settings belong to the platform being built for.
#
# Each service in platform/ has one implementation per operating system beside
# its header: name_linux.cpp and name_windows.cpp. vorka_platform_filter()
# leaves the other platform's implementations out of a folder's sources;
# vorka_platform_settings() adds what the platform needs to a target (static
# linking and system libraries on Windows). GoogleTest and stb are
# found here as well, because cross-building changes where they come from.

if(WIN32)
  set(VORKA_PLATFORM_SUFFIX windows)
  set(VORKA_OTHER_PLATFORM_SUFFIX linux)
else()
  set(VORKA_PLATFORM_SUFFIX linux)
  set(VORKA_OTHER_PLATFORM_SUFFIX windows)
endif()

# vorka_platform_filter(<list variable>): drops the other platform's
# implementations from a folder's list of sources (vorka_layer calls it).
function(vorka_platform_filter var)
  set(sources ${${var}})
  list(FILTER sources EXCLUDE REGEX "_${VORKA_OTHER_PLATFORM_SUFFIX}\\.cpp$")
  set(${var} ${sources} PARENT_SCOPE)
endfunction()

# vorka_platform_settings(<target>): links what <target> needs from the
# system. Windows executables are linked statically (no runtime DLLs beside
# vorka.exe) with the registry and shell libraries, and get the 8 MB main
# stack that Linux gives by default, so that scripts may recurse as deep.
function(vorka_platform_settings target)
  if(WIN32)
    target_link_libraries(${target} PUBLIC advapi32 shell32)
    target_link_options(${target} PUBLIC -static -Wl,--stack,8388608)
  endif()
endfunction()

# stb is header-only: only its folder goes on the include path (never all of
# /usr/include, which would put the build machine's headers into a cross-build).
find_path(VORKA_STB_INCLUDE_DIR stb_image.h PATHS /usr/include/stb NO_DEFAULT_PATH
          NO_CMAKE_FIND_ROOT_PATH)

# vorka_find_gtest(): GTest::gtest and GTest::gtest_main. A cross-build has no
# prebuilt GoogleTest for its target, so it builds Debian's sources.
macro(vorka_find_gtest)
  if(CMAKE_CROSSCOMPILING)
    if(NOT TARGET gtest)
      set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
      set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
      add_subdirectory(/usr/src/googletest/googletest ${CMAKE_BINARY_DIR}/googletest
                       EXCLUDE_FROM_ALL)
      # Third-party code: not held to the project's warnings-as-errors.
      set_target_properties(gtest gtest_main PROPERTIES COMPILE_OPTIONS "")
      # GoogleTest's own build defines GTest::gtest and GTest::gtest_main.
    endif()
  else()
    find_package(GTest REQUIRED)
  endif()
endmacro()
