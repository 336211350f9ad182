quillmar_add_benchmark(watermark_bench
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/Watermark_bench.cpp
  LIBS LumensealWatermarkTesting)
