# Front door: `make test` and `make demo` work on a fresh Debian machine.
BUILD      ?= build
ASAN_BUILD ?= build-asan
TSAN_BUILD ?= build-tsan
FUZZ_BUILD ?= build-fuzz
ARM64_BUILD ?= build-arm64
FUZZ_SECONDS ?= 60
FUZZ_KEEP ?= 0
JOBS       ?= $(shell nproc 2>/dev/null || echo 2)
PREFIX     ?= /usr/local
CMAKE_ARGS ?=

.PHONY: all deps build test python test-arm64 test-asan test-tsan fuzz demo demo-check install bench docs clean format format-check fuzz-long

all: build

deps:
	@./scripts/deps.sh

$(BUILD)/CMakeCache.txt: | deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	      -DCMAKE_INSTALL_PREFIX=$(PREFIX) $(CMAKE_ARGS)

build: deps $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS)

test: build
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

# The Python module, in $(BUILD)/python (import with PYTHONPATH=$(BUILD)/python).
python: build
	cmake --build $(BUILD) -j $(JOBS) --target tolv_python

# The whole suite on 64-bit ARM: a cross build against Debian's arm64
# packages, every test program run under user-mode QEMU (scripts/test-arm64.sh
# installs the cross toolchain, the emulator and the arm64 libraries).
test-arm64:
	JOBS=$(JOBS) ./scripts/test-arm64.sh $(ARM64_BUILD) $(CMAKE_ARGS)

test-asan: deps
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DTOLV_SANITIZE=ON \
	      -DTOLV_EXAMPLES=OFF $(CMAKE_ARGS)
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
	LSAN_OPTIONS=suppressions=$(CURDIR)/tests/lsan.supp \
	UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	ctest --test-dir $(ASAN_BUILD) --output-on-failure -j $(JOBS)

# The suite again under ThreadSanitizer, with the thread stress programs of
# tests/stress that only this build registers.
test-tsan: deps
	cmake -S . -B $(TSAN_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTOLV_TSAN=ON \
	      -DTOLV_EXAMPLES=OFF $(CMAKE_ARGS)
	cmake --build $(TSAN_BUILD) -j $(JOBS)
	TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" \
	ctest --test-dir $(TSAN_BUILD) --output-on-failure -j $(JOBS)

# libFuzzer targets (clang, its own build), each run FUZZ_SECONDS.
fuzz:
	@./scripts/deps.sh build fuzz
	cmake -S . -B $(FUZZ_BUILD) -DCMAKE_C_COMPILER=clang-14 \
	      -DCMAKE_CXX_COMPILER=clang++-14 -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	      -DTOLV_FUZZ=ON -DTOLV_TESTS=OFF -DTOLV_EXAMPLES=OFF $(CMAKE_ARGS)
	cmake --build $(FUZZ_BUILD) -j $(JOBS)
	FUZZ_KEEP=$(FUZZ_KEEP) ./fuzz/run.sh $(FUZZ_BUILD) $(FUZZ_SECONDS)

# Every fuzz target for ten minutes; what adds coverage is merged into the
# corpus kept in fuzz/corpus (commit it).
fuzz-long:
	$(MAKE) fuzz FUZZ_SECONDS=600 FUZZ_KEEP=1

# The main job on built-in material: test audio made on the spot, every tolv
# subcommand run on it, a report of the figures measured, and a page with
# pictures and players of it all ($(BUILD)/demo/index.html).
demo: build
	@./scripts/deps.sh demo
	sh tools/tolv/demo.sh $(BUILD) $(BUILD)/demo

# The demo page loaded in headless Chromium: every picture drawn, every
# player as long as its file, and a screenshot that shows something.
demo-check: demo
	@./scripts/deps.sh browser
	python3 tools/tolv/demo_check.py $(BUILD)/demo/index.html

install: build
	cmake --install $(BUILD)

bench:
	@./scripts/deps.sh build bench
	cmake -S . -B $(BUILD) -DTOLV_BENCHMARKS=ON
	cmake --build $(BUILD) -j $(JOBS)
	@for b in $(BUILD)/bench/*_bench; do echo "== $$b"; $$b; done

# HTML reference of include/tolv.h and the hosts guide, in $(BUILD)/docs/html;
# any undocumented declaration or parameter is an error.
docs:
	@./scripts/deps.sh docs
	mkdir -p $(BUILD)/docs
	(cat docs/Doxyfile; echo "OUTPUT_DIRECTORY=$(BUILD)/docs") | doxygen -

# One layout for every C and C++ source (.clang-format); CI runs the check.
FORMAT_FILES = git ls-files '*.c' '*.cpp' '*.h' '*.inc'
format:
	$(FORMAT_FILES) | xargs clang-format-14 -i --style=file

format-check:
	@./scripts/deps.sh format
	$(FORMAT_FILES) | xargs clang-format-14 --dry-run --Werror --style=file

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD) $(FUZZ_BUILD) $(ARM64_BUILD)
