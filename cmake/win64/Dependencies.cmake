# The Windows build's dependencies, as the same targets that the Linux build finds as packages:
#   Boost::headers, Boost::json  header-only Boost from the host's /usr/include; Boost.JSON
#                                compiled once, from its headers, into a static library
#   CLI11::CLI11                 the host's header-only CLI11
#   SQLite::SQLite3              sqlite3.h and an import library for the user's sqlite3.dll, made
#                                from sqlite3.def: the functions the library calls, and no others.
#                                The import is delay-loaded: sqlite3.dll is loaded by the first
#                                database call, so a host that never opens a database needs none.
#   ZLIB::ZLIB                   mingw-w64's zlib, linked statically
#   GTest::gtest, GTest::gmock, GTest::gtest_main  built from Debian's GoogleTest sources
# Each host header folder is reached through a folder of links of its own, so that no other host
# header can shadow a mingw-w64 one.
# Libraries are named as a Windows host names them: QuillmarBasebandSDK.dll, not lib....dll.
set(CMAKE_SHARED_LIBRARY_PREFIX "")

set(host_headers ${CMAKE_BINARY_DIR}/host-headers)
file(MAKE_DIRECTORY ${host_headers})
foreach(entry boost CLI sqlite3.h)
  if(NOT EXISTS /usr/include/${entry})
    message(FATAL_ERROR "/usr/include/${entry} is missing: run scripts/install-deps")
  endif()
  file(CREATE_LINK /usr/include/${entry} ${host_headers}/${entry} SYMBOLIC)
endforeach()

add_library(Boost::headers INTERFACE IMPORTED GLOBAL)
target_include_directories(Boost::headers SYSTEM INTERFACE ${host_headers})
# Boost's own Windows headers want at least Windows 7.
target_compile_definitions(Boost::headers INTERFACE _WIN32_WINNT=0x0601)

add_library(QuillmarBoostJson STATIC ${CMAKE_CURRENT_LIST_DIR}/BoostJson.cpp)
set_target_properties(QuillmarBoostJson PROPERTIES COMPILE_OPTIONS "-w")
target_link_libraries(QuillmarBoostJson PUBLIC Boost::headers)
add_library(Boost::json ALIAS QuillmarBoostJson)

add_library(CLI11::CLI11 INTERFACE IMPORTED GLOBAL)
target_include_directories(CLI11::CLI11 SYSTEM INTERFACE ${host_headers})

set(sqlite_import ${CMAKE_BINARY_DIR}/lib/libsqlite3.delay.a)
add_custom_command(OUTPUT ${sqlite_import}
  COMMAND ${CMAKE_DLLTOOL} --input-def ${CMAKE_CURRENT_LIST_DIR}/sqlite3.def
          --dllname sqlite3.dll --output-delaylib ${sqlite_import}
  DEPENDS ${CMAKE_CURRENT_LIST_DIR}/sqlite3.def
  COMMENT "Making the delay-loaded import library of sqlite3.dll")
add_custom_target(QuillmarSqliteImport DEPENDS ${sqlite_import})
add_library(SQLite::SQLite3 INTERFACE IMPORTED GLOBAL)
target_include_directories(SQLite::SQLite3 SYSTEM INTERFACE ${host_headers})
target_link_libraries(SQLite::SQLite3 INTERFACE ${sqlite_import} delayimp)
add_dependencies(SQLite::SQLite3 QuillmarSqliteImport)

find_library(QUILLMAR_ZLIB_STATIC libz.a REQUIRED)
find_path(QUILLMAR_ZLIB_INCLUDE zlib.h REQUIRED)
add_library(ZLIB::ZLIB STATIC IMPORTED GLOBAL)
set_target_properties(ZLIB::ZLIB PROPERTIES
  IMPORTED_LOCATION ${QUILLMAR_ZLIB_STATIC}
  INTERFACE_INCLUDE_DIRECTORIES ${QUILLMAR_ZLIB_INCLUDE})

find_package(Threads REQUIRED)

if(BUILD_TESTING)
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(gtest_force_shared_crt ON CACHE BOOL "" FORCE)
  add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  # GoogleTest's own build names its targets GTest::gtest, GTest::gmock and GTest::gtest_main.
  foreach(library gtest gmock gtest_main)
    target_compile_options(${library} PRIVATE -w)
  endforeach()
  enable_testing()
  include(GoogleTest)
endif()
