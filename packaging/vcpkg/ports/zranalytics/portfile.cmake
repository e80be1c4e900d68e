# An overlay port: it builds the source tree that it stands in.
get_filename_component(SOURCE_PATH "${CMAKE_CURRENT_LIST_DIR}/../../../.." ABSOLUTE)

vcpkg_check_features(OUT_FEATURE_OPTIONS FEATURE_OPTIONS
  FEATURES
    transport ZR_BUILD_TRANSPORT
    locale ZR_BUILD_LOCALE)

# BUILD_SHARED_LIBS follows the triplet.
vcpkg_cmake_configure(
  SOURCE_PATH "${SOURCE_PATH}"
  OPTIONS
    -DZR_BUILD_C=OFF
    -DZR_BUILD_PROGRAMS=OFF
    -DZR_BUILD_TESTS=OFF
    -DZR_USE_CCACHE=OFF
    ${FEATURE_OPTIONS})
vcpkg_cmake_install()
vcpkg_cmake_config_fixup(PACKAGE_NAME ZRAnalytics CONFIG_PATH lib/cmake/ZRAnalytics)
vcpkg_fixup_pkgconfig()

file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}/debug/include")
file(INSTALL "${CMAKE_CURRENT_LIST_DIR}/usage" DESTINATION "${CURRENT_PACKAGES_DIR}/share/${PORT}")
# The project has no licence file yet; vcpkg asks for one.
file(WRITE "${CURRENT_PACKAGES_DIR}/share/${PORT}/copyright" "Zorvane\n")
