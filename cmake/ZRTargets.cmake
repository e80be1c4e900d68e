# What every target of the project shares: the language level, the warnings, the sanitizers of the preset.

if(NOT DEFINED CMAKE_CXX_STANDARD)
  set(CMAKE_CXX_STANDARD 20)
endif()
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)

set(ZR_SANITIZE "" CACHE STRING "Sanitizers, as -fsanitize takes them")
option(ZR_WARNINGS_AS_ERRORS "Treat warnings as errors" OFF)
option(ZR_USE_CCACHE "Use ccache where it is installed" ${PROJECT_IS_TOP_LEVEL})
option(ZR_LIBCXX "Build with libc++ (clang only)" OFF)

if(PROJECT_IS_TOP_LEVEL)
  set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
  if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE RelWithDebInfo)
  endif()
endif()
find_program(ZR_CCACHE ccache)
mark_as_advanced(ZR_CCACHE)
if(ZR_USE_CCACHE AND ZR_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${ZR_CCACHE}")
endif()
if(ZR_LIBCXX)
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-stdlib=libc++>)
  add_link_options(-stdlib=libc++)
endif()
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  # glibc: times past 2038, and the sizes of large files.
  add_compile_definitions(_FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()
if(ZR_SANITIZE)
  add_compile_options(-fsanitize=${ZR_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${ZR_SANITIZE})
endif()

add_library(zr_warnings INTERFACE)
target_compile_options(zr_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
if(ZR_WARNINGS_AS_ERRORS)
  target_compile_options(zr_warnings INTERFACE -Werror)
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  target_compile_options(zr_warnings INTERFACE -Wthread-safety)
endif()

# zr_left_out(TEXT): says what is not built because an optional package is missing. scripts/test repeats it at its end.
function(zr_left_out text)
  set_property(GLOBAL APPEND_STRING PROPERTY ZR_LEFT_OUT "${text}\n")
  message(STATUS "Left out: ${text}")
endfunction()

# zr_include_folder(NAME): headers of the current folder are included by their path from the repository's root. One
# symbolic link per target, so that headers of a library that is not linked are not found.
function(zr_include_folder name)
  get_filename_component(folder "${CMAKE_CURRENT_SOURCE_DIR}" NAME)
  file(MAKE_DIRECTORY "${PROJECT_BINARY_DIR}/include/${name}")
  file(CREATE_LINK "${CMAKE_CURRENT_SOURCE_DIR}" "${PROJECT_BINARY_DIR}/include/${name}/${folder}" SYMBOLIC)
  target_include_directories(${name} PUBLIC "$<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include/${name}>")
endfunction()

# g++ has -Oz since release 12. clang's is much slower than its -Os.
set(ZR_SMALL -Os)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_GREATER_EQUAL 12)
  set(ZR_SMALL -Oz)
endif()
# Names of types would take a twentieth of the program. Applications keep RTTI: the virtual functions of a class that
# they derive from are pure or inline, so that their own build makes its type information.
set(ZR_RELEASE "$<$<CONFIG:Release>:${ZR_SMALL};-fno-rtti>")

# zr_add_library(NAME [LINKS ...]): a static library of every source below the current folder. Its code may be linked
# into a shared library, too. cmake/ZRPackage.cmake makes the package of some.
function(zr_add_library name)
  cmake_parse_arguments(ARG "" "" "LINKS" ${ARGN})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*.cpp" "${CMAKE_CURRENT_SOURCE_DIR}/*.h")
  add_library(${name} STATIC ${sources})
  zr_include_folder(${name})
  set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  target_compile_features(${name} PUBLIC cxx_std_20)
  # Optimise for size: applications ship this code and rarely wait for it.
  target_compile_options(${name} PRIVATE -fvisibility=hidden -ffunction-sections -fdata-sections "${ZR_RELEASE}"
    $<TARGET_PROPERTY:zr_warnings,INTERFACE_COMPILE_OPTIONS>)
  target_link_libraries(${name} PUBLIC ${ARG_LINKS})
  # In these builds the tests fail when host code is called under a lock. Public: it changes inline code of a header, so
  # whoever links the library must compile with it.
  if(ZR_SANITIZE OR CMAKE_BUILD_TYPE STREQUAL "Debug")
    target_compile_definitions(${name} PUBLIC ZR_COUNT_LOCKS)
  endif()
  if(BUILD_SHARED_LIBS)
    target_compile_definitions(${name} PRIVATE ZR_SHARED_LIBRARY)
  endif()
endfunction()
