# Entry points: `make demo`, `make test`, `make check`, `make bench`, `make asan`, `make tsan`.
PRESET ?= default
JOBS ?= $(shell nproc)
BUILD_DIR := build/$(PRESET)

.PHONY: all deps configure build test check bench asan tsan demo docs clean

all: build

deps:
	scripts/install-deps.sh

configure: deps
	cmake --preset $(PRESET) >/dev/null

build: configure
	cmake --build --preset $(PRESET) -j $(JOBS)

test: build
	ctest --preset $(PRESET) -j $(JOBS) -L 'unit|integration|realclient|browser'

check: build
	ctest --preset $(PRESET) -j $(JOBS) -L unit

demo: build
	scripts/demo.sh

docs: build
	build/$(PRESET)/vorel --data-dir build/docs-data show-settings --reference > docs/settings.md 2>/dev/null

bench:
	$(MAKE) build PRESET=release
	build/release/vorel_bench

asan:
	$(MAKE) test PRESET=asan

# The thread sanitizer over the DIF tests (the threaded sample generator and its team).
tsan:
	$(MAKE) build PRESET=tsan
	ctest --preset tsan -j $(JOBS) -L unit -R '^(Dif|SampleGeneration|WorkerTeam|Noise|Quantiser|CaCode|IqGeneration|GenNav)'

clean:
	rm -rf build
