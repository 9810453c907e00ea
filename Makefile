# Thin wrapper over CMake. `make demo` and `make test` work on a fresh machine: any
# Debian package the build needs and the machine lacks is installed first.
BUILD      ?= build
ASAN_BUILD ?= build-asan
TSAN_BUILD ?= build-tsan
JOBS       ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE      ?= cmake
CTEST      ?= ctest

# Debian packages the build, tests, benchmarks and tools need.
PACKAGES := cmake g++ make pkg-config libgtest-dev libbenchmark-dev libpng-dev

.PHONY: all build demo test test-release test-asan test-tsan bench deps clean

all: build

deps:
	@missing=""; for p in $(PACKAGES); do \
	  dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q "install ok installed" || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  echo "installing:$$missing"; \
	  SUDO=; [ "$$(id -u)" = 0 ] || SUDO=sudo; \
	  $$SUDO apt-get update -qq && DEBIAN_FRONTEND=noninteractive $$SUDO apt-get install -y -qq $$missing; \
	fi

$(BUILD)/CMakeCache.txt: | deps
	$(CMAKE) -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release

build: deps $(BUILD)/CMakeCache.txt
	$(CMAKE) --build $(BUILD) -j $(JOBS)

demo: build
	$(CMAKE) --build $(BUILD) --target demo

test: test-release test-asan test-tsan

test-release: build
	$(CTEST) --test-dir $(BUILD) --output-on-failure -j $(JOBS)

# The whole suite again under AddressSanitizer and UndefinedBehaviorSanitizer.
test-asan: deps
	$(CMAKE) -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQZRCFA_SANITIZE=ON -DQZRCFA_BUILD_BENCH=OFF
	$(CMAKE) --build $(ASAN_BUILD) -j $(JOBS)
	$(CTEST) --test-dir $(ASAN_BUILD) --output-on-failure -j $(JOBS)

# The library and the concurrency test alone, under ThreadSanitizer.
test-tsan: deps
	$(CMAKE) -S . -B $(TSAN_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQZRCFA_TSAN=ON -DQZRCFA_BUILD_TOOLS=OFF -DQZRCFA_BUILD_BENCH=OFF
	$(CMAKE) --build $(TSAN_BUILD) -j $(JOBS) --target test_threads
	TSAN_OPTIONS=halt_on_error=1 $(TSAN_BUILD)/tests/test_threads

bench: build
	$(BUILD)/bench/qzrcfa-bench $(BENCH_ARGS)

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD) out
