# The channel's own cost per frame on the processing thread, beside copying a luma plane.
quillmar_add_benchmark(channel_bench SOURCES
  ${CMAKE_CURRENT_SOURCE_DIR}/Channel_bench.cpp
  LIBS QuillmarHost QuillmarBasebandSDK QuillmarFramework QuillmarConfig QuillmarLogging QuillmarDatabaseTestSupport
       Boost::json
)
add_dependencies(channel_bench LumensealBasebandEmbedderPlugin LumensealBasebandDetectorPlugin)
