# Toolchain of the machine ZOR_MACHINE, a row of machines.tsv: Debian's cross compiler and its libraries, which
# scripts/machine.sh unpacks into a sysroot.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ZOR_MACHINE)
file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/machines.tsv row REGEX "^${ZOR_MACHINE}\t")
if(NOT row)
  message(FATAL_ERROR "ZOR_MACHINE=${ZOR_MACHINE} is not in machines.tsv")
endif()
string(REPLACE "\t" ";" row "${row}")
list(GET row 3 compiler)
list(GET row 4 CMAKE_SYSTEM_PROCESSOR)
list(GET row 5 emulator)
list(GET row 7 flags)
string(REGEX REPLACE "^-$" "" flags "${flags}")

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${compiler}-gcc)
set(CMAKE_CXX_COMPILER ${compiler}-g++)
set(CMAKE_C_FLAGS_INIT ${flags})
set(CMAKE_CXX_FLAGS_INIT ${flags})

cmake_path(SET CMAKE_SYSROOT NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot/${ZOR_MACHINE})
# The sysroot's standard libraries before the cross compiler's own: other libraries of a newer suite need those.
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT
    "-L${CMAKE_SYSROOT}/usr/lib/${compiler} -L${CMAKE_SYSROOT}/usr/lib/gcc/${compiler}/12")
endforeach()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Where the kernel does not execute the machine's programs by itself.
if(NOT emulator STREQUAL - AND NOT ZOR_MACHINE_EXECUTES)
  set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${emulator}-static -L ${CMAKE_SYSROOT})
endif()
