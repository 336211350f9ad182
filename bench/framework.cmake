quillmar_add_benchmark(property_store_bench
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/PropertyStore_bench.cpp
  LIBS QuillmarFramework)
