# Thin front for the CMake build. `make run` and `make test` are all a fresh machine needs.
MAKEFLAGS += --no-print-directory
PREFIX ?= /usr/local
JOBS ?= $(shell nproc)
BUILD := build
ASAN_BUILD := build-asan
TSAN_BUILD := build-tsan
FUZZ_BUILD := build-fuzz
FUZZ_SECONDS ?= 60
FUZZ_TARGETS := $(patsubst fuzz/%_fuzz.cc,%,$(wildcard fuzz/*_fuzz.cc))
STAGE := $(CURDIR)/$(BUILD)/stage
CTEST := ctest --output-on-failure -j $(JOBS) --timeout 300

.PHONY: all deps build run test test-plain test-sanitize test-thread test-abi install bench fuzz clean

all: build

deps:
	@scripts/install-deps.sh

build: deps
	@cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
	@cmake --build $(BUILD) -j $(JOBS)

run: build
	@cd examples && ../$(BUILD)/quickstart
	@echo '$$ corvel time now "Feb 1, 2024 12:00 US/Mountain"'
	@$(BUILD)/corvel time now "Feb 1, 2024 12:00 US/Mountain"
	@echo '$$ corvel pf quickstart'
	@cd examples && ../$(BUILD)/corvel pf quickstart
	@echo '$$ corvel pf --json quickstart "channels{ANMO}"'
	@cd examples && ../$(BUILD)/corvel pf --json quickstart "channels{ANMO}"
	@echo '$$ VELMORA=$$PWD corvel pf --files time_formats'
	@VELMORA=$(CURDIR) $(BUILD)/corvel pf --files time_formats
	@rm -f $(BUILD)/state/graveyard
	@echo '$$ graveyard; graveyard'
	@cd $(BUILD) && ./graveyard && sleep 1 && ./graveyard
	@echo '$$ VELMORA=$$PWD typed_echo'
	@VELMORA=$(CURDIR) $(BUILD)/typed_echo
	@echo '$$ corvel sum -a crc32 examples/quickstart.pf'
	@$(BUILD)/corvel sum -a crc32 examples/quickstart.pf
	@echo '$$ seq -50000 997 50000 | corvel codec encode -f gen | corvel codec stats -f gen -'
	@seq -50000 997 50000 | $(BUILD)/corvel codec encode -f gen | $(BUILD)/corvel codec stats -f gen -
	@echo '$$ VELMORA=$$PWD corvel units 36 km/hour m/s'
	@VELMORA=$(CURDIR) $(BUILD)/corvel units 36 km/hour m/s

test: test-plain test-sanitize test-thread test-abi

test-plain: build
	@cd $(BUILD) && $(CTEST)

test-sanitize: deps
	@cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DCORVEL_SANITIZE=ON >/dev/null
	@cmake --build $(ASAN_BUILD) -j $(JOBS)
	@cd $(ASAN_BUILD) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=0:allocator_may_return_null=1 \
	  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 $(CTEST)

# The concurrency tests (suites named *ConcurrencyTest) under ThreadSanitizer: the library and
# those tests only, gathered into one binary, so that this stays a few minutes. Races the
# library keeps on purpose are listed, with the reason, in scripts/tsan.supp.
test-thread: deps
	@cmake -S . -B $(TSAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DCORVEL_TSAN=ON >/dev/null
	@cmake --build $(TSAN_BUILD) -j $(JOBS) --target concurrency_test
	@cd $(TSAN_BUILD) && \
	  TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 suppressions=$(CURDIR)/scripts/tsan.supp" \
	  $(CTEST) -R ConcurrencyTest

# The C ABI and the Fortran twins, proven against the installed library.
test-abi: build
	@rm -rf $(STAGE) && cmake --install $(BUILD) --prefix $(STAGE) >/dev/null
	@scripts/abi-check.sh $(STAGE)

install: build
	@cmake --install $(BUILD) --prefix $(PREFIX)

bench: build
	@cmake --build $(BUILD) --target benches -j $(JOBS)
	@scripts/bench-table.sh $(BUILD)

# Each parser under libFuzzer for FUZZ_SECONDS, from a scratch copy of its seed corpus.
fuzz:
	@scripts/install-deps.sh fuzz
	@cmake -S . -B $(FUZZ_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCORVEL_FUZZ=ON \
	  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ >/dev/null
	@cmake --build $(FUZZ_BUILD) -j $(JOBS) --target $(addsuffix _fuzz,$(FUZZ_TARGETS))
	@fuzz/run.sh $(FUZZ_BUILD) $(FUZZ_SECONDS) $(FUZZ_TARGETS)

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD) $(FUZZ_BUILD)
