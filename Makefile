# Convenience front end over CMake and CTest.
#
#   make run        install missing packages, build, run examples/hello.vrs
#   make test       install missing packages, build, run every test (ctest)
#   make asan-test  the same in build-asan with AddressSanitizer and UBSan
#   make format     format every C++ file with .clang-format
#   make format-check  fail when a C++ file is not formatted
#   make tidy       run clang-tidy (.clang-tidy) over every file the build compiles
#   make windows       cross-build build-win/vorka.exe and its unit tests (mingw-w64)
#   make windows-test  the same, then its unit and script tests under wine
#   make tsan-test  the worker-thread tests in build-tsan with ThreadSanitizer
#   make pgo        build-pgo/vorka optimised with a profile of the bench workloads
#   make clean      remove the build directories
#   make install    build and install under $(PREFIX) (staged under $(DESTDIR))
#   make uninstall  remove what make install put there
#
# Every target starts with tools/setup-deps.sh, which is silent when nothing is
# missing. The generator is chosen when a build directory is first configured:
# Ninja when it is installed, else Unix Makefiles; an existing directory keeps
# the generator it was made with.

JOBS       ?= 2
BUILD_DIR  ?= build
ASAN_DIR   ?= build-asan
WIN_DIR    ?= build-win
# The Windows build exists to be tested under wine: no optimisation keeps the
# cross-build short on a busy machine.
WIN_CMAKE_ARGS ?= -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS_RELEASE='-O0 -DNDEBUG'
TSAN_DIR   ?= build-tsan
PGO_DIR    ?= build-pgo
# Unit tests that start worker threads, and the script thread stress tests; only
# these run under ThreadSanitizer.
TSAN_TESTS ?= ^Workers|^LogTest\.Threads|^ScriptThreads|^EngineTest\.(FinishedWorker|PendingThreads)|^BuiltinsArraysTest\.Objects|^BuiltinsFilesTest|^BitmapJobsTest
SCRIPT     ?= examples/hello.vrs
CTEST_ARGS ?=

# Installation: the executable, its manual page, and the MIME package and
# desktop entries that the registration run mode writes for one user, here for
# every user of the prefix.
PREFIX     ?= /usr/local
DESTDIR    ?=
BINDIR     := $(DESTDIR)$(PREFIX)/bin
MAN1DIR    := $(DESTDIR)$(PREFIX)/share/man/man1
DATADIR    := $(DESTDIR)$(PREFIX)/share
SDKINCDIR  := $(DESTDIR)$(PREFIX)/include/vorka
SDKCMAKEDIR := $(DESTDIR)$(PREFIX)/lib/cmake/vorka
INSTALLED  := $(BINDIR)/vorka $(MAN1DIR)/vorka.1 \
              $(DATADIR)/mime/packages/vorkascript.xml \
              $(DATADIR)/applications/vorkascript.desktop \
              $(DATADIR)/applications/vorkascript-program.desktop \
              $(SDKINCDIR)/module.h $(SDKCMAKEDIR)/vorkaConfig.cmake

# Default time limit, in seconds, for a test that sets none of its own.
TEST_TIMEOUT ?= 600

ASAN_ENV := ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
            UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
TSAN_ENV := TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1

# Every build directory compiles through ccache when it is installed.
CCACHE     := $(shell command -v ccache)
LAUNCHER   := $(if $(CCACHE),-DCMAKE_CXX_COMPILER_LAUNCHER=$(CCACHE) -DCMAKE_C_COMPILER_LAUNCHER=$(CCACHE))

# configure(dir, extra cmake arguments)
define configure
	@if [ -f "$(1)/CMakeCache.txt" ]; then \
		if [ ! -f "$(1)/build.ninja" ] && [ ! -f "$(1)/Makefile" ]; then cmake -S . -B "$(1)" $(LAUNCHER) $(2); fi; \
	else \
		if command -v ninja >/dev/null 2>&1; then gen=Ninja; else gen="Unix Makefiles"; fi; \
		cmake -S . -B "$(1)" -G "$$gen" $(LAUNCHER) $(2); \
	fi
endef

.PHONY: all deps configure build run test asan-build asan-test tsan-build tsan-test pgo format format-check tidy windows windows-test clean help install uninstall

all: build

help:
	@sed -n '3,16p' Makefile | sed 's/^# \{0,1\}//'

deps:
	@tools/setup-deps.sh

configure: deps
	$(call configure,$(BUILD_DIR),)

build: configure
	cmake --build $(BUILD_DIR) --parallel $(JOBS)

run: build
	$(BUILD_DIR)/vorka --runscript=$(SCRIPT)

test: build
	ctest --test-dir $(BUILD_DIR) --output-on-failure --parallel $(JOBS) --timeout $(TEST_TIMEOUT) $(CTEST_ARGS)

asan-build: deps
	$(call configure,$(ASAN_DIR),-DVORKA_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug)
	$(ASAN_ENV) cmake --build $(ASAN_DIR) --parallel $(JOBS)

asan-test: asan-build
	$(ASAN_ENV) ctest --test-dir $(ASAN_DIR) --output-on-failure --parallel $(JOBS) --timeout $(TEST_TIMEOUT) $(CTEST_ARGS)

tsan-build: deps
	$(call configure,$(TSAN_DIR),-DVORKA_TSAN=ON -DCMAKE_BUILD_TYPE=Debug)
	cmake --build $(TSAN_DIR) --parallel $(JOBS) --target vorka_tests

tsan-test: tsan-build
	$(TSAN_ENV) ctest --test-dir $(TSAN_DIR) --output-on-failure --parallel $(JOBS) --timeout $(TEST_TIMEOUT) -R '$(TSAN_TESTS)'

# The C++ files under version control, for the format targets.
CLANG_FORMAT ?= $(shell command -v clang-format-14 || command -v clang-format)
FORMAT_FILES = $(shell git ls-files '*.cpp' '*.h')

format: deps
	@$(CLANG_FORMAT) --style=file -i $(FORMAT_FILES)

format-check: deps
	@$(CLANG_FORMAT) --style=file --dry-run --Werror $(FORMAT_FILES)

# clang-tidy over every file of the build's compile database. The build's own
# g++ options that clang does not know are tolerated, and the builtin table's
# one long initializer needs a deeper bracket limit than clang's default. Takes
# several minutes: not part of CI.
RUN_CLANG_TIDY ?= $(shell command -v run-clang-tidy-14 || command -v run-clang-tidy)
TIDY_ARGS = -extra-arg=-Wno-unknown-warning-option -extra-arg=-Wno-ignored-optimization-argument \
            -extra-arg=-fbracket-depth=1024

tidy: build
	$(RUN_CLANG_TIDY) -p $(BUILD_DIR) -j $(JOBS) -quiet $(TIDY_ARGS)

# The Windows build needs the cross compiler and wine, which the other targets
# do not: they are installed only when these targets run.
windows:
	@tools/setup-deps.sh windows
	$(call configure,$(WIN_DIR),-DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake $(WIN_CMAKE_ARGS))
	cmake --build $(WIN_DIR) --parallel $(JOBS) --target vorka vorka_tests

windows-test: windows
	tools/windows-test.sh $(WIN_DIR)

# Profile-guided build: an instrumented executable runs the bench workloads
# (tools/pgo-train.sh), then the same folder is built again with the profile.
# The profile of an earlier run is thrown away first, so that it always
# belongs to the current code.
pgo:
	@tools/setup-deps.sh
	$(call configure,$(PGO_DIR),-DCMAKE_BUILD_TYPE=Release -DVORKA_TESTS=OFF)
	rm -rf $(PGO_DIR)/pgo-profile
	cmake -S . -B $(PGO_DIR) -DVORKA_PGO=generate
	cmake --build $(PGO_DIR) --parallel $(JOBS) --target vorka
	tools/pgo-train.sh $(PGO_DIR)/vorka
	cmake -S . -B $(PGO_DIR) -DVORKA_PGO=use
	cmake --build $(PGO_DIR) --parallel $(JOBS) --target vorka

clean:
	rm -rf $(BUILD_DIR) $(ASAN_DIR) $(TSAN_DIR) $(WIN_DIR) $(PGO_DIR)

install: configure
	cmake --build $(BUILD_DIR) --parallel $(JOBS) --target vorka vorka_filetypes
	install -d $(BINDIR) $(MAN1DIR)
	install -m 755 $(BUILD_DIR)/vorka $(BINDIR)/vorka
	install -m 644 man/vorka.1 $(MAN1DIR)/vorka.1
	install -d $(SDKINCDIR) $(SDKCMAKEDIR)
	install -m 644 include/vorka/module.h $(SDKINCDIR)/module.h
	install -m 644 cmake/vorkaConfig.cmake $(SDKCMAKEDIR)/vorkaConfig.cmake
	XDG_DATA_HOME="$(abspath $(DATADIR))" $(BUILD_DIR)/vorka_filetypes "$(PREFIX)/bin/vorka"
	chmod 644 $(DATADIR)/mime/packages/vorkascript.xml $(DATADIR)/applications/vorkascript*.desktop

uninstall:
	rm -f $(INSTALLED)
