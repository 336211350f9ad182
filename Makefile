# The user's entry points. Every target first installs what is missing.
#   make test   build the asan configuration (AddressSanitizer + UBSan) and run every test
#   make demo   build the release configuration and run the main job
#   make bench  build the release configuration and run every benchmark
#   make package        build the release configuration and a Debian package of the install tree
#   make package-check  install into a scratch prefix and build and run a host against it

JOBS ?= $(shell nproc)
MAKEFLAGS += --no-print-directory
CMAKE_FLAGS_release = -DCMAKE_BUILD_TYPE=Release
CMAKE_FLAGS_asan = -DCMAKE_BUILD_TYPE=Debug -DQUILLMAR_SANITIZE=ON

.PHONY: deps release asan test demo bench package package-check clean

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

package: release
	@cd build/release && cpack -G DEB

package-check: release
	@scripts/check-install build/release

clean:
	rm -rf build
