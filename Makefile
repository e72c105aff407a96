# Front door for the builds. `make test` builds and runs every test;
# `make test-asan` and `make test-tsan` do the same under the sanitizers,
# `make test-device` with the device's toolchain choices (clang, libc++, lld,
# no exceptions or RTTI but where Android.bp grants them), and
# `make test-aarch64` cross-built for AArch64 and run under qemu-user.
PRESET ?= default

.PHONY: all deps build test test-asan test-tsan test-device test-aarch64 bench format clean

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

test-device:
	@$(MAKE) --no-print-directory test PRESET=device

# AArch64 programs that tests exec (helper servers) run through binfmt_misc.
test-aarch64:
	@scripts/binfmt-aarch64.sh
	@$(MAKE) --no-print-directory test PRESET=aarch64

bench: build
	@for b in $$(find build/$(PRESET)/bench -name '*_bench' -type f | sort); do echo "== $$b"; $$b; done

format:
	@git ls-files '*.h' '*.cpp' | xargs clang-format -i

clean:
	@rm -rf build
