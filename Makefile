# The README's entry points. Everything else goes through CMake.
BUILD ?= build
JOBS ?= $(shell nproc 2>/dev/null || sysctl -n hw.ncpu 2>/dev/null || echo 2)
CMAKE_FLAGS ?=
UNAME := $(shell uname -s)
# Homebrew's Qt, and ICU, which is keg-only, are on neither CMake's nor pkg-config's paths.
ifeq ($(UNAME),Darwin)
PREFIX_PATH := $(shell command -v brew >/dev/null 2>&1 && echo "'-DCMAKE_PREFIX_PATH=$$(brew --prefix qt);$$(brew --prefix icu4c)'")
endif

.PHONY: all deps configure build test run app bench fuzz format clean mutants

all: build

deps:
	@bash scripts/install-deps.sh

configure: deps
	@test -f $(BUILD)/build.ninja || cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo $(PREFIX_PATH) $(CMAKE_FLAGS)

build: configure
	cmake --build $(BUILD) -j $(JOBS)

test: build
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

# macOS: the deployed, signed bundle, started through Launch Services (`open`), so that the
# URL scheme is registered and privacy prompts name Quorvel rather than the terminal.
ifeq ($(UNAME),Darwin)
run: app
	open $(BUILD)/dist/Quorvel.app
else
run: build
	$(BUILD)/src/app/quorvel
endif

app: build
	@if [ "$(UNAME)" != Darwin ]; then echo "make app builds the macOS bundle; on Linux use make run" >&2; exit 2; fi
	rm -rf $(BUILD)/dist/Quorvel.app
	cmake --install $(BUILD) --prefix $(abspath $(BUILD))/dist
	@echo "$(BUILD)/dist/Quorvel.app"

bench:
	@bash scripts/install-deps.sh --bench
	@$(MAKE) --no-print-directory configure
	cmake --build $(BUILD) -j $(JOBS) --target quorvel-walkbench quorvel-statsbench quorvel-removebench quorvel-updatesbench \
	    quorvel quorvel-uibench
	bash bench/run.sh $(BUILD)/bench/quorvel-walkbench
	bash bench/stats.sh $(BUILD)/bench/quorvel-statsbench
	bash bench/remove.sh $(BUILD)/bench/quorvel-removebench
	bash bench/updates.sh $(BUILD)/bench/quorvel-updatesbench
	bash bench/app.sh $(BUILD)

# libFuzzer targets in their own clang + sanitizer tree; FUZZ_SECONDS each, one after
# another. New inputs collect in build-fuzz/corpus/<target> and are kept between runs;
# fuzz/regressions/<target> holds inputs that once failed, replayed with the seeds.
# HOME points into the build tree so that nothing here (llvm-symbolizer's cache included)
# looks at the user's own files.
FUZZ_BUILD := build-fuzz
FUZZ_SECONDS ?= 60
FUZZ_TARGETS := fuzz_appcast fuzz_brew fuzz_appstore fuzz_plist fuzz_versions
# Input size caps: large enough for a real feed or Info.plist, small enough to stay fast.
FUZZ_MAXLEN_fuzz_appcast := 16384
FUZZ_MAXLEN_fuzz_brew := 8192
FUZZ_MAXLEN_fuzz_appstore := 4096
FUZZ_MAXLEN_fuzz_plist := 16384
FUZZ_MAXLEN_fuzz_versions := 256

fuzz:
	@bash scripts/install-deps.sh --fuzz
	@test -f $(FUZZ_BUILD)/build.ninja || CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) -G Ninja -DQUORVEL_FUZZ=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(FUZZ_BUILD) -j $(JOBS) --target $(FUZZ_TARGETS)
	@found=0; \
	for pair in $(foreach t,$(FUZZ_TARGETS),$(t):$(FUZZ_MAXLEN_$(t))); do \
	    t=$${pair%%:*}; len=$${pair##*:}; \
	    corpus=$(FUZZ_BUILD)/corpus/$$t; out=$(FUZZ_BUILD)/artifacts/$$t; log=$(FUZZ_BUILD)/logs/$$t.log; \
	    mkdir -p $$corpus $$out $(FUZZ_BUILD)/logs $(FUZZ_BUILD)/home; touch $$log.start; \
	    echo "== $$t: $(FUZZ_SECONDS)s, max_len $$len"; \
	    HOME=$(CURDIR)/$(FUZZ_BUILD)/home UBSAN_OPTIONS=print_stacktrace=1 \
	    $(FUZZ_BUILD)/fuzz/$$t $$corpus fuzz/seeds/$$t $$(ls -d fuzz/regressions/$$t 2>/dev/null) \
	        -max_total_time=$(FUZZ_SECONDS) \
	        -max_len=$$len -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
	        -artifact_prefix=$$out/ >$$log 2>&1; rc=$$?; \
	    runs=$$(sed -n 's/^Done \([0-9]*\) runs in \([0-9]*\) second.*/\1 runs in \2 s/p' $$log); \
	    cov=$$(grep -o 'cov: [0-9]* ft: [0-9]* corp: [0-9]*/[0-9a-zA-Z]*' $$log | tail -n 1); \
	    new=$$(find $$out -type f -newer $$log.start | tr '\n' ' '); \
	    if [ $$rc -eq 0 ] && [ -z "$$new" ]; then \
	        echo "   $$t: $${runs:-no run count}; $$cov; no crash"; \
	    else \
	        found=1; echo "   $$t: FOUND A FAULT (exit $$rc); $$cov; inputs: $$new"; \
	        grep -m 1 -A 30 -E 'Assertion .* failed|^==[0-9]+==ERROR|runtime error|check failed|version order broken|deadly signal' $$log; \
	        echo "   full log: $$log"; \
	    fi; \
	done; exit $$found

# Mutation score of the tests on a copy of the committed tree (never part of make test).
MUTANTS ?= 60
SEED ?= 1
mutants:
	@bash scripts/install-deps.sh
	python3 scripts/mutants.py --n $(MUTANTS) --seed $(SEED)

format:
	find src tests bench -name '*.cpp' -o -name '*.h' -o -name '*.mm' | xargs clang-format -i

clean:
	rm -rf $(BUILD)
