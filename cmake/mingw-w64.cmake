# Cross-compiles for 64-bit Windows with Debian's mingw-w64 (the POSIX-threads flavour, for
# std::thread and std::mutex):
#   cmake -S . -B build/win64 -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake
# Libraries and headers are looked for only under the target's own root; the few host headers
# the build needs (header-only Boost, CLI11, sqlite3.h) are handed over one by one in
# cmake/win64/Dependencies.cmake.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(QUILLMAR_MINGW_TRIPLET x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${QUILLMAR_MINGW_TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${QUILLMAR_MINGW_TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${QUILLMAR_MINGW_TRIPLET}-windres)
set(CMAKE_DLLTOOL ${QUILLMAR_MINGW_TRIPLET}-dlltool)

set(CMAKE_FIND_ROOT_PATH /usr/${QUILLMAR_MINGW_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
