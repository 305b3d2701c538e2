# Cross-build for 64-bit Windows with Debian's mingw-w64 (posix thread model):
#   cmake -S . -B build-win -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake
# Packages: g++-mingw-w64-x86-64-posix, libz-mingw-w64-dev; the results run
# under wine (wine64).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(VORKA_MINGW_PREFIX x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${VORKA_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${VORKA_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER ${VORKA_MINGW_PREFIX}-windres)

# Libraries and headers come from the mingw sysroot only; programs (cmake's
# helpers) from the build machine.
set(CMAKE_FIND_ROOT_PATH /usr/${VORKA_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The static zlib of libz-mingw-w64-dev, so that vorka.exe needs no zlib1.dll.
set(ZLIB_INCLUDE_DIR /usr/${VORKA_MINGW_PREFIX}/include CACHE PATH "zlib headers")
set(ZLIB_LIBRARY /usr/${VORKA_MINGW_PREFIX}/lib/libz.a CACHE FILEPATH "static zlib")
