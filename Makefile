# Front door for the builds. `make demo` builds the tools and runs a short
# session against a simulator; `make test` builds and runs every test;
# `make test-asan` and `make test-tsan` do the same under the sanitizers,
# `make test-device` with the device's toolchain choices (clang, libc++, lld,
# no exceptions or RTTI but where Android.bp grants them), and
# `make test-aarch64` cross-built for AArch64 and run under qemu-user.
# `make soak` runs the soak alone with SOAK_RESTARTS service restarts;
# `make fuzz` runs every fuzz target for FUZZ_SECONDS each.
# `make bench` runs every benchmark; `make callgrind-pair` prints the client's
# instructions per request+release pair on the IDolm proxy (under callgrind).
# Each installs the Debian packages it needs first.
PRESET ?= default
SOAK_RESTARTS ?= 1000
FUZZ_SECONDS ?= 600

.PHONY: all deps build test test-asan test-tsan test-device test-aarch64 soak fuzz bench callgrind-pair demo format clean

all: build

deps:
	@scripts/install-deps.sh

build: deps
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

soak: build
	@ZEL_SOAK_RESTARTS=$(SOAK_RESTARTS) ctest --preset $(PRESET) -L soak --verbose

fuzz: deps
	@cmake --preset fuzz >/dev/null
	@cmake --build --preset fuzz
	@fuzz/run.sh build/fuzz $(FUZZ_SECONDS)

bench: build
	@for b in $$(find build/$(PRESET)/bench -name '*_bench' -type f | sort); do echo "== $$b"; $$b; done

callgrind-pair: deps
	@PRESET=$(PRESET) scripts/callgrind-pair.sh

# A scripted zelctl session against a private simulator (see scripts/demo.sh).
demo:
	@scripts/demo.sh

format:
	@git ls-files '*.h' '*.cpp' | xargs clang-format -i

clean:
	@rm -rf build
