# Front door: `make test` and `make demo` work on a fresh Debian machine.
BUILD      ?= build
ASAN_BUILD ?= build-asan
JOBS       ?= $(shell nproc 2>/dev/null || echo 2)
PREFIX     ?= /usr/local
CMAKE_ARGS ?=

.PHONY: all deps build test test-asan demo install bench clean

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

test-asan: deps
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DTOLV_SANITIZE=ON \
	      -DTOLV_EXAMPLES=OFF $(CMAKE_ARGS)
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
	LSAN_OPTIONS=suppressions=$(CURDIR)/tests/lsan.supp \
	UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	ctest --test-dir $(ASAN_BUILD) --output-on-failure -j $(JOBS)

demo: build
	$(BUILD)/examples/tolv_demo

install: build
	cmake --install $(BUILD)

bench:
	@./scripts/deps.sh build bench
	cmake -S . -B $(BUILD) -DTOLV_BENCHMARKS=ON
	cmake --build $(BUILD) -j $(JOBS)
	@for b in $(BUILD)/bench/*_bench; do echo "== $$b"; $$b; done

clean:
	rm -rf $(BUILD) $(ASAN_BUILD)
