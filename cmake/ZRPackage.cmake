# The package: the targets ZRAnalytics::..., what cmake --install installs, and the Debian packages that cpack makes.
#
# An application links ZRAnalytics::ZRAnalytics, and ZRAnalytics::CurlTransport or ZRAnalytics::ICULocale if it wants
# them. ::ZorvaneCore and ::Platform are what ::ZRAnalytics brings along. With BUILD_SHARED_LIBS the three are one shared
# library, which exports what the headers mark with ZR_PUBLIC. The project's own programs and tests link the static
# libraries in both cases: they use what is private.

include(GNUInstallDirs)

# The headers of an application. They include no others.
set(zr_public_headers
  Platform/Application/Application.h
  Platform/Application/DeviceServices.h
  Platform/Dispatch/LockedValue.h
  Platform/Dispatch/Mutex.h
  Platform/Dispatch/Queue.h
  Platform/Dispatch/Scheduler.h
  Platform/Dispatch/Task.h
  Platform/Dispatch/ThreadAnnotations.h
  Platform/Export.h
  Platform/Formats/JSON.h
  Platform/Formats/KeyedArchive.h
  Platform/HostServices.h
  Platform/Notifications/NotificationCenter.h
  Platform/Text/Text.h
  Platform/Time/Clock.h
  Platform/Time/Date.h
  Platform/Values/Result.h
  Platform/Values/Value.h
  ZorvaneCore/CoreSetup.h
  ZorvaneCore/NetworkTransport.h
  ZorvaneCore/ZRCoreTypes.h
  ZorvaneCore/ZREventTriggerDelegate.h
  ZorvaneCore/ZRLogger.h
  ZorvaneCore/ZRModelObject.h
  ZorvaneCore/ZRStandardErrorLog.h
  ZorvaneCore/ZorvaneCore.h
  ZRAnalytics/All.h
  ZRAnalytics/Constants/ZRAnalyticsConstants.h
  ZRAnalytics/Journal/ZRJournal.h
  ZRAnalytics/SessionAndSource/ZRSession.h
  ZRAnalytics/SessionAndSource/ZRSource.h
  ZRAnalytics/Utils/PayloadBuilder/ZRPayloadBuilder.h
  ZRAnalytics/Utils/PayloadBuilder/ZRProperties.h
  ZRAnalytics/Utils/ZRConditionEvaluator/ZREventCondition.h
  ZRAnalytics/Utils/ZRConditionEvaluator/ZREventFilter.h
  ZRAnalytics/Utils/ZRGeoLocation.h
  ZRAnalytics/ZRAnalytics.h
  ZRAnalytics/ZRHosting.h
  ZRAnalytics/ZRVersion.h)
set(zr_headers_folder "${CMAKE_INSTALL_INCLUDEDIR}/zranalytics")
set(zr_cmake_folder "${CMAKE_INSTALL_LIBDIR}/cmake/ZRAnalytics")

# zr_export(TARGET EXPORT_NAME LIBRARY_NAME SET): ZRAnalytics::EXPORT_NAME, in the file libLIBRARY_NAME.
function(zr_export target export_name library_name set)
  add_library(ZRAnalytics::${export_name} ALIAS ${target})
  set_target_properties(${target} PROPERTIES EXPORT_NAME ${export_name} OUTPUT_NAME "${library_name}")
  target_include_directories(${target} INTERFACE "$<INSTALL_INTERFACE:${zr_headers_folder}>")
  if(ZR_INSTALL)
    install(TARGETS ${target} EXPORT ${set} ARCHIVE COMPONENT development
      LIBRARY COMPONENT runtime NAMELINK_COMPONENT development RUNTIME COMPONENT runtime)
  endif()
endfunction()

# zr_add_shared(NAME OBJECTS ... [PUBLIC ...] [PRIVATE ...]): a shared library of the code of static ones.
function(zr_add_shared name)
  cmake_parse_arguments(ARG "" "" "OBJECTS;PUBLIC;PRIVATE" ${ARGN})
  add_library(${name} SHARED)
  foreach(library ${ARG_OBJECTS})
    target_sources(${name} PRIVATE $<TARGET_OBJECTS:${library}>)
    target_include_directories(${name} INTERFACE "$<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include/${library}>")
  endforeach()
  target_link_libraries(${name} PUBLIC ${ARG_PUBLIC} PRIVATE ${ARG_PRIVATE})
  target_compile_features(${name} INTERFACE cxx_std_20)
  target_compile_definitions(${name} INTERFACE ZR_SHARED_LIBRARY)
  set(exports "${PROJECT_SOURCE_DIR}/cmake/exports.map")
  target_link_options(${name} PRIVATE "-Wl,--version-script=${exports}")
  set_target_properties(${name} PROPERTIES LINK_DEPENDS "${exports}")
  # The layout of C++ classes may change with each minor version.
  set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
endfunction()

# zr_install_pkg_config(NAME [DEPENDENCY]): NAME.pc, from cmake/NAME.pc.in. DEPENDENCY is the .pc file of the library that
# it uses: whoever links a static library links it, too; a shared library finds it itself.
function(zr_install_pkg_config name)
  # Relative to the .pc file, so that the installed tree may be moved.
  file(RELATIVE_PATH ZR_PC_PREFIX "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
  set(ZR_PC_REQUIRES "Requires: zranalytics = ${PROJECT_VERSION}, ${ARGN}")
  if(BUILD_SHARED_LIBS)
    string(REPLACE ", " "\nRequires.private: " ZR_PC_REQUIRES "${ZR_PC_REQUIRES}")
  endif()
  configure_file("${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in" "${PROJECT_BINARY_DIR}/package/${name}.pc" @ONLY)
  install(FILES "${PROJECT_BINARY_DIR}/package/${name}.pc"
    DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT development)
endfunction()

set(ZR_PC_DEFINITIONS "")
set(ZR_PC_LIBRARIES "-lzranalytics-cpp -lzranalytics-core -lzranalytics-platform -pthread")
if(ZR_SANITIZE OR CMAKE_BUILD_TYPE STREQUAL "Debug")
  set(ZR_PC_DEFINITIONS "-DZR_COUNT_LOCKS")
endif()

if(BUILD_SHARED_LIBS)
  set(ZR_PC_DEFINITIONS "${ZR_PC_DEFINITIONS} -DZR_SHARED_LIBRARY")
  set(ZR_PC_LIBRARIES "-lzranalytics-cpp")
  find_package(Threads REQUIRED)
  zr_add_shared(zr_shared OBJECTS zr_platform zr_core zr_analytics PUBLIC Threads::Threads)
  if(TARGET zr_curl_transport)
    find_package(CURL REQUIRED)
    zr_add_shared(zr_shared_curl_transport OBJECTS zr_curl_transport PUBLIC zr_shared PRIVATE CURL::libcurl)
  endif()
  if(TARGET zr_icu_locale)
    find_package(ICU REQUIRED COMPONENTS uc data)
    zr_add_shared(zr_shared_icu_locale OBJECTS zr_icu_locale PUBLIC zr_shared PRIVATE ICU::uc ICU::data)
  endif()
  set(zr_prefix zr_shared)
  zr_export(zr_shared ZRAnalytics zranalytics-cpp ZRAnalyticsTargets)
  foreach(part Platform ZorvaneCore)
    add_library(zr_shared_${part} INTERFACE)
    target_link_libraries(zr_shared_${part} INTERFACE zr_shared)
    zr_export(zr_shared_${part} ${part} "" ZRAnalyticsTargets)
  endforeach()
else()
  set(zr_prefix zr)
  zr_export(zr_analytics ZRAnalytics zranalytics-cpp ZRAnalyticsTargets)
  zr_export(zr_core ZorvaneCore zranalytics-core ZRAnalyticsTargets)
  zr_export(zr_platform Platform zranalytics-platform ZRAnalyticsTargets)
endif()
if(TARGET zr_curl_transport)
  zr_export(${zr_prefix}_curl_transport CurlTransport zranalytics-curl ZRAnalyticsCurlTransportTargets)
endif()
if(TARGET zr_icu_locale)
  zr_export(${zr_prefix}_icu_locale ICULocale zranalytics-icu ZRAnalyticsICULocaleTargets)
endif()

if(NOT ZR_INSTALL)
  return()
endif()

include(CMakePackageConfigHelpers)
configure_package_config_file(cmake/ZRAnalyticsConfig.cmake.in "${PROJECT_BINARY_DIR}/package/ZRAnalyticsConfig.cmake"
  INSTALL_DESTINATION "${zr_cmake_folder}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/package/ZRAnalyticsConfigVersion.cmake"
  COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/package/ZRAnalyticsConfig.cmake"
  "${PROJECT_BINARY_DIR}/package/ZRAnalyticsConfigVersion.cmake"
  DESTINATION "${zr_cmake_folder}" COMPONENT development)
install(EXPORT ZRAnalyticsTargets NAMESPACE ZRAnalytics:: DESTINATION "${zr_cmake_folder}" COMPONENT development)
zr_install_pkg_config(zranalytics)
if(TARGET zr_curl_transport)
  list(APPEND zr_public_headers Transport/CurlTransport.h)
  install(EXPORT ZRAnalyticsCurlTransportTargets NAMESPACE ZRAnalytics:: DESTINATION "${zr_cmake_folder}"
    COMPONENT development)
  zr_install_pkg_config(zranalytics-curl libcurl)
endif()
if(TARGET zr_c)
  install(TARGETS zr_c EXPORT ZRAnalyticsCTargets LIBRARY COMPONENT c NAMELINK_COMPONENT development)
  install(EXPORT ZRAnalyticsCTargets NAMESPACE ZRAnalytics:: DESTINATION "${zr_cmake_folder}" COMPONENT development)
  install(FILES "${PROJECT_SOURCE_DIR}/C/zranalytics.h" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT development)
  zr_install_pkg_config(zranalytics-c)
endif()
if(TARGET zr_icu_locale)
  list(APPEND zr_public_headers Locale/ICULocale.h)
  install(EXPORT ZRAnalyticsICULocaleTargets NAMESPACE ZRAnalytics:: DESTINATION "${zr_cmake_folder}"
    COMPONENT development)
  zr_install_pkg_config(zranalytics-icu icu-uc)
endif()
foreach(header ${zr_public_headers})
  get_filename_component(folder "${header}" DIRECTORY)
  install(FILES "${PROJECT_SOURCE_DIR}/${header}" DESTINATION "${zr_headers_folder}/${folder}" COMPONENT development)
endforeach()

# cpack -G DEB: zranalytics-dev, zranalytics-tools with the programs, libzranalytics1 with the C library,
# libzranalytics-cpp1.0 with shared libraries.
if(PROJECT_IS_TOP_LEVEL)
  set(CPACK_PACKAGE_NAME zranalytics)
  set(CPACK_PACKAGE_VENDOR "Zorvane")
  set(CPACK_PACKAGE_CONTACT "Zorvane <sdk@zorvane.example>")
  set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Analytics of mobile and desktop applications: events, sessions, batches")
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
  set(CPACK_STRIP_FILES ON)
  set(CPACK_COMPONENTS_ALL development)
  set(CPACK_DEB_COMPONENT_INSTALL ON)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME zranalytics-dev)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
  # For the transport and the locale.
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_RECOMMENDS "libcurl4-openssl-dev | libcurl4-gnutls-dev, libicu-dev, pkg-config")
  if(BUILD_SHARED_LIBS)
    set(zr_runtime "libzranalytics-cpp${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}")
    list(APPEND CPACK_COMPONENTS_ALL runtime)
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME "${zr_runtime}")
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
    list(APPEND zr_development_depends "${zr_runtime} (= ${PROJECT_VERSION})")
  endif()
  if(TARGET zr_c)
    list(APPEND CPACK_COMPONENTS_ALL c)
    set(CPACK_DEBIAN_C_PACKAGE_NAME "libzranalytics${PROJECT_VERSION_MAJOR}")
    set(CPACK_DEBIAN_C_PACKAGE_SECTION libs)
    list(APPEND zr_development_depends "${CPACK_DEBIAN_C_PACKAGE_NAME} (= ${PROJECT_VERSION})")
  endif()
  if(zr_development_depends)
    set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
    string(REPLACE ";" ", " CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${zr_development_depends}")
  endif()
  if(ZR_BUILD_PROGRAMS)
    list(APPEND CPACK_COMPONENTS_ALL programs)
    set(CPACK_DEBIAN_PROGRAMS_PACKAGE_NAME zranalytics-tools)
    set(CPACK_DEBIAN_PROGRAMS_PACKAGE_SECTION utils)
  endif()
  include(CPack)
endif()
