# The project's front door.
#   make demo   build and walk one image through the library
#   make test   build and run every test
#   make bench  build optimised and run the benchmarks
#   make bench-report  run them once and render docs/performance.md
#   make asan   the tests under AddressSanitizer and UndefinedBehaviorSanitizer
#   make tsan   the tests under ThreadSanitizer
#   make fuzz   run every fuzz target for FUZZ_SECONDS each (clang)
#   make install PREFIX=/some/where

BUILD ?= build
JOBS ?= $(shell nproc)
PREFIX ?= /usr/local
FUZZ_SECONDS ?= 60

# Header-only packages that vyrtool is built with (the library needs none).
TOOL_PACKAGES := libcli11-dev nlohmann-json3-dev

.PHONY: all build tool-packages peer-packages demo test bench bench-report asan tsan fuzz install clean

all: build

tool-packages:
	@dpkg -s $(TOOL_PACKAGES) >/dev/null 2>&1 \
	  || (apt-get update -qq && apt-get install -y -qq $(TOOL_PACKAGES)) >/dev/null 2>&1 \
	  || echo "note: $(TOOL_PACKAGES) could not be installed; vyrtool is not built"

# Quiet when it works; the whole build log when it does not.
build: tool-packages
	@cmake --preset default >/dev/null
	@echo "building (log: $(BUILD)/build.log)"
	@MAKEFLAGS= cmake --build --preset default -j $(JOBS) >$(BUILD)/build.log 2>&1 \
	  || (cat $(BUILD)/build.log; exit 1)

demo: build
	@rm -rf $(BUILD)/demo && mkdir -p $(BUILD)/demo
	./$(BUILD)/bin/vyrax_demo $(BUILD)/demo
	./$(BUILD)/bin/vyrtool meta verify $(BUILD)/demo/page.tif
	./$(BUILD)/bin/vyrtool ticket check $(BUILD)/demo/page.ticket

test: build
	@command -v getfattr >/dev/null || (apt-get update -qq && apt-get install -y -qq attr) >/dev/null 2>&1 \
	  || echo "note: attr (getfattr, setfattr) is missing; the extended-attribute cross-check is skipped"
	ctest --preset default -j $(JOBS)

# The serialisation libraries the peer benchmark compares with (the
# library depends on neither).
peer-packages:
	@test -f /usr/include/cereal/cereal.hpp && test -f /usr/include/boost/archive/binary_oarchive.hpp \
	  || (apt-get update -qq && apt-get install -y -qq libcereal-dev libboost-serialization-dev) >/dev/null 2>&1 \
	  || echo "note: cereal or Boost.Serialization is missing; the peer benchmark is skipped"

bench: tool-packages peer-packages
	cmake --preset release >/dev/null
	cmake --build --preset release -j $(JOBS)
	./build-release/bin/vyrax_bench --benchmark_counters_tabular=true
	test ! -x ./build-release/bin/vyrax_peer_bench || ./build-release/bin/vyrax_peer_bench

# One Release run of every benchmark (medians of 3), rendered into
# docs/performance.md and the charts in docs/performance/.
bench-report: tool-packages peer-packages
	@/usr/bin/python3 -c "import matplotlib" 2>/dev/null \
	  || (apt-get update -qq && apt-get install -y -qq python3-matplotlib) >/dev/null 2>&1
	cmake --preset release >/dev/null
	cmake --build --preset release -j $(JOBS)
	./build-release/bin/vyrax_bench --benchmark_repetitions=3 --benchmark_report_aggregates_only=true \
	  --benchmark_out=build-release/bench.json --benchmark_out_format=json \
	  --benchmark_context=cpu="$$(sed -n 's/^model name[^:]*: *//p' /proc/cpuinfo | head -1)" \
	  --benchmark_context=kernel="$$(uname -r)" \
	  --benchmark_context=compiler="$$(c++ --version | head -1)" \
	  --benchmark_context=repetitions=3
	./build-release/bin/vyrax_peer_bench --benchmark_repetitions=3 --benchmark_report_aggregates_only=true \
	  --benchmark_out=build-release/peer-bench.json --benchmark_out_format=json
	mkdir -p docs/performance
	cp build-release/bench.json build-release/peer-bench.json docs/performance/
	/usr/bin/python3 bench/report.py docs/performance/bench.json docs/performance/peer-bench.json docs/performance

asan: tool-packages
	cmake --preset asan >/dev/null
	cmake --build --preset asan -j $(JOBS)
	ctest --preset asan -j $(JOBS)

tsan: tool-packages
	cmake --preset tsan >/dev/null
	cmake --build --preset tsan -j $(JOBS)
	ctest --preset tsan -j $(JOBS)

fuzz:
	bash fuzz/run.sh $(FUZZ_SECONDS)

install: build
	cmake --install $(BUILD) --prefix $(PREFIX)

clean:
	rm -rf build build-asan build-tsan build-release build-fuzz
