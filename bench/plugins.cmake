# The reference plug-ins' costs on the processing thread, and an encodation record's write.
quillmar_add_benchmark(plugins_bench SOURCES
  ${CMAKE_CURRENT_SOURCE_DIR}/PluginsBenchmark.cpp
  ${PROJECT_SOURCE_DIR}/plugins/testing/PluginTestChannel.cpp
  LIBS QuillmarBasebandSDK QuillmarFramework
)
add_dependencies(plugins_bench LumensealBasebandEmbedderPlugin LumensealBasebandDetectorPlugin)
target_compile_definitions(plugins_bench PRIVATE
  QUILLMAR_TEST_PLUGIN_FOLDER="$<TARGET_FILE_DIR:LumensealBasebandEmbedderPlugin>")
