# quillmar embed and quillmar detect, run as a user runs them.
quillmar_add_test(tool_host_test
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/EmbedCommand_test.cpp
  LIBS FrameworkTesting QuillmarToolRun Boost::json)
target_compile_definitions(tool_host_test PRIVATE QUILLMAR_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
add_dependencies(tool_host_test quillmar)
