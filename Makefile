# The user's entry points. Every target first installs what is missing.
#   make test   build the asan configuration (AddressSanitizer + UBSan) and run every test
#   make demo   build the release configuration and run the main job
#   make bench  build the release configuration and run every benchmark
#   make package        build the release configuration and a Debian package of the install tree
#   make package-check  install into a scratch prefix and build and run a host against it
#   make win64          cross-build the Windows DLLs and quillmar.exe with mingw-w64 (build/win64)
#   make win64-check    and check the DLL's exports and run the Windows tests under wine

JOBS ?= $(shell nproc)
MAKEFLAGS += --no-print-directory
CMAKE_FLAGS_release = -DCMAKE_BUILD_TYPE=Release
CMAKE_FLAGS_asan = -DCMAKE_BUILD_TYPE=Debug -DQUILLMAR_SANITIZE=ON
CMAKE_FLAGS_win64 = -DCMAKE_TOOLCHAIN_FILE=$(CURDIR)/cmake/mingw-w64.cmake -DCMAKE_BUILD_TYPE=Release \
  -DQUILLMAR_WITH_POSTGRESQL=OFF -DQUILLMAR_BUILD_GSTREAMER=OFF -DQUILLMAR_BUILD_BENCHMARKS=OFF
WIN64_TARGETS = QuillmarBasebandSDK LumensealBasebandEmbedderPlugin LumensealBasebandDetectorPlugin \
  quillmar
# The test executables that build for Windows and run without a sqlite3.dll (scripts/win64-tests).
WIN64_TESTS = config_test events_test framework_test logging_test tools_test watermark_test

.PHONY: deps release asan test demo bench package package-check win64 win64-check clean

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

win64: deps
	@cmake -S . -B build/win64 $(CMAKE_FLAGS_win64) >/dev/null
	@cmake --build build/win64 -j $(JOBS) --target $(WIN64_TARGETS)

win64-check: win64
	@cmake --build build/win64 -j $(JOBS) --target $(WIN64_TESTS)
	@scripts/check-exports build/win64/bin/QuillmarBasebandSDK.dll packaging/win64-exports.txt
	@scripts/win64-tests build/win64

clean:
	rm -rf build
