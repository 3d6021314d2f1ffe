# Headers, libraries, servers, the pkg-config file and the CMake package.
include(CMakePackageConfigHelpers)

install(DIRECTORY include/zor DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS msgapi zorplatform EXPORT msgapi
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT msgapi NAMESPACE zor:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/msgapi FILE msgapi-targets.cmake)

configure_package_config_file(cmake/msgapi-config.cmake.in msgapi-config.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/msgapi)
write_basic_package_version_file(msgapi-config-version.cmake COMPATIBILITY SameMajorVersion)
configure_file(cmake/msgapi.pc.in msgapi.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/msgapi-config.cmake ${CMAKE_CURRENT_BINARY_DIR}/msgapi-config-version.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/msgapi)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/msgapi.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

foreach(server msgsvr notifyserver mlogserver cms syslogd)
  if(TARGET ${server})
    install(TARGETS ${server} RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
  endif()
endforeach()
install(TARGETS zorctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES tools/zorctl/completion/zorctl.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
  RENAME zorctl)
install(FILES tools/zorctl/completion/_zorctl DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
