# The time-slot reservoirs under load from several processes: one file, one PostgreSQL server.
if(TARGET QuillmarPostgresTestSupport)
  quillmar_add_benchmark(database_bench
    SOURCES
      ${CMAKE_CURRENT_LIST_DIR}/TimeSlotBench.cpp
    LIBS FrameworkTesting QuillmarDatabaseTestSupport QuillmarPostgresTestSupport
  )
endif()
