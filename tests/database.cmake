# Embedders in separate processes on one time-slot file.
if(TARGET QuillmarDatabase)
  quillmar_add_test(database_processes_test
    SOURCES
      ${CMAKE_CURRENT_LIST_DIR}/TimeSlotProcesses_test.cpp
      ${CMAKE_CURRENT_LIST_DIR}/ChildProcess.cpp
    LIBS QuillmarDatabaseTestSupport
  )
endif()
