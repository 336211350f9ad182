# The user's entry points. Every target first installs what is missing.
#   make test   build the asan configuration (AddressSanitizer + UBSan) and run every test
#   make demo   build the release configuration and run the main job
#   make bench  build the release configuration and run every benchmark

JOBS ?= $(shell nproc)
MAKEFLAGS += --no-print-directory
CMAKE_FLAGS_release = -DCMAKE_BUILD_TYPE=Release
CMAKE_FLAGS_asan = -DCMAKE_BUILD_TYPE=Debug -DQUILLMAR_SANITIZE=ON

.PHONY: deps release asan test demo bench clean

deps:
	@scripts/install-deps

release asan: deps
	@cmake -S . -B build/$@ $(CMAKE_FLAGS_$@) >/dev/null
	@cmake --build build/$@ -j $(JOBS)

test: asan
	@cd build/asan && ctest --output-on-failure -j $(JOBS)

demo: release
	@scripts/demo build/release

bench: release
	@bench/run build/release

clean:
	rm -rf build
