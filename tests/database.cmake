# The reservoir's rules, and embedders in separate processes on one reservoir, on a SQLite file
# and on a throwaway PostgreSQL server alike.
if(TARGET QuillmarPostgresTestSupport)
  quillmar_add_test(database_processes_test
    SOURCES
      ${CMAKE_CURRENT_LIST_DIR}/ReservoirBackends_test.cpp
      ${CMAKE_CURRENT_LIST_DIR}/TimeSlotProcesses_test.cpp
    LIBS QuillmarDatabaseTestSupport QuillmarPostgresTestSupport
  )
endif()

# The quillmar tool's view of a time-slot file, run as a user runs it.
if(TARGET QuillmarDatabase AND TARGET quillmar)
  quillmar_add_test(database_tool_test
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/DbShowCommand_test.cpp
    LIBS QuillmarDatabaseTestSupport QuillmarPostgresTestSupport QuillmarToolRun Boost::json
  )
  target_compile_definitions(database_tool_test PRIVATE QUILLMAR_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  add_dependencies(database_tool_test quillmar)
endif()
