# Two entry points for a new machine: `make demo` and `make test` (and `make bench` to measure).
# They install the Debian packages the build and the tests need (when missing), then build.

SHELL := /bin/bash
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
BUILD_DIR ?= build
ASAN_DIR ?= build-asan
TSAN_DIR ?= build-tsan
FUZZ_DIR ?= build-fuzz
FUZZ_SECONDS ?= 300
BENCH_DIR ?= build-bench
BENCH_OUT ?= out/bench
BENCH_REPS ?= 5
PACKAGE_DIR ?= build-package
PREFIX ?= /usr/local
CMAKE_FLAGS ?=

PACKAGES := g++ cmake make pkg-config python3 python3-openpyxl python3-xlrd \
            libpugixml-dev libxlsxwriter-dev libgsf-1-dev libfmt-dev libcli11-dev libgtest-dev \
            libreoffice-calc-nogui gnumeric

# What the tests compare the workbooks with: LibreOffice Calc with its Python bridge (row heights
# against its own fit, PDF pages), the metric-compatible Carlito font it draws Calibri with, and
# poppler's pdftotext. Tests that need them are skipped where they are missing.
TEST_PACKAGES := libreoffice-calc-nogui python3-uno fonts-crosextra-carlito poppler-utils dpkg-dev

# What `make package` needs besides the build: dpkg-shlibdeps (dpkg-dev) finds the package's
# run-time dependencies.
PACKAGE_PACKAGES := dpkg-dev

# The generator of src/xl/xlFontMetrics.h (`make fontmetrics`).
FONT_PACKAGES := python3-fonttools fonts-crosextra-carlito

# What `make bench` needs besides the build: matplotlib draws its plot.
BENCH_PACKAGES := python3-matplotlib

# clang with its libFuzzer and sanitizer runtimes, for `make fuzz` only.
FUZZ_PACKAGES := clang libclang-rt-14-dev

SUDO := $(shell [ "$$(id -u)" = 0 ] || echo sudo)

# Installs those of the packages in $(1) that are missing (apt-get update only then).
define install_missing
	@missing=""; \
	for p in $(1); do \
	  dpkg-query -W -f='$${Status}' "$$p" 2>/dev/null | grep -q "install ok installed" || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  echo "Installing missing packages:$$missing"; \
	  $(SUDO) env DEBIAN_FRONTEND=noninteractive apt-get update -qq && \
	  $(SUDO) env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $$missing; \
	fi
endef

.PHONY: all deps deps-test fontmetrics deps-fuzz build build-cli build-asan test test-normal test-asan tsan fuzz demo bench install package format clean

all: build

deps:
	$(call install_missing,$(PACKAGES))

deps-test:
	$(call install_missing,$(TEST_PACKAGES))

# Writes the character widths of the workbook's font into src/xl/xlFontMetrics.h.
fontmetrics:
	$(call install_missing,$(FONT_PACKAGES))
	/usr/bin/python3 tools/gen_font_metrics.py

build: deps
	cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_FLAGS)
	cmake --build $(BUILD_DIR) -j $(JOBS)

# Only what the demo needs: the tool, not the tests.
build-cli: deps
	cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_FLAGS)
	cmake --build $(BUILD_DIR) -j $(JOBS) --target orv-export-excel

build-asan: deps
	cmake -S . -B $(ASAN_DIR) -DCMAKE_BUILD_TYPE=Debug -DORV_SANITIZE=ON $(CMAKE_FLAGS)
	cmake --build $(ASAN_DIR) -j $(JOBS)

# Every suite writes a report of its tests (GoogleTest's XML, and the same form from the Python
# suites) into the build's test-reports folder; `make test` ends with their summary.
reports_env = GTEST_OUTPUT=xml:$(CURDIR)/$(1)/test-reports/ ORV_TEST_REPORTS=$(CURDIR)/$(1)/test-reports

test-normal: build deps-test
	rm -rf $(BUILD_DIR)/test-reports
	$(call reports_env,$(BUILD_DIR)) ctest --test-dir $(BUILD_DIR) --output-on-failure -j $(JOBS)

test-asan: build-asan deps-test
	rm -rf $(ASAN_DIR)/test-reports
	$(call reports_env,$(ASAN_DIR)) \
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest --test-dir $(ASAN_DIR) --output-on-failure -j $(JOBS)

# The whole suite twice: a normal build, then AddressSanitizer + UndefinedBehaviorSanitizer;
# then the concurrent exports under ThreadSanitizer. Last, the count of the tests that ran and
# of those skipped, each with its reason; with CI=true a skip that tests/allowed-skips.txt does
# not list fails the run.
test: test-normal test-asan tsan
	@/usr/bin/python3 tests/skip_summary.py --allowed tests/allowed-skips.txt \
	  normal=$(BUILD_DIR)/test-reports asan=$(ASAN_DIR)/test-reports tsan=$(TSAN_DIR)/test-reports

# Concurrent exports built with ThreadSanitizer (only the reliability tests are built).
tsan: deps
	cmake -S . -B $(TSAN_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORV_TSAN=ON $(CMAKE_FLAGS)
	cmake --build $(TSAN_DIR) -j $(JOBS) --target test_reliability test_xlmodel
	rm -rf $(TSAN_DIR)/test-reports
	$(call reports_env,$(TSAN_DIR)) \
	TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:suppressions=$(CURDIR)/tests/reliability/tsan.supp \
	  $(TSAN_DIR)/tests/test_reliability --gtest_filter='*Concurrent*'
	$(call reports_env,$(TSAN_DIR)) \
	TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:suppressions=$(CURDIR)/tests/reliability/tsan.supp \
	  $(TSAN_DIR)/tests/test_xlmodel --gtest_filter='Saver.*:Spool.*:WriteAhead.*'

deps-fuzz:
	$(call install_missing,$(FUZZ_PACKAGES))

# The libFuzzer target over the whole export, for FUZZ_SECONDS (default 300). Seeds come from the
# examples; what it finds lands in $(FUZZ_DIR)/findings/ and belongs in tests/data/fuzz-regressions/.
fuzz: deps deps-fuzz
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORV_FUZZ=ON \
	  -DORV_BUILD_TESTS=OFF $(CMAKE_FLAGS)
	cmake --build $(FUZZ_DIR) -j $(JOBS) --target fuzz_export
	bash fuzz/make_seeds.sh $(CURDIR) $(FUZZ_DIR)/seeds
	mkdir -p $(FUZZ_DIR)/corpus $(FUZZ_DIR)/findings
	ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
	  $(FUZZ_DIR)/fuzz_export -max_total_time=$(FUZZ_SECONDS) -timeout=30 -rss_limit_mb=4096 \
	  -max_len=262144 -print_final_stats=1 -artifact_prefix=$(FUZZ_DIR)/findings/ \
	  $(FUZZ_DIR)/corpus $(FUZZ_DIR)/seeds

demo: build-cli
	@bash examples/run-demo.sh $(BUILD_DIR)

# The tool, the libraries, the headers, the pkg-config file and the CMake package into PREFIX
# (default /usr/local; `make install PREFIX=$$HOME/.local`).
install: build-cli
	cmake --build $(BUILD_DIR) -j $(JOBS) --target orvExportExcel orvExportExcel_static
	cmake --install $(BUILD_DIR) --prefix $(PREFIX)

# A Debian package of the same (a Release build without the tests, in PACKAGE_DIR).
package: deps
	$(call install_missing,$(PACKAGE_PACKAGES))
	cmake -S . -B $(PACKAGE_DIR) -DCMAKE_BUILD_TYPE=Release -DORV_BUILD_TESTS=OFF $(CMAKE_FLAGS)
	cmake --build $(PACKAGE_DIR) -j $(JOBS) --target orv-export-excel orvExportExcel orvExportExcel_static
	cd $(PACKAGE_DIR) && cpack -G DEB
	@ls $(PACKAGE_DIR)/*.deb

# Release build (-O2, no sanitizers) of the tool and the measuring tools, generated inputs in
# $(BENCH_OUT), then every case against its baseline (.xlsx: libxlsxwriter alone; .xls: the
# project's .xls saver alone), the time per cell from 10,000 to 100,000 parts with its plot, and
# a batch of 50 files on one thread against two (see bench/run_bench.py). The figures go to
# $(BENCH_OUT)/results.json, the plot to $(BENCH_OUT)/bench.png.
bench: deps
	$(call install_missing,$(BENCH_PACKAGES))
	cmake -S . -B $(BENCH_DIR) -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS_RELEASE="-O2 -DNDEBUG" \
	  -DORV_SANITIZE=OFF -DORV_BUILD_TESTS=OFF -DORV_BUILD_BENCH=ON $(CMAKE_FLAGS)
	cmake --build $(BENCH_DIR) -j $(JOBS) --target orv-export-excel orv-model-dump orv-baseline \
	  orv-baseline-xls
	/usr/bin/python3 bench/run_bench.py --build $(BENCH_DIR) --out $(BENCH_OUT) --reps $(BENCH_REPS)

format:
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf $(BUILD_DIR) $(ASAN_DIR) $(TSAN_DIR) $(FUZZ_DIR) $(BENCH_DIR) $(PACKAGE_DIR)
