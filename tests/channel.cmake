# The channel as a host drives it: the product library loaded with dlopen, channels made by its
# CreateProcessor, the reference plug-ins loaded from their shared libraries, real configuration
# and time-slot files, threads and processes.
quillmar_add_test(channel_test
  SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/Channel_test.cpp
  LIBS FrameworkTesting QuillmarHost QuillmarBasebandSDK QuillmarFramework QuillmarConfig
       QuillmarLogging QuillmarDatabaseTestSupport LumensealWatermarkTesting Boost::json
)
add_dependencies(channel_test LumensealBasebandEmbedderPlugin LumensealBasebandDetectorPlugin)
