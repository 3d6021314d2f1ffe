# Headers, libraries, servers, the pkg-config file and the CMake package.
install(DIRECTORY include/zor DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
