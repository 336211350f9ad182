# The GStreamer element's cost per frame beside an embedding session called directly.
if(TARGET QuillmarGstElements)
  quillmar_add_benchmark(gst_bench
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/Gst_bench.cpp
    LIBS QuillmarGstElements PkgConfig::GSTREAMER_CHECK FrameworkTesting)
  target_compile_definitions(gst_bench PRIVATE QUILLMAR_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  add_dependencies(gst_bench LumensealBasebandEmbedderPlugin LumensealBasebandDetectorPlugin)
endif()
