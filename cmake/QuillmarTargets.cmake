# Helpers that give every part and every test the same shape.

# quillmar_add_part(<name> SOURCES <files...> [LIBS <targets...>])
# A part of the product library: compiled once, with the product's export macro, linked into
# QuillmarBasebandSDK and directly into the part's own tests.
function(quillmar_add_part name)
  cmake_parse_arguments(PART "" "" "SOURCES;LIBS" ${ARGN})
  add_library(${name} OBJECT ${PART_SOURCES})
  target_compile_definitions(${name} PUBLIC QUILLMAR_EXPORTS)
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR}/generated)
  target_link_libraries(${name} PUBLIC QuillmarFramework ${PART_LIBS})
endfunction()

# quillmar_add_test(<name> SOURCES <files...> [LIBS <targets...>])
# One GoogleTest executable; each of its tests becomes one CTest test.
function(quillmar_add_test name)
  cmake_parse_arguments(TEST "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${TEST_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE ${TEST_LIBS} GTest::gtest GTest::gmock GTest::gtest_main)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST
    PROPERTIES ENVIRONMENT "QUILLMAR_BUILD_DIR=${PROJECT_BINARY_DIR}")
endfunction()

# quillmar_posix_only_test_sources(<test> <files...>)
# Leaves test files out of <test> in the Windows build: those that need what only POSIX has
# (fork for children that work with each other, setenv, dlopen). README.md says which and why.
function(quillmar_posix_only_test_sources test)
  if(WIN32)
    get_target_property(sources ${test} SOURCES)
    list(REMOVE_ITEM sources ${ARGN})
    set_target_properties(${test} PROPERTIES SOURCES "${sources}")
  endif()
endfunction()
