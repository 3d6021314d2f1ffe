# ZOR_VERSION (X.Y.Z) and ZOR_RELEASE (the packages' number of that version): the first entry of debian/changelog, the
# one place that names them. Included before project(), which takes the version.
set(changelog ${CMAKE_CURRENT_LIST_DIR}/../debian/changelog)
file(STRINGS ${changelog} entry LIMIT_COUNT 1)
if(NOT entry MATCHES "^libmsgapi \\(([0-9]+\\.[0-9]+\\.[0-9]+)-([0-9a-z.+~]+)\\)")
  message(FATAL_ERROR "debian/changelog does not begin with a version: ${entry}")
endif()
set(ZOR_VERSION ${CMAKE_MATCH_1})
set(ZOR_RELEASE ${CMAKE_MATCH_2})
# A new entry is a new version.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${changelog})
unset(changelog)
unset(entry)
