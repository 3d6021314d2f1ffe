# Language, warnings, visibility and sanitizers: the same for every target of the project.
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE RelWithDebInfo)
endif()

# Options of every target: warnings are errors.
add_library(zor_options INTERFACE)
target_compile_options(zor_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
# GCC 12 mistakes "literal" + std::string for an overlapping copy (its bug 105651).
target_compile_options(zor_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
# Trace lines name their source file; the path of the build stays out of the libraries.
target_compile_options(zor_options INTERFACE -fmacro-prefix-map=${CMAKE_CURRENT_SOURCE_DIR}/=)
target_compile_definitions(zor_options INTERFACE _GNU_SOURCE)
# Offsets of files have 64 bits everywhere; without that, even looking at a file may fail because of its number.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  target_compile_definitions(zor_options INTERFACE _FILE_OFFSET_BITS=64)
endif()
target_include_directories(zor_options INTERFACE ${CMAKE_CURRENT_SOURCE_DIR}/include)

# Options of the libraries in addition: no exceptions, no run-time type information.
add_library(zor_library_options INTERFACE)
target_link_libraries(zor_library_options INTERFACE zor_options)
target_compile_options(zor_library_options INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti>)

# Releases abort on an overflow; sanitizer builds report it in more detail.
if(CMAKE_BUILD_TYPE MATCHES Rel AND NOT ZOR_SANITIZE)
  include(CheckCXXCompilerFlag)
  include(CheckPIESupported)
  check_pie_supported()
  add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection)
    string(MAKE_C_IDENTIFIER has${flag} has)
    check_cxx_compiler_flag(-Werror\ ${flag} ${has})
    if(${has})
      add_compile_options(${flag})
    endif()
  endforeach()
  add_link_options(-Wl,-z,relro,-z,now,--as-needed)
  # Functions that a program never calls are left out of it.
  add_compile_options(-ffunction-sections -fdata-sections)
  add_link_options(-Wl,--gc-sections)
endif()
# What compiles and links with the sanitizers, also for tests that call the compiler; and the file of their runtime, which
# is a shared library, so that interpreters that load our modules can be given it.
set(ZOR_SANITIZER_FLAGS)
if(ZOR_SANITIZE)
  set(ZOR_SANITIZER_FLAGS -fsanitize=address,undefined)
  set(runtime libasan.so)
  if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
    set(runtime libclang_rt.asan-${CMAKE_SYSTEM_PROCESSOR}.so)
  endif()
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${runtime} OUTPUT_VARIABLE ZOR_SANITIZER_RUNTIME
    OUTPUT_STRIP_TRAILING_WHITESPACE)
  # The fuzzers' own library puts another one before it; they load no modules and have the runtime in themselves.
  if(CMAKE_CXX_COMPILER_ID MATCHES Clang AND NOT ZOR_FUZZ)
    cmake_path(GET ZOR_SANITIZER_RUNTIME PARENT_PATH directory)
    list(APPEND ZOR_SANITIZER_FLAGS -shared-libasan -Wl,-rpath,${directory} -Wno-unused-command-line-argument)
  endif()
  add_compile_options(${ZOR_SANITIZER_FLAGS} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(${ZOR_SANITIZER_FLAGS})
endif()
if(ZOR_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES Clang)
    message(FATAL_ERROR "ZOR_FUZZ takes clang")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# zor_optimize_size(target [EXCEPT sources...]): a release is built for size, since most code of a server runs once or
# rarely, and all of it takes up memory; except for what every message passes.
function(zor_optimize_size target)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" EXCEPT)
  set(release $<CONFIG:Release,RelWithDebInfo>)
  target_compile_options(${target} PRIVATE $<${release}:-Os>)
  if(ARG_EXCEPT)
    set_source_files_properties(${ARG_EXCEPT} PROPERTIES COMPILE_OPTIONS $<${release}:-O2>)
  endif()
endfunction()
