# The libraries that ours depend on, as imported targets: SQLite::SQLite3, OpenSSL::Crypto, OpenSSL::SSL, Zor::cJSON,
# Zor::tirpc, Zor::mosquitto, Zor::microhttpd and Zor::pam; those that zorctl needs: Zor::ncursesw and Zor::tinfo, and the
# header-only Zor::CLI11 and Zor::nlohmann_json. Found by their files, not through pkg-config, so that a cross build needs
# only its own search path.
find_package(SQLite3 3.37 REQUIRED)
find_package(OpenSSL 3.0 REQUIRED COMPONENTS Crypto SSL)

function(zor_find_library name header library suffix package)
  find_path(${name}_INCLUDE_DIR ${header} PATH_SUFFIXES ${suffix})
  find_library(${name}_LIBRARY ${library})
  mark_as_advanced(${name}_INCLUDE_DIR ${name}_LIBRARY)
  if(NOT ${name}_INCLUDE_DIR OR NOT ${name}_LIBRARY)
    message(FATAL_ERROR "${name} is missing: install ${package}")
  endif()
  add_library(Zor::${name} UNKNOWN IMPORTED GLOBAL)
  set_target_properties(Zor::${name} PROPERTIES
    IMPORTED_LOCATION ${${name}_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${${name}_INCLUDE_DIR})
endfunction()

zor_find_library(cJSON cjson/cJSON.h cjson "" libcjson-dev)
# Its archive: the shared library would bring Kerberos into every daemon, for the XDR routines that it has. A sanitizer
# puts itself before these, and finds them only in a shared library.
if(ZOR_SANITIZE)
  zor_find_library(tirpc rpc/xdr.h libtirpc.so tirpc libtirpc-dev)
else()
  zor_find_library(tirpc rpc/xdr.h libtirpc.a tirpc libtirpc-dev)
endif()
if(ZOR_WITH_BRIDGE)
  zor_find_library(mosquitto mosquitto.h mosquitto "" libmosquitto-dev)
endif()
zor_find_library(ncursesw ncursesw/curses.h ncursesw "" libncurses-dev)
zor_find_library(tinfo ncursesw/term.h tinfo "" libncurses-dev)
if(ZOR_WITH_WEB)
  zor_find_library(microhttpd microhttpd.h microhttpd "" libmicrohttpd-dev)
  zor_find_library(pam security/pam_appl.h pam "" libpam0g-dev)
endif()

function(zor_find_headers name header package)
  find_path(${name}_INCLUDE_DIR ${header})
  mark_as_advanced(${name}_INCLUDE_DIR)
  if(NOT ${name}_INCLUDE_DIR)
    message(FATAL_ERROR "${name} is missing: install ${package}")
  endif()
  add_library(Zor::${name} INTERFACE IMPORTED GLOBAL)
  set_target_properties(Zor::${name} PROPERTIES INTERFACE_INCLUDE_DIRECTORIES ${${name}_INCLUDE_DIR})
endfunction()

zor_find_headers(CLI11 CLI/CLI.hpp libcli11-dev)
zor_find_headers(nlohmann_json nlohmann/json.hpp nlohmann-json3-dev)
