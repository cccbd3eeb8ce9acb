# Thin driver over CMake.  make: ./quillon; make run; make test; make bench.
EXE ?= quillon
BUILD ?= build
ASAN_BUILD ?= build-asan
TSAN_BUILD ?= build-tsan
# The tests of threads sharing the search, run under ThreadSanitizer: the
# threaded searches, and the engine process (built with it) answering
# commands, options and the clock while its search thread runs; the console
# starting, stopping and killing searches.
TSAN_TESTS ?= ParallelSearch.*:HashTest.Threads*:UciE2ESearch.*:UciE2EPonder.*:UciE2EOptions.TableOptions*:UciE2EBadInput.*During*:UciE2EGame.ShortClock*:ConsoleE2ESearch.*
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
CTEST_FLAGS ?= --output-on-failure -j $(JOBS) -LE slow

.PHONY: all run test bench slow-test deps configure format clean $(EXE)

all: $(EXE)

deps:
	@sh scripts/check_deps.sh

configure: deps
	@cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release >/dev/null

$(EXE): configure
	@cmake --build $(BUILD) -j $(JOBS)
	@if [ "$(abspath $(EXE))" != "$(abspath $(BUILD)/quillon)" ]; then cp $(BUILD)/quillon $(EXE); fi

run: $(EXE)
	./$(EXE)

# Every test twice: the release build, then an AddressSanitizer +
# UndefinedBehaviorSanitizer build of the same sources; last the threaded
# searches under ThreadSanitizer.
test: $(EXE)
	cd $(BUILD) && ctest $(CTEST_FLAGS)
	@cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUILLON_SANITIZE=address,undefined >/dev/null
	@cmake --build $(ASAN_BUILD) -j $(JOBS)
	cd $(ASAN_BUILD) && ctest $(CTEST_FLAGS)
	@cmake -S . -B $(TSAN_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUILLON_SANITIZE=thread >/dev/null
	@cmake --build $(TSAN_BUILD) -j $(JOBS) --target quillon_tests
	TSAN_OPTIONS=halt_on_error=1 $(TSAN_BUILD)/tests/quillon_tests --gtest_filter='$(TSAN_TESTS)'

# Deep perft and other long checks, left out of make test.
slow-test: $(EXE)
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS) -L slow

bench: $(EXE)
	@sh scripts/bench.sh $(BUILD)

format:
	clang-format -i $$(find Source tests bench -name '*.cpp' -o -name '*.h')

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD) quillon
