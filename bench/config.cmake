# Configuration loading: the product's reader (load, validate, checksum) against a bare parse.
quillmar_add_benchmark(config_bench
  SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/ConfigLoad_bench.cpp
  LIBS QuillmarConfig QuillmarLogging Boost::json
)
