# SOCI::soci_core and SOCI::soci_sqlite3: the database library and its SQLite backend. SOCI::soci_postgresql: the backend
# for PostgreSQL, if it and libpq are installed. Debian 12 brings no CMake files for them.
find_path(SOCI_INCLUDE_DIR soci/soci.h)
find_library(SOCI_CORE_LIBRARY soci_core)
find_library(SOCI_SQLITE3_LIBRARY soci_sqlite3)
find_library(SOCI_POSTGRESQL_LIBRARY soci_postgresql)
mark_as_advanced(SOCI_INCLUDE_DIR SOCI_CORE_LIBRARY SOCI_SQLITE3_LIBRARY SOCI_POSTGRESQL_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(SOCI REQUIRED_VARS SOCI_CORE_LIBRARY SOCI_SQLITE3_LIBRARY SOCI_INCLUDE_DIR)
if(SOCI_FOUND AND NOT TARGET SOCI::soci_core)
  add_library(SOCI::soci_core UNKNOWN IMPORTED)
  set_target_properties(SOCI::soci_core PROPERTIES
    IMPORTED_LOCATION "${SOCI_CORE_LIBRARY}" INTERFACE_INCLUDE_DIRECTORIES "${SOCI_INCLUDE_DIR}")
  add_library(SOCI::soci_sqlite3 UNKNOWN IMPORTED)
  set_target_properties(SOCI::soci_sqlite3 PROPERTIES
    IMPORTED_LOCATION "${SOCI_SQLITE3_LIBRARY}" INTERFACE_LINK_LIBRARIES SOCI::soci_core)
  find_package(PostgreSQL QUIET)
  if(SOCI_POSTGRESQL_LIBRARY AND PostgreSQL_FOUND)
    add_library(SOCI::soci_postgresql UNKNOWN IMPORTED)
    set_target_properties(SOCI::soci_postgresql PROPERTIES
      IMPORTED_LOCATION "${SOCI_POSTGRESQL_LIBRARY}" INTERFACE_LINK_LIBRARIES "SOCI::soci_core;PostgreSQL::PostgreSQL")
  endif()
endif()
