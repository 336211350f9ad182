# The installed SDK, laid out as a host expects it:
#   include/quillmar/...              the public headers (the exported classes and what they need)
#   lib/libQuillmarBasebandSDK.so.1   the product; lib/libQuillmarFramework.so.1 the framework
#   lib/quillmar/plugins/             the reference plug-ins, found beside the product library
#   lib/gstreamer-1.0/                the GStreamer elements
#   lib/cmake/QuillmarBasebandSDK/    find_package(QuillmarBasebandSDK): Quillmar::BasebandSDK,
#                                     Quillmar::Framework
#   lib/pkgconfig/quillmar-baseband-sdk.pc
#   bin/quillmar, share/man/man1/quillmar.1, share/quillmar/examples/
# `make package` turns the same tree into a Debian package with CPack.
include(CMakePackageConfigHelpers)

set(QUILLMAR_PLUGIN_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/quillmar/plugins)
set(QUILLMAR_CMAKE_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/QuillmarBasebandSDK)

set_target_properties(QuillmarBasebandSDK PROPERTIES EXPORT_NAME BasebandSDK)
set_target_properties(QuillmarFramework PROPERTIES EXPORT_NAME Framework)
install(TARGETS QuillmarFramework QuillmarBasebandSDK EXPORT QuillmarBasebandSDKTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quillmar)
install(EXPORT QuillmarBasebandSDKTargets NAMESPACE Quillmar::
  DESTINATION ${QUILLMAR_CMAKE_INSTALL_DIR})

# The plug-ins reach the libraries they link two folders up.
set_target_properties(LumensealBasebandEmbedderPlugin LumensealBasebandDetectorPlugin PROPERTIES
  INSTALL_RPATH "$ORIGIN/../..")
install(TARGETS LumensealBasebandEmbedderPlugin LumensealBasebandDetectorPlugin
  LIBRARY DESTINATION ${QUILLMAR_PLUGIN_INSTALL_DIR})

file(RELATIVE_PATH bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(quillmar PROPERTIES INSTALL_RPATH "$ORIGIN/${bin_to_lib}")
install(TARGETS quillmar RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES tools/quillmar.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)

# The headers of the exported classes and every header they include, by folder.
set(public_headers
  channel/EntryPoints.h channel/ErrorCode.h channel/QuillmarBasebandEmbedderListener.h
  channel/QuillmarBasebandSDKChannel.h
  config/ConfigurationModel.h config/ConfigurationReader.h config/QuillmarBasebandConfigurationState.h
  database/CID_Timestamp_Lock_Record.h database/EmbedderDatabaseV2.h database/TimeSlotReservoir.h
  detector-api/CBasebandWMDetection.h detector-api/FrameScaling.h detector-api/LSNDetection.h
  detector-api/MirroredDetectionEvent.h detector-api/ScaleFoundEvent.h
  events/LumensealBasebandDetectorPlugin.h events/LumensealBasebandEmbedderPlugin.h
  events/LumensealPluginConstructionProperties.h events/MarkerWMEvent.h events/VWMDetectionEvent.h
  events/VWMEmbeddingEvent.h events/WatermarkTime.h)
foreach(header ${public_headers})
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quillmar/${folder})
endforeach()
install(DIRECTORY framework/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quillmar/framework
  FILES_MATCHING PATTERN "*.h" PATTERN "testing" EXCLUDE)

install(FILES
  examples/demo.json examples/direct_response.json examples/legacy.ccf examples/legacy.cfg
  examples/legacy_channels.cfg examples/metadata_fields.json examples/news.json
  examples/optional_types.json examples/windows-1252.json examples/windows_path.json
  DESTINATION ${CMAKE_INSTALL_DATADIR}/quillmar/examples)
install(DIRECTORY examples/host DESTINATION ${CMAKE_INSTALL_DATADIR}/quillmar/examples)

configure_package_config_file(cmake/QuillmarBasebandSDKConfig.cmake.in
  ${PROJECT_BINARY_DIR}/QuillmarBasebandSDKConfig.cmake
  INSTALL_DESTINATION ${QUILLMAR_CMAKE_INSTALL_DIR}
  PATH_VARS QUILLMAR_PLUGIN_INSTALL_DIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/QuillmarBasebandSDKConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/QuillmarBasebandSDKConfig.cmake
              ${PROJECT_BINARY_DIR}/QuillmarBasebandSDKConfigVersion.cmake
  DESTINATION ${QUILLMAR_CMAKE_INSTALL_DIR})

# Relocatable: the prefix is found from where the .pc file lies.
file(RELATIVE_PATH PKGCONFIG_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/quillmar-baseband-sdk.pc.in ${PROJECT_BINARY_DIR}/quillmar-baseband-sdk.pc
  @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/quillmar-baseband-sdk.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quillmar-baseband-sdk)
set(CPACK_PACKAGE_VENDOR "Quillmar")
set(CPACK_PACKAGE_CONTACT "Quillmar SDK maintainers <sdk@quillmar.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SECTION video)
include(CPack)
