# Two entry points for a new machine: `make demo` and `make test`.
# Both install the Debian packages the build and the tests need (when missing), then build.

SHELL := /bin/bash
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
BUILD_DIR ?= build
ASAN_DIR ?= build-asan
CMAKE_FLAGS ?=

PACKAGES := g++ cmake make pkg-config python3 python3-openpyxl \
            libpugixml-dev libxlsxwriter-dev libfmt-dev libcli11-dev libgtest-dev

SUDO := $(shell [ "$$(id -u)" = 0 ] || echo sudo)

.PHONY: all deps build build-asan test test-normal test-asan demo format clean

all: build

deps:
	@missing=""; \
	for p in $(PACKAGES); do \
	  dpkg-query -W -f='$${Status}' "$$p" 2>/dev/null | grep -q "install ok installed" || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  echo "Installing missing packages:$$missing"; \
	  $(SUDO) env DEBIAN_FRONTEND=noninteractive apt-get update -qq && \
	  $(SUDO) env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $$missing; \
	fi

build: deps
	cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_FLAGS)
	cmake --build $(BUILD_DIR) -j $(JOBS)

build-asan: deps
	cmake -S . -B $(ASAN_DIR) -DCMAKE_BUILD_TYPE=Debug -DORV_SANITIZE=ON $(CMAKE_FLAGS)
	cmake --build $(ASAN_DIR) -j $(JOBS)

test-normal: build
	ctest --test-dir $(BUILD_DIR) --output-on-failure -j $(JOBS)

test-asan: build-asan
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest --test-dir $(ASAN_DIR) --output-on-failure -j $(JOBS)

# The whole suite twice: a normal build, then AddressSanitizer + UndefinedBehaviorSanitizer.
test: test-normal test-asan

demo: build
	@bash examples/run-demo.sh $(BUILD_DIR)

format:
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf $(BUILD_DIR) $(ASAN_DIR)
