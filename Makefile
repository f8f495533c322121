# The front door. Every target installs what it needs first (scripts/install-deps.sh, as root or with sudo)
# and is silent about it when all is there.
JOBS ?= $(shell nproc)
SECONDS ?= 30
PREFIX ?= /usr/local
export JOBS

.PHONY: all build demo test sanitize asan tsan fuzz bench armhf lint format install clean

all: build

# Libraries and build/recordctl; the tests join once `make test` was asked for.
build:
	@scripts/install-deps.sh build
	@test -f build/build.ninja || cmake --preset release -DRECORD_BUILD_TESTS=OFF
	@cmake --build build --parallel $(JOBS)

demo:
	@scripts/install-deps.sh demo
	@$(MAKE) --no-print-directory build
	@scripts/demo.sh

test:
	@scripts/install-deps.sh test
	@scripts/suite.sh release

# Address and undefined behaviour first, then threads.
sanitize: asan
	@$(MAKE) --no-print-directory tsan

asan tsan:
	@scripts/install-deps.sh sanitize
	@scripts/suite.sh $@

# Each fuzzer for SECONDS seconds, beginning with files that the library's own writers made.
fuzz:
	@scripts/install-deps.sh fuzz
	@scripts/fuzz.sh $(SECONDS)

bench:
	@scripts/install-deps.sh bench
	@cmake --preset bench
	@cmake --build --preset bench --parallel $(JOBS)
	@build/bench/record_bench $(BENCH_ARGS)

# The library for 32-bit ARM, its suite under qemu-arm.
armhf:
	@scripts/install-deps.sh armhf
	@scripts/suite.sh armhf

lint:
	@scripts/install-deps.sh lint
	@scripts/lint.sh

format:
	@scripts/install-deps.sh lint
	@git ls-files '*.cpp' '*.h' | xargs clang-format -i

install: build
	@cmake --install build --prefix $(PREFIX)

clean:
	@rm -rf build
