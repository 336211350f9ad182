# The time-slot database under load from several processes on one file.
if(TARGET QuillmarDatabase)
  quillmar_add_benchmark(database_bench
    SOURCES
      ${CMAKE_CURRENT_LIST_DIR}/TimeSlotBench.cpp
    LIBS FrameworkTesting QuillmarDatabaseTestSupport
  )
endif()
