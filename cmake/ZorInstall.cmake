# Installed files by component: runtime and platform (the libraries), development, generator, servers, web, tool, lua,
# python, documentation. Each becomes its own package, see debian/rules.
include(CMakePackageConfigHelpers)

# The libraries; a vendor's platform replaces the second one.
install(TARGETS msgapi EXPORT msgapi
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS zorplatform EXPORT msgapi
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT platform NAMELINK_COMPONENT development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

# Files to build against them: headers, the pkg-config file, the CMake package.
set(cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/msgapi)
install(DIRECTORY include/zor DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(EXPORT msgapi NAMESPACE zor:: DESTINATION ${cmake_dir} FILE msgapi-targets.cmake COMPONENT development)
configure_package_config_file(cmake/msgapi-config.cmake.in msgapi-config.cmake INSTALL_DESTINATION ${cmake_dir})
write_basic_package_version_file(msgapi-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/msgapi-config.cmake ${PROJECT_BINARY_DIR}/msgapi-config-version.cmake
  DESTINATION ${cmake_dir} COMPONENT development)
configure_file(cmake/msgapi.pc.in msgapi.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/msgapi.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# What a vendor's platform is checked with, and the list that the check reads.
install(PROGRAMS scripts/check-platform.sh DESTINATION ${CMAKE_INSTALL_BINDIR} RENAME zor-check-platform
  COMPONENT development)
install(FILES platform/interface.list DESTINATION ${CMAKE_INSTALL_DATADIR}/zor RENAME platform.list COMPONENT development)
install(FILES platform/zorplatform.map DESTINATION ${CMAKE_INSTALL_DATADIR}/zor COMPONENT development)

# The code generator, and its function for CMake.
if(TARGET zorgen)
  install(TARGETS zorgen RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT generator)
endif()
install(FILES cmake/ZorTypes.cmake DESTINATION ${cmake_dir} COMPONENT development)

# The servers with their units, users, directories and rules of access.
set(ZOR_UNIT_DIR lib/systemd/system CACHE STRING "Where units are installed")
file(READ packaging/systemd/hardening.conf hardening)
string(STRIP "${hardening}" hardening)
foreach(server msgsvr notifyserver mlogserver cms syslogd zortunnel zorbridge)
  if(NOT TARGET ${server})
    continue()
  endif()
  install(TARGETS ${server} RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT servers)
  configure_file(packaging/systemd/${server}.service.in packaging/${server}.service @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/packaging/${server}.service DESTINATION ${ZOR_UNIT_DIR} COMPONENT servers)
endforeach()
install(FILES packaging/systemd/notifyserver.socket packaging/systemd/mlogserver.socket
  DESTINATION ${ZOR_UNIT_DIR} COMPONENT servers)
foreach(kind sysusers tmpfiles)
  install(FILES packaging/systemd/${kind}.conf DESTINATION lib/${kind}.d RENAME msgapi.conf COMPONENT servers)
endforeach()
install(DIRECTORY DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/zor COMPONENT servers)
install(FILES packaging/access/90-default.conf DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/zor/access.d
  COMPONENT servers)

# The page for the browser, which is a package of its own.
if(TARGET zorweb)
  install(TARGETS zorweb zorweb-login RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT web)
  foreach(unit zorweb zorweb-login@)
    configure_file(packaging/systemd/${unit}.service.in packaging/${unit}.service @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/packaging/${unit}.service DESTINATION ${ZOR_UNIT_DIR} COMPONENT web)
  endforeach()
  install(FILES packaging/systemd/zorweb-login.socket DESTINATION ${ZOR_UNIT_DIR} COMPONENT web)
  foreach(kind sysusers tmpfiles)
    install(FILES packaging/zorweb/${kind}.conf DESTINATION lib/${kind}.d RENAME zorweb.conf COMPONENT web)
  endforeach()
  install(FILES packaging/zorweb/pam DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/pam.d RENAME zorweb COMPONENT web)
  install(FILES packaging/zorweb/80-zorweb.conf DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/zor/access.d COMPONENT web)
endif()

# The operator's tool with its completions.
install(TARGETS zorctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
if(TARGET zorctl_fleet)
  install(TARGETS zorctl_fleet LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/zorctl COMPONENT tool)
endif()
if(ZOR_WITH_ALL_VERBS)
  install(FILES tools/zorctl/completion/zorctl.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    RENAME zorctl COMPONENT tool)
  install(FILES tools/zorctl/completion/_zorctl DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions
    COMPONENT tool)
endif()

# The module for Lua, where Debian's interpreters look for it.
foreach(version IN LISTS ZOR_LUA_VERSIONS)
  string(REPLACE . "" suffix ${version})
  install(TARGETS lua_zor${suffix} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/lua/${version} COMPONENT lua)
endforeach()

if(ZOR_WITH_MANUAL)
  file(GLOB pages CONFIGURE_DEPENDS docs/*.md)
  install(FILES README.md ${pages} DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libmsgapi-doc COMPONENT documentation)
  install(DIRECTORY docs/images DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libmsgapi-doc COMPONENT documentation)
endif()
