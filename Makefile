# make         builds everything          make demo   the tour: a server, a clip, a contact sheet
# make test    builds and runs the tests  make asan, make tsan   the same under the sanitizers
BUILD ?= build
JOBS ?= $(shell nproc)
PRESET ?= default
CTEST = ctest --output-on-failure --no-tests=error --parallel $(JOBS)

.PHONY: all deps configure test demo asan tsan bench fuzz install format check-format tidy clean

# What CMake says is shown when it fails.
define CONFIGURE
@cmake --preset $(PRESET) -B $(BUILD) $(1) >$(BUILD).log 2>&1 || { cat $(BUILD).log; exit 1; }
@rm -f $(BUILD).log
endef

all: configure
	cmake --build $(BUILD) --parallel $(JOBS)

deps:
	@scripts/install-deps.sh test

configure: deps
	$(call CONFIGURE)

test: all
	cd $(BUILD) && $(CTEST)

# Installs and builds what it runs and nothing else. A folder that is configured already stays as it is.
demo:
	@scripts/install-deps.sh demo
	$(if $(wildcard $(BUILD)/build.ninja),,$(call CONFIGURE,-DVANTREL_BUILD_TESTS=OFF -DVANTREL_BUILD_BENCHMARKS=OFF))
	cmake --build $(BUILD) --parallel $(JOBS) --target vantreld vantrel vantrel_demo
	scripts/demo.sh $(BUILD)

asan tsan:
	$(MAKE) test PRESET=$@ BUILD=build-$@

bench:
	$(MAKE) all PRESET=release BUILD=build-release
	build-release/benchmarks/vantrel_benchmarks

# Each fuzzer replays its corpus and tries some inputs more; FUZZ_RUNS=10000000 for a real search.
FUZZ_RUNS ?= 20000
fuzz: deps
	cmake --preset fuzz -DVANTREL_FUZZ_RUNS=$(FUZZ_RUNS)
	cmake --build build-fuzz --target fuzzers --parallel $(JOBS)
	cd build-fuzz && $(CTEST) -L fuzz

install: all
	cmake --install $(BUILD)

SOURCES = $(shell git ls-files '*.h' '*.cpp')
format:
	clang-format -i $(SOURCES)
check-format:
	clang-format --dry-run --Werror $(SOURCES)
tidy:
	scripts/run-tidy.sh $(BUILD)

clean:
	rm -rf build build-*
