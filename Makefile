# Thin driver around CMake.  `make run` and `make test` do all set-up on a
# fresh machine (scripts/install-deps.sh installs what is missing).

JOBS         ?= 2
PREFIX       ?= /usr/local
FUZZ_SECONDS ?= 30
BUILD        := build
ASAN_BUILD   := build-asan
BENCH_BUILD  := build-bench
FUZZ_BUILD   := build-fuzz
STAGE        := $(CURDIR)/$(BUILD)/stage
CMAKE_GEN    := -G Ninja

.PHONY: all deps build run test test-normal test-asan bench fuzz install package clean

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

test: test-normal test-asan

test-normal: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

$(ASAN_BUILD)/build.ninja: | deps
	cmake -S . -B $(ASAN_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Debug -DNUV_SANITIZE=ON -DNUV_BUILD_TOOLS=ON

test-asan: deps $(ASAN_BUILD)/build.ninja
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	cd $(ASAN_BUILD) && ctest --output-on-failure -j $(JOBS)

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
	rm -rf $(BUILD) $(ASAN_BUILD) $(BENCH_BUILD) $(FUZZ_BUILD)
