# The reference plug-ins, loaded from their built shared libraries the way a channel loads them.
quillmar_add_test(plugins_test SOURCES
  ${CMAKE_CURRENT_SOURCE_DIR}/LumensealPlugins_test.cpp
  ${PROJECT_SOURCE_DIR}/plugins/testing/PluginTestChannel.cpp
  LIBS FrameworkTesting QuillmarBasebandSDK QuillmarFramework Boost::json
)
add_dependencies(plugins_test LumensealBasebandEmbedderPlugin LumensealBasebandDetectorPlugin)
target_compile_definitions(plugins_test PRIVATE
  QUILLMAR_TEST_PLUGIN_FOLDER="$<TARGET_FILE_DIR:LumensealBasebandEmbedderPlugin>")
