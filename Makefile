# Front door for the host build. `make test` builds and runs every test;
# `make test-asan` and `make test-tsan` do the same under the sanitizers.
PRESET ?= default

.PHONY: all deps build test test-asan test-tsan bench format clean

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

bench: build
	@for b in $$(find build/$(PRESET)/bench -name '*_bench' -type f | sort); do echo "== $$b"; $$b; done

format:
	@git ls-files '*.h' '*.cpp' | xargs clang-format -i

clean:
	@rm -rf build
