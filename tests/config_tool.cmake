# quillmar config check|sign|show, run as a user runs them: as a separate process.
quillmar_add_test(config_tool_test
  SOURCES
    ${CMAKE_CURRENT_SOURCE_DIR}/ConfigTool_test.cpp
    ${PROJECT_SOURCE_DIR}/config/ConfigTestSupport.cpp
  LIBS QuillmarConfig QuillmarLogging FrameworkTesting QuillmarToolRun Boost::json
)
target_compile_definitions(config_tool_test PRIVATE QUILLMAR_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
add_dependencies(config_tool_test quillmar)
