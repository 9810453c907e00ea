# Thin wrapper over CMake. `make demo` and `make test` work on a fresh machine: any
# Debian package the build needs and the machine lacks is installed first.
BUILD       ?= build
ASAN_BUILD  ?= build-asan
TSAN_BUILD  ?= build-tsan
CLANG_BUILD ?= build-clang
OPTIONAL_BUILD ?= build-optional
JOBS        ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE       ?= cmake
CTEST       ?= ctest
CLANG_CC    ?= clang-14
CLANG_CXX   ?= clang++-14
# The Python the module is built for and tested with: Debian's, whose NumPy and pytest
# come from Debian's packages.
PYTHON      ?= /usr/bin/python3
# How long `make fuzz` runs each fuzz target, in seconds (the suite runs each for 15).
FUZZ_SECONDS ?= 600

# Debian packages the build, tests, benchmarks, tools, fuzz targets and the GStreamer
# element (with the elements its tests and bench/gst_compare.sh run next to it) need.
PACKAGES := cmake g++ make pkg-config libgtest-dev libbenchmark-dev libpng-dev zlib1g-dev clang-14 libclang-rt-14-dev \
            pybind11-dev python3-dev python3-numpy python3-pytest \
            libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev gstreamer1.0-plugins-base gstreamer1.0-plugins-bad \
            gstreamer1.0-tools

# The ARM build: the cross compiler, qemu's user-mode emulation, and the arm64 packages
# (multiarch) of the libraries the tests and tools link and of the runtime they run on.
ARM_BUILD      ?= build-arm
ARM_ASAN_BUILD ?= build-arm-asan
ARM_TOOLCHAIN  := $(CURDIR)/cmake/aarch64-linux-gnu.cmake
ARM_PACKAGES   := g++-aarch64-linux-gnu qemu-user libgtest-dev:arm64 libpng-dev:arm64 zlib1g-dev:arm64 libstdc++6:arm64 \
                  libasan8:arm64 libubsan1:arm64

.PHONY: all build demo test test-release test-asan test-tsan test-clang test-arm test-optional fuzz bench deps deps-arm clean

all: build

# Installs whichever of the packages $(1) the machine lacks.
define install_missing
	@missing=""; for p in $(1); do \
	  dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q "install ok installed" || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  echo "installing:$$missing"; \
	  SUDO=; [ "$$(id -u)" = 0 ] || SUDO=sudo; \
	  $$SUDO apt-get update -qq && DEBIAN_FRONTEND=noninteractive $$SUDO apt-get install -y -qq $$missing; \
	fi
endef

deps:
	$(call install_missing,$(PACKAGES))

deps-arm: deps
	@dpkg --print-foreign-architectures | grep -qx arm64 || { \
	  echo "adding the arm64 architecture to dpkg"; \
	  SUDO=; [ "$$(id -u)" = 0 ] || SUDO=sudo; $$SUDO dpkg --add-architecture arm64; }
	$(call install_missing,$(ARM_PACKAGES))

# Configured again when this file changes, so that a build tree takes new settings.
$(BUILD)/CMakeCache.txt: Makefile | deps
	$(CMAKE) -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release -DPython3_EXECUTABLE=$(PYTHON)

build: deps $(BUILD)/CMakeCache.txt
	$(CMAKE) --build $(BUILD) -j $(JOBS)

# Only the library and the tool: the demo's custom target depends on nothing else.
demo: deps $(BUILD)/CMakeCache.txt
	$(CMAKE) --build $(BUILD) -j $(JOBS) --target demo

test: test-release test-asan test-tsan test-clang test-arm test-optional

test-release: build
	$(CTEST) --test-dir $(BUILD) --output-on-failure -j $(JOBS)

# The whole suite again under AddressSanitizer and UndefinedBehaviorSanitizer.
test-asan: deps
	$(CMAKE) -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQZRCFA_SANITIZE=ON -DQZRCFA_BUILD_BENCH=OFF
	$(CMAKE) --build $(ASAN_BUILD) -j $(JOBS)
	$(CTEST) --test-dir $(ASAN_BUILD) --output-on-failure -j $(JOBS)

# The library, the concurrency test and the thread pool's test, under ThreadSanitizer.
# Only the pool's case that does not fork runs: ThreadSanitizer does not support a
# child of a threaded process that starts threads (it dies, or takes a new thread
# for one of the parent's).
test-tsan: deps
	$(CMAKE) -S . -B $(TSAN_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQZRCFA_TSAN=ON -DQZRCFA_BUILD_TOOLS=OFF -DQZRCFA_BUILD_BENCH=OFF
	$(CMAKE) --build $(TSAN_BUILD) -j $(JOBS) --target test_threads test_pool
	TSAN_OPTIONS=halt_on_error=1 $(TSAN_BUILD)/tests/test_threads
	TSAN_OPTIONS=halt_on_error=1 $(TSAN_BUILD)/tests/test_pool --gtest_filter='PoolFailure.ExceptionsOfTasksReachTheCallerOnceNoTaskRuns'

# The whole suite built by clang (Release), and the libFuzzer targets, which the
# suite runs for 15 seconds each.
test-clang: deps
	CC=$(CLANG_CC) CXX=$(CLANG_CXX) $(CMAKE) -S . -B $(CLANG_BUILD) -DCMAKE_BUILD_TYPE=Release -DQZRCFA_FUZZ=ON -DQZRCFA_BUILD_BENCH=OFF \
	  -DPython3_EXECUTABLE=$(PYTHON)
	$(CMAKE) --build $(CLANG_BUILD) -j $(JOBS)
	$(CTEST) --test-dir $(CLANG_BUILD) --output-on-failure -j $(JOBS)

# Cross-built for aarch64 and run under qemu-aarch64: the whole suite, NEON kernels
# included, but for what cannot run there or would take too long:
# - the Python module and its tests: they need an arm64 Python, which Debian does not
#   install next to the machine's own;
# - the GStreamer element and its test: they need arm64 GStreamer development files
#   (pkg-config here finds the machine's own);
# - test_parallel_interposed, test_parallel again with the shim preloaded (preloading
#   under qemu is test_interposition's, the bands test_parallel's): four more minutes.
# Then the kernel tests again under AddressSanitizer and UndefinedBehaviorSanitizer,
# which alone check what the NEON kernels read and write (the rest of the library is
# the code the x86-64 sanitizer run checks). LeakSanitizer does not run under
# emulation.
test-arm: deps-arm
	$(CMAKE) -S . -B $(ARM_BUILD) -DCMAKE_TOOLCHAIN_FILE=$(ARM_TOOLCHAIN) -DCMAKE_BUILD_TYPE=Release \
	  -DQZRCFA_BUILD_BENCH=OFF -DQZRCFA_BUILD_PYTHON=OFF -DQZRCFA_BUILD_GSTREAMER=OFF
	$(CMAKE) --build $(ARM_BUILD) -j $(JOBS)
	$(CTEST) --test-dir $(ARM_BUILD) --output-on-failure -j $(JOBS) -E '^test_parallel_interposed$$'
	$(CMAKE) -S . -B $(ARM_ASAN_BUILD) -DCMAKE_TOOLCHAIN_FILE=$(ARM_TOOLCHAIN) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DQZRCFA_SANITIZE=ON -DQZRCFA_BUILD_BENCH=OFF -DQZRCFA_BUILD_TOOLS=OFF -DQZRCFA_BUILD_PYTHON=OFF -DQZRCFA_BUILD_GSTREAMER=OFF
	$(CMAKE) --build $(ARM_ASAN_BUILD) -j $(JOBS) --target test_kernels
	ASAN_OPTIONS=detect_leaks=0 $(CTEST) --test-dir $(ARM_ASAN_BUILD) --output-on-failure -R '^test_kernels$$'

# The optional parts never stop the build. With an interpreter that has its development
# files but no NumPy (a virtual environment of $(PYTHON) without its site packages),
# found first on the PATH and then named by -DPython3_EXECUTABLE, each configure skips
# the Python module with exactly one status line saying why, and the two libraries
# build. Only they are built, in a folder of their own.
test-optional: deps
	rm -rf $(OPTIONAL_BUILD) && $(PYTHON) -m venv --without-pip $(OPTIONAL_BUILD)/venv
	@$(OPTIONAL_BUILD)/venv/bin/python3 -c 'import numpy' 2>/dev/null && { echo "the venv sees NumPy"; exit 1; } || true
	PATH=$(CURDIR)/$(OPTIONAL_BUILD)/venv/bin:$$PATH $(CMAKE) -S . -B $(OPTIONAL_BUILD)/on-path -DCMAKE_BUILD_TYPE=Release \
	  > $(OPTIONAL_BUILD)/on-path.log
	$(CMAKE) -S . -B $(OPTIONAL_BUILD)/named -DCMAKE_BUILD_TYPE=Release \
	  -DPython3_EXECUTABLE=$(CURDIR)/$(OPTIONAL_BUILD)/venv/bin/python3 > $(OPTIONAL_BUILD)/named.log
	@for log in on-path named; do \
	  grep 'Python module' $(OPTIONAL_BUILD)/$$log.log; \
	  [ "$$(grep -c 'Python module' $(OPTIONAL_BUILD)/$$log.log)" = 1 ] \
	    && grep -q '^-- Python module: not built: .*venv/bin/python3[.0-9]* has no NumPy' $(OPTIONAL_BUILD)/$$log.log \
	    || { echo "$$log: expected one line skipping the Python module for want of NumPy"; exit 1; }; \
	done
	$(CMAKE) --build $(OPTIONAL_BUILD)/named -j $(JOBS) --target qzrcfa qzrcfa-ext

# The fuzz targets for FUZZ_SECONDS each, adding what they find to the build tree's
# corpus (tests/fuzz/corpus is the seed, kept as it is).
fuzz: deps
	CC=$(CLANG_CC) CXX=$(CLANG_CXX) $(CMAKE) -S . -B $(CLANG_BUILD) -DCMAKE_BUILD_TYPE=Release -DQZRCFA_FUZZ=ON -DQZRCFA_BUILD_BENCH=OFF
	$(CMAKE) --build $(CLANG_BUILD) -j $(JOBS) --target fuzz_readers fuzz_api
	for t in readers api; do \
	  $(CLANG_BUILD)/tests/fuzz/fuzz_$$t -max_total_time=$(FUZZ_SECONDS) -malloc_limit_mb=256 -print_final_stats=1 \
	    $(CLANG_BUILD)/tests/fuzz/corpus-$$t tests/fuzz/corpus/$$t || exit 1; \
	done

# OpenCV is the benchmark's optional peer: installed when the machine can, and the
# benchmark runs without its rows when not. Then the chart to choose a method by
# (bench/chart.py: matplotlib and OpenCV's Python module from Debian, installed here),
# and the GStreamer element against bayer2rgb in pipelines (bench/gst_compare.sh).
CHART_PACKAGES := python3-matplotlib python3-opencv
CHART          ?= docs/methods-chart.png
bench: build
	@dpkg-query -W -f='$${Status}' libopencv-dev 2>/dev/null | grep -q "install ok installed" || { \
	  SUDO=; [ "$$(id -u)" = 0 ] || SUDO=sudo; \
	  echo "installing: libopencv-dev (the benchmark's peer)"; \
	  $$SUDO apt-get update -qq && DEBIAN_FRONTEND=noninteractive $$SUDO apt-get install -y -qq libopencv-dev \
	    && $(CMAKE) -S . -B $(BUILD) && $(CMAKE) --build $(BUILD) -j $(JOBS) --target qzrcfa-bench \
	    || echo "libopencv-dev not installed: no peer rows"; }
	$(BUILD)/bench/qzrcfa-bench --benchmark_out=$(BUILD)/bench.json --benchmark_out_format=json $(BENCH_ARGS)
	$(call install_missing,$(CHART_PACKAGES))
	@$(PYTHON) bench/chart.py $(BUILD)/bench.json $(BUILD)/tools/qzrcfa-quality $(BUILD)/libqzrcfa-ext.so \
	  $(CHART) samples/astronaut.png samples/chelsea.png samples/coffee.png 2>$(BUILD)/chart.err \
	  || { grep -v "iCCP: known incorrect" $(BUILD)/chart.err; echo "no chart: bench/chart.py failed"; }
	@if [ -e $(BUILD)/gstreamer/libgstqzrcfa.so ]; then bench/gst_compare.sh $(BUILD); \
	else echo "GStreamer element not built: no pipeline comparison"; fi

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD) $(CLANG_BUILD) $(ARM_BUILD) $(ARM_ASAN_BUILD) $(OPTIONAL_BUILD) out
