# Front door for the host build. `make test` builds and runs every test;
# `make test-asan` and `make test-tsan` do the same under the sanitizers.
# `make soak` runs the soak alone with SOAK_RESTARTS service restarts;
# `make fuzz` runs every fuzz target for FUZZ_SECONDS each.
PRESET ?= default
SOAK_RESTARTS ?= 1000
FUZZ_SECONDS ?= 600

.PHONY: all deps build test test-asan test-tsan soak fuzz bench format clean

all: build

deps:
	@scripts/install-deps.sh

build:
	@cmake --preset $(PRESET) >/dev/null
	@cmake --build --preset $(PRESET)

test: build
	@ctest --preset $(PRESET)

test-asan:
	@$(MAKE) --no-print-directory test PRESET=asan

test-tsan:
	@$(MAKE) --no-print-directory test PRESET=tsan

soak: build
	@ZEL_SOAK_RESTARTS=$(SOAK_RESTARTS) ctest --preset $(PRESET) -L soak --verbose

fuzz:
	@cmake --preset fuzz >/dev/null
	@cmake --build --preset fuzz
	@fuzz/run.sh build/fuzz $(FUZZ_SECONDS)

bench: build
	@for b in $$(find build/$(PRESET)/bench -name '*_bench' -type f | sort); do echo "== $$b"; $$b; done

format:
	@git ls-files '*.h' '*.cpp' | xargs clang-format -i

clean:
	@rm -rf build
