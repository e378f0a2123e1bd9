# The README's entry points. Everything else goes through CMake.
BUILD ?= build
JOBS ?= $(shell nproc 2>/dev/null || sysctl -n hw.ncpu 2>/dev/null || echo 2)
CMAKE_FLAGS ?=
PREFIX_PATH := $(shell command -v brew >/dev/null 2>&1 && echo "-DCMAKE_PREFIX_PATH=$$(brew --prefix qt)")

.PHONY: all deps configure build test run bench format clean

all: build

deps:
	@bash scripts/install-deps.sh

configure: deps
	@test -f $(BUILD)/build.ninja || cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo $(PREFIX_PATH) $(CMAKE_FLAGS)

build: configure
	cmake --build $(BUILD) -j $(JOBS)

test: build
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

run: build
	$(BUILD)/src/cli/quorvel-cli scan cleanup

bench: build
	@echo "no benchmarks yet"

format:
	find src tests bench -name '*.cpp' -o -name '*.h' -o -name '*.mm' | xargs clang-format -i

clean:
	rm -rf $(BUILD)
