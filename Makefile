# Thin wrapper over CMake. `make demo` and `make test` work on a fresh machine: any
# Debian package the build needs and the machine lacks is installed first.
BUILD      ?= build
ASAN_BUILD ?= build-asan
JOBS       ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE      ?= cmake
CTEST      ?= ctest

# Debian packages the build, tests, benchmarks and tools need.
PACKAGES := cmake g++ make pkg-config libgtest-dev libbenchmark-dev libpng-dev

# The ARM build: the cross compiler, qemu's user-mode emulation, and the arm64 packages
# (multiarch) of the libraries the tests and tools link and of the runtime they run on.
ARM_BUILD      ?= build-arm
ARM_ASAN_BUILD ?= build-arm-asan
ARM_TOOLCHAIN  := $(CURDIR)/cmake/aarch64-linux-gnu.cmake
ARM_PACKAGES   := g++-aarch64-linux-gnu qemu-user libgtest-dev:arm64 libpng-dev:arm64 libstdc++6:arm64

.PHONY: all build demo test test-release test-asan test-arm bench deps deps-arm clean

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

$(BUILD)/CMakeCache.txt: | deps
	$(CMAKE) -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release

build: deps $(BUILD)/CMakeCache.txt
	$(CMAKE) --build $(BUILD) -j $(JOBS)

demo: build
	$(CMAKE) --build $(BUILD) --target demo

test: test-release test-asan test-arm

test-release: build
	$(CTEST) --test-dir $(BUILD) --output-on-failure -j $(JOBS)

# The whole suite again under AddressSanitizer and UndefinedBehaviorSanitizer.
test-asan: deps
	$(CMAKE) -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQZRCFA_SANITIZE=ON -DQZRCFA_BUILD_BENCH=OFF
	$(CMAKE) --build $(ASAN_BUILD) -j $(JOBS)
	$(CTEST) --test-dir $(ASAN_BUILD) --output-on-failure -j $(JOBS)

# Cross-built for aarch64 and run under qemu-aarch64: the whole suite, NEON kernels
# included, then the kernel tests again under AddressSanitizer and
# UndefinedBehaviorSanitizer, which alone check what the NEON kernels read and write
# (the rest of the library is the code the x86-64 sanitizer run checks). LeakSanitizer
# does not run under emulation; the sanitizer runtimes are linked statically.
test-arm: deps-arm
	$(CMAKE) -S . -B $(ARM_BUILD) -DCMAKE_TOOLCHAIN_FILE=$(ARM_TOOLCHAIN) -DCMAKE_BUILD_TYPE=Release -DQZRCFA_BUILD_BENCH=OFF
	$(CMAKE) --build $(ARM_BUILD) -j $(JOBS)
	$(CTEST) --test-dir $(ARM_BUILD) --output-on-failure -j $(JOBS)
	$(CMAKE) -S . -B $(ARM_ASAN_BUILD) -DCMAKE_TOOLCHAIN_FILE=$(ARM_TOOLCHAIN) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DQZRCFA_SANITIZE=ON -DQZRCFA_BUILD_BENCH=OFF -DQZRCFA_BUILD_TOOLS=OFF \
	  "-DCMAKE_EXE_LINKER_FLAGS=-static-libasan -static-libubsan"
	$(CMAKE) --build $(ARM_ASAN_BUILD) -j $(JOBS) --target test_kernels
	ASAN_OPTIONS=detect_leaks=0 $(CTEST) --test-dir $(ARM_ASAN_BUILD) --output-on-failure -R '^test_kernels$$'

bench: build
	$(BUILD)/bench/qzrcfa-bench $(BENCH_ARGS)

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(ARM_BUILD) $(ARM_ASAN_BUILD) out
