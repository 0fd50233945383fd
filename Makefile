# Entry points: `make demo` and `make test` work on a fresh Debian 12 machine as root.
BUILD ?= build
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=

.PHONY: all setup configure build test demo bench clean

all: build

setup:
	@bash scripts/setup-debian

configure: setup
	@cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_FLAGS) >/dev/null

build: configure
	@cmake --build $(BUILD) -j$(JOBS)

# Tests use a private PostgreSQL server on loopback, started here when none is named
# by TESSEL_TEST_PG.
test: build
	@bash scripts/run-tests $(BUILD)

demo: configure
	@cmake --build $(BUILD) -j$(JOBS) --target tessel
	@bash scripts/demo $(BUILD)

bench: build
	@cmake --build $(BUILD) -j$(JOBS) --target benchmarks
	@bash bench/run $(BUILD)

clean:
	rm -rf $(BUILD)
