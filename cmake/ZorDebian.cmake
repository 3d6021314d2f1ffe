# Debian packages of the installed components: cpack -G DEB. scripts/package.sh runs it and the checks.
set(debian ${PROJECT_SOURCE_DIR}/packaging/debian)
set(generated ${PROJECT_BINARY_DIR}/packaging)

# The version comes from Debian's changelog, which has an entry for every release.
file(STRINGS ${debian}/changelog changelog LIMIT_COUNT 1)
if(NOT changelog MATCHES "^libmsgapi \\(${PROJECT_VERSION}-([0-9a-z.+~]+)\\)")
  message(FATAL_ERROR "packaging/debian/changelog does not begin with version ${PROJECT_VERSION}")
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME libmsgapi)
set(CPACK_PACKAGE_VENDOR libmsgapi)
set(CPACK_PACKAGE_CONTACT "libmsgapi maintainers <maintainers@libmsgapi.example>")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime platform development servers web tool documentation)
if(ZOR_LUA_VERSIONS)
  list(APPEND CPACK_COMPONENTS_ALL lua)
endif()
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${CMAKE_MATCH_1})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/debian/finish.cmake)

# Dependencies on other packages are found from what the programs link; our own must have the same version.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
foreach(library msgapi zorplatform)
  get_target_property(directory ${library} BINARY_DIR)
  list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${directory})
endforeach()
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENT_RUNTIME_DEPENDS platform)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime platform)
set(CPACK_COMPONENT_SERVERS_DEPENDS runtime platform)
set(CPACK_COMPONENT_WEB_DEPENDS runtime platform servers)
set(CPACK_COMPONENT_TOOL_DEPENDS runtime platform)
set(CPACK_COMPONENT_LUA_DEPENDS runtime platform)
set(CPACK_COMPONENT_PYTHON_DEPENDS runtime platform)
if(ZOR_PYTHON_MODULE_DIR)
  list(APPEND CPACK_COMPONENTS_ALL python)
endif()

# zor_package(COMPONENT name SECTION section SUMMARY text DESCRIPTION text [CONTROL files...]): one package.
macro(zor_package component name section summary description)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${description}")
  set(CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA ${ARGN})
  set(doc ${CMAKE_INSTALL_DATADIR}/doc/${name})
  install(FILES ${debian}/copyright DESTINATION ${doc} COMPONENT ${component})
  install(FILES ${debian}/changelog DESTINATION ${doc} RENAME changelog.Debian COMPONENT ${component})
  install(FILES CHANGELOG.md DESTINATION ${doc} RENAME changelog COMPONENT ${component})
  install(FILES ${debian}/lintian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
    RENAME ${name} COMPONENT ${component})
endmacro()

set(about "The daemons of a home gateway talk to each other over a local message bus.\n")
zor_package(runtime libmsgapi1 libs "messaging and utility library of a home gateway"
  "${about}This library connects a daemon to it, runs its event loop, and holds the\n\
codecs and helpers that all daemons share."
  ${generated}/libmsgapi1/shlibs ${generated}/libmsgapi1/symbols ${debian}/triggers)
zor_package(platform libzorplatform1 libs "platform layer of libmsgapi for a plain Linux host"
  "${about}This library is what their messaging library asks of the device: lists,\n\
files, bounded strings, processes and the configuration store. A device's\nvendor may replace it."
  ${generated}/libzorplatform1/shlibs ${generated}/libzorplatform1/symbols ${debian}/triggers)
zor_package(development libmsgapi-dev libdevel
  "messaging and utility library of a home gateway - development files"
  "${about}These are the headers, the pkg-config file and the CMake package that a\n\
daemon is built with, and zorgen, which makes code from files of message\ntypes.")
zor_package(servers msgapi-servers net "message bus of a home gateway - servers"
  "${about}These are its servers: messages, notifications, log lines, the\n\
configuration, the user-visible log, a tunnel to other boards, and a bridge\nto an MQTT broker."
  ${debian}/postinst ${debian}/prerm ${debian}/postrm ${debian}/conffiles)
zor_package(web zorweb net "message bus of a home gateway - page for the browser"
  "${about}This server shows on a page who talks to whom, what waits and what was\n\
lost, and serves measurements for collectors."
  ${debian}/zorweb/postinst ${debian}/zorweb/prerm ${debian}/zorweb/postrm ${debian}/zorweb/conffiles)
zor_package(tool zorctl utils "message bus of a home gateway - operator's tool"
  "${about}This tool shows who is on the bus and what moves there, sends and calls,\n\
and finds what is stuck.")
zor_package(lua lua-zor interpreters "message bus of a home gateway - module for Lua"
  "${about}With this module, for Lua 5.4 and 5.1, a script is a daemon on the bus: it\n\
serves, calls, publishes and subscribes.")
if(ZOR_PYTHON_MODULE_DIR)
  zor_package(python python3-zor python "message bus of a home gateway - Python module"
    "${about}With this module daemons are written in Python: they serve and call\n\
requests, publish and receive events, blocking or with asyncio."
    ${debian}/python/postinst ${debian}/python/prerm)
endif()
zor_package(documentation libmsgapi-doc doc "messaging and utility library of a home gateway - documentation"
  "${about}These are the manual pages of the functions and of the system, and how the\n\
library and the servers work, what is on the wire, what a device provides.")

set(CPACK_DEBIAN_LUA_PACKAGE_RECOMMENDS "lua5.4 | lua5.1")
# Loaded when the configuration store is first used, so it is not among those that are linked.
set(CPACK_DEBIAN_PLATFORM_PACKAGE_DEPENDS "libsqlite3-0 (>= 3.37)")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "libcjson-dev, libmsgapi-doc, pkgconf | pkg-config")
set(CPACK_DEBIAN_SERVERS_PACKAGE_DEPENDS
  "systemd | systemd-standalone-sysusers | systemd-sysusers, systemd | systemd-standalone-tmpfiles | systemd-tmpfiles, \
procps")
set(CPACK_DEBIAN_SERVERS_PACKAGE_SUGGESTS zorctl)
# The file for the login includes its common ones.
set(CPACK_DEBIAN_WEB_PACKAGE_DEPENDS libpam-runtime)
# Other packages with a /usr/sbin/syslogd.
set(CPACK_DEBIAN_SERVERS_PACKAGE_CONFLICTS "busybox-syslogd, inetutils-syslogd")
set(CPACK_DEBIAN_TOOL_PACKAGE_RECOMMENDS msgapi-servers)
set(CPACK_DEBIAN_TOOL_PACKAGE_SUGGESTS zstd)  # for bundles that end in .tar.zst
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3 (>= 3.11), python3-cffi-backend")
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_SHLIBDEPS OFF)

install(DIRECTORY DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/zor COMPONENT servers)
install(FILES packaging/access/90-default.conf DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/zor/access.d
  COMPONENT servers)

include(CPack)
