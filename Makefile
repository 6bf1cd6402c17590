# The project's front door.
#   make demo   build and walk one image through the library
#   make test   build and run every test
#   make bench  build optimised and run the benchmarks
#   make asan   the tests under AddressSanitizer and UndefinedBehaviorSanitizer
#   make tsan   the tests under ThreadSanitizer
#   make fuzz   run every fuzz target for FUZZ_SECONDS each (clang)
#   make install PREFIX=/some/where

BUILD ?= build
JOBS ?= $(shell nproc)
PREFIX ?= /usr/local
FUZZ_SECONDS ?= 60

.PHONY: all build demo test bench asan tsan fuzz install clean

all: build

build:
	cmake --preset default >/dev/null
	cmake --build --preset default -j $(JOBS)

demo: build
	./$(BUILD)/bin/vyrax_demo

test: build
	@command -v getfattr >/dev/null || (apt-get update -qq && apt-get install -y -qq attr) >/dev/null 2>&1 \
	  || echo "note: attr (getfattr, setfattr) is missing; the extended-attribute cross-check is skipped"
	ctest --preset default -j $(JOBS)

bench:
	@test -f /usr/include/cereal/cereal.hpp && test -f /usr/include/boost/archive/binary_oarchive.hpp \
	  || (apt-get update -qq && apt-get install -y -qq libcereal-dev libboost-serialization-dev) >/dev/null 2>&1 \
	  || echo "note: cereal or Boost.Serialization is missing; the peer benchmark is skipped"
	cmake --preset release >/dev/null
	cmake --build --preset release -j $(JOBS)
	./build-release/bin/vyrax_bench --benchmark_counters_tabular=true
	test ! -x ./build-release/bin/vyrax_peer_bench || ./build-release/bin/vyrax_peer_bench

asan:
	cmake --preset asan >/dev/null
	cmake --build --preset asan -j $(JOBS)
	ctest --preset asan -j $(JOBS)

tsan:
	cmake --preset tsan >/dev/null
	cmake --build --preset tsan -j $(JOBS)
	ctest --preset tsan -j $(JOBS)

fuzz:
	bash fuzz/run.sh $(FUZZ_SECONDS)

install: build
	cmake --install $(BUILD) --prefix $(PREFIX)

clean:
	rm -rf build build-asan build-tsan build-release build-fuzz
