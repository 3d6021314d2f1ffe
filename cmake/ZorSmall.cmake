# What a build contains. ZOR_SMALL is for a gateway with 16 MiB of flash: it leaves out what such a device can do without,
# each part of which a switch of its own brings back, and builds the rest for size. The libraries are always complete.
option(ZOR_SMALL "Leave out what a device with 16 MiB of flash can do without, and build for size" OFF)

function(zor_part name text)
  set(wanted ON)
  if(ZOR_SMALL)
    set(wanted OFF)
  endif()
  option(${name} "${text}" ${wanted})
  if(ZOR_BUILD_TESTS AND NOT ${name})
    message(FATAL_ERROR "The tests take every part of the system: set ZOR_BUILD_TESTS=OFF or ${name}=ON")
  endif()
endfunction()
zor_part(ZOR_WITH_WEB "Build zorweb, the page for the browser, which needs libmicrohttpd, GnuTLS and PAM")
zor_part(ZOR_WITH_BRIDGE "Build zorbridge and zorctl --fleet, which need libmosquitto and OpenSSL")
zor_part(ZOR_WITH_TUNNEL "Build zortunnel, for daemons on other boards, which needs OpenSSL")
zor_part(ZOR_WITH_ALL_VERBS "Build zorctl with the verbs that are for development and support")
zor_part(ZOR_WITH_BINDINGS "Build the modules for Lua and Python")
zor_part(ZOR_WITH_DEVELOPMENT "Build zorgen, the dissector and the examples")
zor_part(ZOR_WITH_MANUAL "Build and install the manual pages and the documentation")

option(ZOR_SMALL_LTO "Build for size with link-time optimisation" OFF)
if(ZOR_SMALL)
  # Sections that begin anywhere in a page leave no gaps in the files.
  add_link_options(-Wl,-z,noseparate-code)
  set(CMAKE_INTERPROCEDURAL_OPTIMIZATION ${ZOR_SMALL_LTO})
endif()
# Worth it where nothing else on the device is in C++, and not much of ours: it takes up more in seven files than once.
option(ZOR_STATIC_RUNTIME "Link what is used of the C++ runtime into each library and program" OFF)
if(ZOR_STATIC_RUNTIME AND ZOR_WITH_BRIDGE)
  # zorctl and the module for its --fleet pass exceptions to each other, which takes one runtime for both.
  message(FATAL_ERROR "ZOR_WITH_BRIDGE takes the shared C++ runtime: set ZOR_STATIC_RUNTIME=OFF")
elseif(ZOR_STATIC_RUNTIME)
  add_link_options(-static-libstdc++ -static-libgcc)
endif()
