# The project's commands. See README.md.
BUILD      ?= build
BENCH_BUILD ?= build-bench
WINDOWS_BUILD ?= build-windows
DOCS_BUILD ?= build-docs
SANITIZE   ?=
WERROR     ?= OFF
PREFIX     ?= /usr/local
JOBS       ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE_ARGS ?=

MAKEFLAGS += --no-print-directory

CONFIGURE = cmake -S . -B $(BUILD) -DZEL_SANITIZE=$(SANITIZE) -DZEL_WERROR=$(WERROR) $(CMAKE_ARGS)

.PHONY: all bootstrap build demo test test-large test-windows bench fuzz docs install clean

all: build

bootstrap:
	@scripts/bootstrap.sh test

build: bootstrap
	@$(CONFIGURE) >/dev/null
	@cmake --build $(BUILD) -j$(JOBS)

demo: build
	@$(BUILD)/tools/zelutil/zelutil demo

test: build
	@scripts/check-layering.sh
	@scripts/check-exports.sh $(BUILD)
	@cd $(BUILD) && ctest --output-on-failure -j$(JOBS) --timeout 300

# Zip archives past the 32-bit limits (an entry over 4 GB, more than 65,535
# entries): minutes of disk work, so not part of every test run.
test-large: build
	@ZEL_TEST_LARGE=1 $(BUILD)/tests/zel_zip_tests --gtest_filter='ZipLarge.*'

# The MinGW-w64 cross build (DLL, tool, test programs), each test program run
# once under Wine; ends with "N passed, S skipped, M failed".
test-windows:
	@scripts/bootstrap.sh windows
	@cmake -S . -B $(WINDOWS_BUILD) -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake -DZEL_WERROR=$(WERROR) $(CMAKE_ARGS) >/dev/null
	@cmake --build $(WINDOWS_BUILD) -j$(JOBS)
	@scripts/run-windows-tests.sh $(WINDOWS_BUILD)

bench:
	@scripts/bootstrap.sh bench
	@cmake -S . -B $(BENCH_BUILD) -DCMAKE_BUILD_TYPE=Release -DZEL_BUILD_TESTS=OFF -DZEL_BUILD_BENCH=ON $(CMAKE_ARGS) >/dev/null
	@cmake --build $(BENCH_BUILD) -j$(JOBS) --target run-bench

# Runs each fuzz target on a copy of its seed corpus for FUZZ_SECONDS.
FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 30
fuzz:
	@scripts/bootstrap.sh fuzz
	@CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) -DZEL_BUILD_FUZZ=ON -DZEL_BUILD_TESTS=OFF -DZEL_BUILD_TOOLS=OFF \
		-DBUILD_SHARED_LIBS=OFF -DZEL_SANITIZE=address,undefined -DZEL_FUZZ_INSTRUMENT=ON >/dev/null
	@cmake --build $(FUZZ_BUILD) -j$(JOBS)
	@for target in $(FUZZ_BUILD)/fuzz/*_fuzz; do \
		name=$$(basename $$target _fuzz); work=$(FUZZ_BUILD)/corpus-$$name; \
		mkdir -p $$work && cp -n fuzz/corpus/$$name/* $$work/ 2>/dev/null; \
		$$target -max_total_time=$(FUZZ_SECONDS) -print_final_stats=1 $$work >$$work.log 2>&1; status=$$?; \
		tail -n 6 $$work.log; [ $$status -eq 0 ] || { echo "fuzz: $$name failed, see $$work.log"; exit 1; }; \
	done

# The API reference of the public headers (HTML in $(DOCS_BUILD)/html); any
# Doxygen warning, an undocumented declaration included, fails the run.
docs:
	@scripts/bootstrap.sh docs
	@mkdir -p $(DOCS_BUILD)
	@ZEL_DOCS_OUTPUT=$(DOCS_BUILD) doxygen docs/Doxyfile

install: build
	@cmake --install $(BUILD) --prefix $(PREFIX)

clean:
	@rm -rf $(BUILD) $(BENCH_BUILD) $(WINDOWS_BUILD) $(DOCS_BUILD)
