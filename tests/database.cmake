# Embedders in separate processes on one time-slot file.
if(TARGET QuillmarDatabase)
  quillmar_add_test(database_processes_test
    SOURCES
      ${CMAKE_CURRENT_LIST_DIR}/TimeSlotProcesses_test.cpp
    LIBS FrameworkTesting QuillmarDatabaseTestSupport
  )
endif()

# The quillmar tool's view of a time-slot file, run as a user runs it.
if(TARGET QuillmarDatabase AND TARGET quillmar)
  quillmar_add_test(database_tool_test
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/DbShowCommand_test.cpp
    LIBS QuillmarDatabaseTestSupport QuillmarToolRun Boost::json
  )
  add_dependencies(database_tool_test quillmar)
endif()
