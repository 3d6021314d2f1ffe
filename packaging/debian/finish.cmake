# Runs between the staging of the components and the making of the packages.
file(GLOB components ${CPACK_TEMPORARY_DIRECTORY}/*)

# Debian's tools expect these compressed, without a time stamp.
foreach(component ${components})
  file(GLOB texts ${component}/usr/share/doc/*/changelog ${component}/usr/share/doc/*/changelog.Debian
    ${component}/usr/share/man/man*/*.[0-9])
  foreach(text ${texts})
    execute_process(COMMAND gzip -9n ${text} COMMAND_ERROR_IS_FATAL ANY)
  endforeach()
endforeach()

# The dependencies of programs that link a library, from its exports: by symbol, and by name for older tools.
foreach(pair runtime=libmsgapi1 platform=libzorplatform1)
  string(REGEX MATCH "(.*)=(.*)" pair ${pair})
  set(package ${CMAKE_MATCH_2})
  set(directory ${CPACK_PACKAGE_DIRECTORY}/../packaging/${package})
  file(MAKE_DIRECTORY ${directory})
  file(GLOB libraries ${CPACK_TEMPORARY_DIRECTORY}/${CMAKE_MATCH_1}/usr/lib/*/*.so.?)
  execute_process(COMMAND_ERROR_IS_FATAL ANY
    COMMAND dpkg-gensymbols -q -c4 -p${package} -v${CPACK_PACKAGE_VERSION} -e${libraries} -O${directory}/symbols
      -I${CMAKE_CURRENT_LIST_DIR}/${package}.symbols)
  string(REGEX MATCH "^(lib.*[^0-9])([0-9]+)$" name ${package})
  file(WRITE ${directory}/shlibs "${CMAKE_MATCH_1} ${CMAKE_MATCH_2} ${package} (>= ${CPACK_PACKAGE_VERSION})\n")
endforeach()
