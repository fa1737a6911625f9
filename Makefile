# The two commands: `make demo` and `make test`. Both install the Debian
# packages they lack when run as root (tools/deps.sh).
BUILD ?= build
BUILD_SAN ?= build-sanitize
JOBS ?= 2
CMAKE_FLAGS ?= -DCMAKE_BUILD_TYPE=RelWithDebInfo

.PHONY: all deps deps-test build build-san demo host-example test bench clean

all: build

deps:
	@sh tools/deps.sh

build: deps
	@cmake -S . -B $(BUILD) -G Ninja $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(BUILD) -j $(JOBS)

build-san: deps
	@cmake -S . -B $(BUILD_SAN) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DTERVAK_SANITIZE=ON -DTERVAK_BENCH=OFF >/dev/null
	@cmake --build $(BUILD_SAN) -j $(JOBS)

# The laboratory suite on the bundled example soils: CSV, PNG, a summary
# table and the results page results/index.html. Builds only the library
# and the lab.
demo: deps
	@cmake -S . -B $(BUILD) -G Ninja $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(BUILD) -j $(JOBS) --target tervak tervak-lab
	@$(BUILD)/tervak-lab --out results --plot examples/lab
	@echo "results page: results/index.html"

# The minimal Fortran host: state-variable counts and matrix attributes.
host-example: build
	@$(BUILD)/examples/host_example

# Plain build: every test, the full calibration included. Sanitizer build
# (ASan/UBSan): only the test programs and what they load; its calibration
# test studies one soil from calibrated values.
deps-test:
	@sh tools/deps.sh test

test: deps-test
	@echo "== make test 1/4: plain build of the tests"
	@cmake -S . -B $(BUILD) -G Ninja $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(BUILD) -j $(JOBS) --target tervak_tests
	@echo "== make test 2/4: tests (the parser fuzz target runs for about a minute)"
	@ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS) --timeout 900
	@echo "== make test 3/4: sanitizer build of the tests"
	@cmake -S . -B $(BUILD_SAN) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DTERVAK_SANITIZE=ON -DTERVAK_BENCH=OFF >/dev/null
	@cmake --build $(BUILD_SAN) -j $(JOBS) --target tervak_tests
	@echo "== make test 4/4: tests under ASan/UBSan"
	@ASAN_OPTIONS=detect_leaks=1 LSAN_OPTIONS=suppressions=$(CURDIR)/tests/lsan.supp UBSAN_OPTIONS=print_stacktrace=1 ctest --test-dir $(BUILD_SAN) --output-on-failure -j $(JOBS) --timeout 900

bench: build
	@$(BUILD)/bench/tervak_bench_table

clean:
	rm -rf $(BUILD) $(BUILD_SAN)
