# Thin driver over CMake.  make: ./quillon; make run; make test; make bench;
# make install (PREFIX=/usr/local).
EXE ?= quillon
BUILD ?= build
# The processor to build for: native (this machine's), or a portable level:
# x86-64, x86-64-v2, x86-64-v3, x86-64-v4.  LTO=OFF drops link-time
# optimisation.
ARCH ?= native
LTO ?= ON
# The net built into ./quillon; without the file the build carries none.
EVALFILE ?= nets/quillon.nnue
PGO_BUILD ?= build-pgo
ASAN_BUILD ?= build-asan
TSAN_BUILD ?= build-tsan
# The tuner build: quillon-ttune, the engine with the tuner's modes.
TTUNE_EXE ?= quillon-ttune
TTUNE_BUILD ?= build-ttune
# The tests of threads sharing the search, run under ThreadSanitizer: the
# threaded searches, and the engine process (built with it) answering
# commands, options and the clock while its search thread runs; the console
# starting, stopping and killing searches; first tablebase probes from many
# threads.
TSAN_TESTS ?= ParallelSearch.*:HashTest.Threads*:UciE2ESearch.*:UciE2EPonder.*:UciE2EOptions.TableOptions*:UciE2EBadInput.*During*:UciE2EGame.ShortClock*:UciE2ENetwork.*:ConsoleE2ESearch.*:TbThreads.*
# The ThreadSanitizer step runs in one process: a hang ends it after this
# many seconds (ctest holds each of the other steps' tests to 300).  It
# takes about a minute on 2 busy cores.
TSAN_TIMEOUT ?= 600
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
CTEST_FLAGS ?= --output-on-failure -j $(JOBS) -LE slow
# The programs make bench runs.
BENCH_TARGETS = perft_bench eval_bench search_bench book_bench tb_bench

# Where make install puts bin/quillon and share/man/man6/quillon.6.
PREFIX ?= /usr/local

.PHONY: all run test bench slow-test deps configure format clean pgo ttune net install $(EXE)

all: $(EXE)

deps:
	@sh scripts/check_deps.sh

configure: deps
	@cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release -DQUILLON_ARCH=$(ARCH) -DQUILLON_LTO=$(LTO) -DQUILLON_EVALFILE=$(abspath $(EVALFILE)) >/dev/null

# The engine alone: the tests, the tuner build and the benches are built
# by the targets that need them, so that make run starts quickly.
$(EXE): configure
	@cmake --build $(BUILD) -j $(JOBS) --target quillon
	@if [ "$(abspath $(EXE))" != "$(abspath $(BUILD)/quillon)" ]; then cp $(BUILD)/quillon $(EXE); fi

# Its own build folder, without the tests, so that it builds quickly.
ttune: deps
	@cmake -S . -B $(TTUNE_BUILD) -DCMAKE_BUILD_TYPE=Release -DQUILLON_ARCH=$(ARCH) -DQUILLON_LTO=$(LTO) -DQUILLON_TESTS=OFF -DQUILLON_EVALFILE=$(abspath $(EVALFILE)) >/dev/null
	@cmake --build $(TTUNE_BUILD) -j $(JOBS) --target quillon-ttune
	@cp $(TTUNE_BUILD)/quillon-ttune $(TTUNE_EXE)

# The training chain end to end: self-play, training, the new net's speed
# and a short match (scripts/make_net.sh names the variables that steer it).
net: ttune $(EXE)
	@cmake --build $(BUILD) -j $(JOBS) --target eval_bench
	@TTUNE_EXE=$(abspath $(TTUNE_EXE)) EXE=$(abspath $(EXE)) BUILD=$(BUILD) sh scripts/make_net.sh

run: $(EXE)
	$(abspath $(EXE))

install: $(EXE)
	cmake --install $(BUILD) --prefix $(abspath $(PREFIX))

# Every test twice: the release build for this processor, then an
# AddressSanitizer + UndefinedBehaviorSanitizer build of the same sources for
# portable x86-64, so both paths pass the same tests and node counts; last
# the threaded searches under ThreadSanitizer.
test: $(EXE)
	@cmake --build $(BUILD) -j $(JOBS)
	cd $(BUILD) && ctest $(CTEST_FLAGS)
	@cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUILLON_ARCH=x86-64 -DQUILLON_SANITIZE=address,undefined -DQUILLON_EVALFILE=$(abspath $(EVALFILE)) >/dev/null
	@cmake --build $(ASAN_BUILD) -j $(JOBS)
	cd $(ASAN_BUILD) && ctest $(CTEST_FLAGS)
	@cmake -S . -B $(TSAN_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUILLON_SANITIZE=thread -DQUILLON_EVALFILE=$(abspath $(EVALFILE)) >/dev/null
	@cmake --build $(TSAN_BUILD) -j $(JOBS) --target quillon_tests
	TSAN_OPTIONS=halt_on_error=1 timeout -k 30 $(TSAN_TIMEOUT) $(TSAN_BUILD)/tests/quillon_tests --gtest_filter='$(TSAN_TESTS)' || \
	    { rc=$$?; [ $$rc -eq 124 ] && echo "ThreadSanitizer step stopped after $(TSAN_TIMEOUT) s"; exit $$rc; }

# A profile-guided ./quillon: an instrumented build plays a short -bench with
# each evaluator, then the same folder is rebuilt from the profile.
pgo: deps
	@cmake -S . -B $(PGO_BUILD) -DCMAKE_BUILD_TYPE=Release -DQUILLON_ARCH=$(ARCH) -DQUILLON_LTO=$(LTO) -DQUILLON_TESTS=OFF -DQUILLON_PGO=generate -DQUILLON_EVALFILE=$(abspath $(EVALFILE)) >/dev/null
	@find $(PGO_BUILD) -name '*.gcda' -delete
	@cmake --build $(PGO_BUILD) -j $(JOBS) --target quillon
	cd $(PGO_BUILD) && ./quillon -bench -d 12 >/dev/null && ./quillon -bench -use_hce -d 12 >/dev/null
	@cmake -S . -B $(PGO_BUILD) -DQUILLON_PGO=use >/dev/null
	@cmake --build $(PGO_BUILD) -j $(JOBS) --target quillon
	cp $(PGO_BUILD)/quillon $(EXE)

# Deep perft and other long checks, left out of make test.
slow-test: $(EXE)
	@cmake --build $(BUILD) -j $(JOBS) --target perft_suite
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS) -L slow

bench: $(EXE)
	@cmake --build $(BUILD) -j $(JOBS) --target $(BENCH_TARGETS)
	@sh scripts/bench.sh $(BUILD)

format:
	clang-format -i $$(find Source tests bench -name '*.cpp' -o -name '*.h')

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD) $(PGO_BUILD) $(TTUNE_BUILD) quillon quillon-ttune
