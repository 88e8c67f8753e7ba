# The front door. Each target does its own set-up and is quick when nothing is missing.
#   make            build library, module, tests and benchmarks (build/release)
#   make demo       krige and simulate real data from Python and from C; pictures in examples/output
#   make test       build, then run every test
#   make test-large run the slow tests: memory of large runs, functions on 10^8 arguments
#   make bench      run the benchmarks
#   make wheel      build the Python package as a wheel (build/wheels)
#   make sanitize   build and run the tests under AddressSanitizer and UBSan (build/asan)
#   make races      run random calls with threads under ThreadSanitizer (build/tsan)
#   make fuzz       throw hostile files at the readers, each for FUZZ_SECONDS (build/fuzz)
#   make same-bits  compare the results of GCC's and Clang's builds, bit for bit (build/same_bits)
#   make compilers  build and test the library with each compiler of COMPILERS (build/compilers)
#   make reference  build the reference of the C interface as HTML (build/reference)
#   make docs       build the site of the documents, with that reference (build/docs)
#   make format     format the sources          make lint    check them
#   make clean      remove what all of these have made
# Another Python than Debian's, or fewer jobs: make PYTHON=/path/to/python3 JOBS=1

PYTHON ?= /usr/bin/python3
JOBS ?= $(shell nproc)
FUZZ_SECONDS ?= 60
COMPILERS ?= g++-11 g++-12 clang++-14 clang++-16
SHELL := /bin/bash
SUDO := $(if $(filter-out 0,$(shell id -u)),sudo)

BUILD := build/release
RUN_PYTHON := PYTHONPATH=$(BUILD)/python PYTHONDONTWRITEBYTECODE=1 $(PYTHON)

PACKAGES := g++ cmake ninja-build swig python3-dev python3-numpy python3-matplotlib \
            libgtest-dev libbenchmark-dev python3-pytest python3-scipy python3-skimage pkg-config \
            pybind11-dev python3-pandas python3-xarray python3-hypothesis python3-tqdm mypy \
            python3-venv python3-pip python3-dask python3-distributed python3-zarr python3-netcdf4
LINT_PACKAGES := clang-format clang-tidy libomp-dev shellcheck
CLANG_PACKAGES := clang libclang-rt-dev libomp-dev
REFERENCE_PACKAGES := doxygen
DOCS_PACKAGES := python3-sphinx python3-myst-parser furo

# $(call install,packages): says what it installs, and installs it; nothing at all if all are there.
define install
@command -v dpkg-query > /dev/null || { echo "Not a Debian system: please see to $(1)"; exit 0; }; \
missing=$$(for package in $(1); do \
  dpkg-query -W -f='$${Status}' $$package 2> /dev/null | grep -q 'ok installed' || echo $$package; done); \
if [ -n "$$missing" ]; then \
  echo "Installing with apt-get:" $$missing; \
  $(SUDO) apt-get update -q && \
  $(SUDO) env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends $$missing; \
fi
endef

.PHONY: all setup setup-lint setup-clang setup-reference configure demo test test-large bench sanitize fuzz races same-bits compilers \
        wheel reference docs format lint clean

all: configure
	cmake --build --preset release --parallel $(JOBS)

setup:
	$(call install,$(PACKAGES))

setup-lint:
	$(call install,$(LINT_PACKAGES))

setup-clang:
	$(call install,$(CLANG_PACKAGES))

setup-reference:
	$(call install,$(REFERENCE_PACKAGES))

configure: setup
	@mkdir -p build
	@cmake --preset release -DKESTRUM_PYTHON=$(PYTHON) > build/configure.log 2>&1 || { cat build/configure.log; exit 1; }

demo: configure
	cmake --build --preset release --parallel $(JOBS) --target kestrum_python kestrum_shared
	@for example in examples/*.py examples/native/*_*.py; do echo "== $$example"; $(RUN_PYTHON) $$example || exit 1; done
	@mkdir -p $(BUILD)/bin
	$(CC) -std=c99 -O2 -I$(BUILD)/include examples/native/krige_meuse.c -o $(BUILD)/bin/krige_meuse \
	  -L$(BUILD)/lib -lkestrum -lm -Wl,-rpath,$(CURDIR)/$(BUILD)/lib
	$(BUILD)/bin/krige_meuse examples/data/meuse examples/output/meuse_from_c.gslib
	$(CC) -std=c99 -O2 -I$(BUILD)/include examples/native/read_maps.c -o $(BUILD)/bin/read_maps \
	  -L$(BUILD)/lib -lkestrum -Wl,-rpath,$(CURDIR)/$(BUILD)/lib
	$(BUILD)/bin/read_maps examples/output/meuse_moving.gslib examples/output/meuse_from_c.gslib

test: all
	ctest --preset release --parallel $(JOBS)

test-large: all
	$(RUN_PYTHON) -m pytest -s -q -p no:cacheprovider tests/large
	KESTRUM_ARGUMENTS=100000000 $(BUILD)/bin/numeric_tests --gtest_filter='Elementary.*'
	$(RUN_PYTHON) benchmarks/large_work.py graph tiles realizations tasks functions

bench: all
	@for program in $(BUILD)/bin/*_benchmark; do echo "== $$program"; $$program || exit 1; done
	$(RUN_PYTHON) benchmarks/side_by_side.py
	$(RUN_PYTHON) benchmarks/call_overhead.py

# The package from nothing, as pip makes it.
wheel: setup
	$(PYTHON) -m pip wheel --no-deps --wheel-dir build/wheels .

sanitize: setup
	cmake --preset asan
	cmake --build --preset asan --parallel $(JOBS)
	ctest --preset asan --parallel $(JOBS)

# What a fuzzer finds out goes to build/fuzz/corpus, an input that breaks a promise to build/fuzz.
fuzz: setup setup-clang
	cmake --preset fuzz
	cmake --build --preset fuzz --parallel $(JOBS)
	@for seeds in fuzz/corpus/*; do \
	  reader=$${seeds##*/}; echo "== $$reader"; mkdir -p build/fuzz/corpus/$$reader; \
	  build/fuzz/bin/$${reader}_fuzzer -max_total_time=$(FUZZ_SECONDS) -max_len=65536 -rss_limit_mb=2048 -timeout=10 \
	    -verbosity=0 -artifact_prefix=build/fuzz/$$reader- build/fuzz/corpus/$$reader $$seeds || exit 1; \
	done

# Clang and its OpenMP library, whose synchronisation archer explains to ThreadSanitizer.
races: setup setup-clang
	cmake --preset tsan
	cmake --build --preset tsan --parallel $(JOBS) --target soak
	OMP_TOOL_LIBRARIES=$$(clang -print-search-dirs | sed -n 's/^programs: =\([^:]*:\)*\([^:]*llvm[^:]*\)\/bin.*/\2/p')/lib/libarcher.so TSAN_OPTIONS=ignore_noninstrumented_modules=1 \
	  OMP_WAIT_POLICY=passive build/tsan/bin/soak --cases 2000

same-bits: setup setup-clang
	tests/same_bits/compare_compilers.sh build/same_bits

# Packages are named after the C compiler; each LLVM's OpenMP library excludes the others, so that Clang uses one at a time.
compilers: setup
	@for compiler in $(COMPILERS); do \
	  tests/compilers.sh $$compiler build/compilers/$$compiler $(JOBS) || exit 1; \
	done

# A warning is an error.
reference: setup-reference
	@mkdir -p build
	doxygen docs/Doxyfile

# So it is here. The pictures of the gallery are made by the examples.
docs: configure reference
	$(call install,$(DOCS_PACKAGES))
	cmake --build --preset release --parallel $(JOBS) --target kestrum_python
	MPLBACKEND=agg $(RUN_PYTHON) -m sphinx -q -W --keep-going -b html docs build/docs
	rm -rf build/docs/reference && cp -r build/reference build/docs/reference

SOURCES = $(shell find src python tests fuzz benchmarks examples -name '*.[ch]' -o -name '*.[ch]pp')

format: setup-lint
	clang-format -i $(SOURCES)

lint: setup-lint configure
	@clang-format --dry-run -Werror $(SOURCES)
	@printf '%s\n' $(filter src/%.cpp,$(SOURCES)) | xargs -P $(JOBS) -n 1 clang-tidy -quiet -p $(BUILD) 2> /dev/null
	shellcheck .ci/run tests/*.sh tests/same_bits/*.sh tests/install/*.sh

clean:
	rm -rf build examples/output
