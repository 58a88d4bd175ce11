# Thin driver around CMake.  `make run` and `make test` do all set-up on a
# fresh machine (scripts/install-deps.sh installs what is missing).

JOBS         ?= 2
PREFIX       ?= /usr/local
FUZZ_SECONDS ?= 30
BUILD        := build
ASAN_BUILD   := build-asan
BENCH_BUILD  := build-bench
FUZZ_BUILD   := build-fuzz
TSAN_BUILD   := build-tsan
COV_BUILD    := build-coverage
STAGE        := $(CURDIR)/$(BUILD)/stage
CMAKE_GEN    := -G Ninja

.PHONY: all deps build run test test-normal test-asan test-tsan coverage bench fuzz install package clean

all: build

deps:
	@bash scripts/install-deps.sh

$(BUILD)/build.ninja: | deps
	cmake -S . -B $(BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo

build: deps $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS)

# Build, install into a staging prefix, build the example against the
# installed copy through pkg-config, and run it on the bundled sample data.
run: build
	cmake --install $(BUILD) --prefix $(STAGE) > /dev/null
	$(MAKE) -C examples STAGE=$(STAGE) BUILD=$(CURDIR)/$(BUILD)/examples
	LD_LIBRARY_PATH=$(STAGE)/lib $(CURDIR)/$(BUILD)/examples/tour $(CURDIR)/examples/data
	@bash examples/convert_samples.sh $(CURDIR)/$(BUILD)/tools/nuvconv $(CURDIR)/examples/data $(CURDIR)/$(BUILD)/samples

test: test-normal test-asan test-tsan

test-normal: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

$(ASAN_BUILD)/build.ninja: | deps
	cmake -S . -B $(ASAN_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Debug -DNUV_SANITIZE=ON -DNUV_BUILD_TOOLS=ON

test-asan: deps $(ASAN_BUILD)/build.ninja
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	cd $(ASAN_BUILD) && ctest --output-on-failure -j $(JOBS)

# ThreadSanitizer: the concurrency tests and everything else, race-free.
$(TSAN_BUILD)/build.ninja: | deps
	cmake -S . -B $(TSAN_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNUV_TSAN=ON -DNUV_BUILD_TOOLS=ON

test-tsan: deps $(TSAN_BUILD)/build.ninja
	cmake --build $(TSAN_BUILD) -j $(JOBS)
	cd $(TSAN_BUILD) && TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" ctest --output-on-failure -j $(JOBS)

# Line and branch coverage of src/ per folder, from the whole suite.
$(COV_BUILD)/build.ninja: | deps
	cmake -S . -B $(COV_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Debug -DNUV_COVERAGE=ON -DNUV_BUILD_TOOLS=ON

coverage: deps $(COV_BUILD)/build.ninja
	cmake --build $(COV_BUILD) -j $(JOBS)
	find $(COV_BUILD) -name '*.gcda' -delete
	cd $(COV_BUILD) && ctest -j $(JOBS) > /dev/null || true
	bash scripts/coverage.sh $(COV_BUILD)

$(BENCH_BUILD)/build.ninja: | deps
	cmake -S . -B $(BENCH_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Release -DNUV_BUILD_BENCH=ON -DNUV_BUILD_TESTS=OFF

bench: deps $(BENCH_BUILD)/build.ninja
	cmake --build $(BENCH_BUILD) -j $(JOBS)
	python3 bench/run.py $(BENCH_BUILD)/bench

$(FUZZ_BUILD)/build.ninja: | deps
	CC=clang CXX=clang++ cmake -S fuzz -B $(FUZZ_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo

fuzz: deps $(FUZZ_BUILD)/build.ninja
	cmake --build $(FUZZ_BUILD) -j $(JOBS)
	bash fuzz/run.sh $(FUZZ_BUILD) $(FUZZ_SECONDS)

install: build
	cmake --install $(BUILD) --prefix $(PREFIX)

# Debian packages (run-time and development) into $(BUILD)/packages.
package: build
	cd $(BUILD) && cpack -G DEB -B $(CURDIR)/$(BUILD)/packages

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD) $(COV_BUILD) $(BENCH_BUILD) $(FUZZ_BUILD)
