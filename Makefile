# Convenience front end over CMake and CTest.
#
#   make run        install missing packages, build, run examples/hello.vrs
#   make test       install missing packages, build, run every test (ctest)
#   make asan-test  the same in build-asan with AddressSanitizer and UBSan
#   make tsan-test  the worker-thread tests in build-tsan with ThreadSanitizer
#   make clean      remove the build directories
#
# Every target starts with tools/setup-deps.sh, which is silent when nothing is
# missing. The generator is chosen when a build directory is first configured:
# Ninja when it is installed, else Unix Makefiles; an existing directory keeps
# the generator it was made with.

JOBS       ?= 2
BUILD_DIR  ?= build
ASAN_DIR   ?= build-asan
TSAN_DIR   ?= build-tsan
# Unit tests that start worker threads; only these run under ThreadSanitizer.
TSAN_TESTS ?= ^Workers|^EngineTest\.(FinishedWorker|PendingThreads)|^BuiltinsArraysTest\.Objects
SCRIPT     ?= examples/hello.vrs
CTEST_ARGS ?=

# Default time limit, in seconds, for a test that sets none of its own.
TEST_TIMEOUT ?= 600

ASAN_ENV := ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
            UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
TSAN_ENV := TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1

# configure(dir, extra cmake arguments)
define configure
	@if [ -f "$(1)/CMakeCache.txt" ]; then \
		if [ ! -f "$(1)/build.ninja" ] && [ ! -f "$(1)/Makefile" ]; then cmake -S . -B "$(1)" $(2); fi; \
	else \
		if command -v ninja >/dev/null 2>&1; then gen=Ninja; else gen="Unix Makefiles"; fi; \
		cmake -S . -B "$(1)" -G "$$gen" $(2); \
	fi
endef

.PHONY: all deps configure build run test asan-build asan-test tsan-build tsan-test clean help

all: build

help:
	@sed -n '3,6p' Makefile | sed 's/^# \{0,1\}//'

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

clean:
	rm -rf $(BUILD_DIR) $(ASAN_DIR) $(TSAN_DIR)
