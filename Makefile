# Wraps CMake so that a fresh Debian machine needs only `make run` and `make check`.
# Missing system packages are installed first (or the exact command is printed).

PACKAGES := cmake g++ make pkg-config libicu-dev libgtest-dev libgmock-dev libbenchmark-dev \
            zlib1g-dev clang-format libboost-dev libgmp-dev libcli11-dev libedit-dev \
            liblua5.4-dev libsqlite3-dev libmuparser-dev libfmt-dev \
            python3-dev python3-pybind11 python3-numpy python3-pandas python3-dask \
            python3-distributed python3-pytest python3-pexpect gawk miller hyperfine
# Only for `make fuzz`: clang with its libFuzzer and sanitizer runtimes.
FUZZ_PACKAGES := clang libclang-rt-14-dev
BUILD    ?= build
ASAN_BUILD ?= build-asan
BENCH_BUILD ?= build-bench
FUZZ_BUILD ?= build-fuzz
FUZZ_TIME ?= 60
FUZZ_TARGETS ?= format qvstrlib textutil encoding glossary preferences messages express
JOBS     ?= $(shell nproc 2>/dev/null || echo 2)
WERROR   ?= $(if $(CI),ON,OFF)
CMAKE_FLAGS ?=

.PHONY: all deps fuzz-deps configure build run check asan bench fuzz format format-check install clean

all: build

# Installs the packages of $(1) that are missing (as root, or through sudo), or prints the
# command that would.
define install_missing
	@missing=""; for p in $(1); do \
	  dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q 'install ok installed' || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  if [ "$$(id -u)" = 0 ]; then \
	    echo "installing:$$missing"; \
	    DEBIAN_FRONTEND=noninteractive apt-get update -qq && \
	    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends$$missing; \
	  elif command -v sudo >/dev/null && sudo -n true 2>/dev/null; then \
	    sudo apt-get update -qq && sudo DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends$$missing; \
	  else \
	    echo "missing packages; run: sudo apt-get install -y$$missing"; exit 1; \
	  fi; \
	fi
endef

deps:
	$(call install_missing,$(PACKAGES))

fuzz-deps:
	$(call install_missing,$(FUZZ_PACKAGES))

$(BUILD)/CMakeCache.txt: | deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQV_WERROR=$(WERROR) $(CMAKE_FLAGS)

configure: $(BUILD)/CMakeCache.txt

build: deps configure
	cmake --build $(BUILD) -j $(JOBS)

# The main job: qv derives columns over the sample orders, runs a script and evaluates an
# expression (examples/run.sh shows each command before its output).
run: build
	sh examples/run.sh $(BUILD)/tools/qv

check: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

asan: deps
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DQV_SANITIZE=ON -DQV_WERROR=$(WERROR) $(CMAKE_FLAGS)
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	cd $(ASAN_BUILD) && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
	  ctest --output-on-failure -j $(JOBS)

bench: deps
	cmake -S . -B $(BENCH_BUILD) -DCMAKE_BUILD_TYPE=Release -DQV_BENCH=ON -DQV_TESTS=OFF $(CMAKE_FLAGS)
	cmake --build $(BENCH_BUILD) -j $(JOBS)
	@for b in $(BENCH_BUILD)/bench/bench_*; do echo "== $$b"; $$b --benchmark_min_time=0.2 || exit 1; done
	sh bench/qv_derive_bench.sh $(BENCH_BUILD)

# libFuzzer programs (clang, address and undefined-behaviour sanitizers, the library
# instrumented for coverage), each run for FUZZ_TIME seconds on a working corpus in
# $(FUZZ_BUILD)/corpus/<target> seeded from fuzz/corpus/<target>; findings go to
# $(FUZZ_BUILD)/artifacts/. `make fuzz FUZZ_TARGETS=qvstrlib FUZZ_TIME=600` runs one.
fuzz: deps fuzz-deps
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DQV_SANITIZE=ON -DQV_FUZZ=ON -DQV_TESTS=OFF -DQV_WERROR=$(WERROR) \
	  -DCMAKE_C_FLAGS=-fsanitize=fuzzer-no-link -DCMAKE_CXX_FLAGS=-fsanitize=fuzzer-no-link $(CMAKE_FLAGS)
	cmake --build $(FUZZ_BUILD) -j $(JOBS)
	@mkdir -p $(FUZZ_BUILD)/artifacts
	@for t in $(FUZZ_TARGETS); do \
	  echo "== fuzz_$$t for $(FUZZ_TIME) s"; mkdir -p $(FUZZ_BUILD)/corpus/$$t; \
	  $(FUZZ_BUILD)/fuzz/fuzz_$$t -max_total_time=$(FUZZ_TIME) -timeout=10 -rss_limit_mb=4096 \
	    -artifact_prefix=$(FUZZ_BUILD)/artifacts/$$t- $(FUZZ_BUILD)/corpus/$$t fuzz/corpus/$$t || exit 1; \
	done

SOURCES = $(shell git ls-files '*.cpp' '*.hpp' '*.h' '*.c' 2>/dev/null)

format:
	clang-format -i $(SOURCES)

format-check:
	clang-format --dry-run --Werror $(SOURCES)

install: build
	cmake --install $(BUILD) $(if $(PREFIX),--prefix $(PREFIX))

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(BENCH_BUILD) $(FUZZ_BUILD)
