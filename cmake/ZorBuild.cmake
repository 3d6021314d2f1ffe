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

# What every target gets: warnings are errors.
add_library(zor_options INTERFACE)
target_compile_options(zor_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
# GCC 12 takes "literal" + std::string for an overlapping copy (its bug 105651).
target_compile_options(zor_options INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
target_compile_definitions(zor_options INTERFACE _GNU_SOURCE)
target_include_directories(zor_options INTERFACE ${CMAKE_CURRENT_SOURCE_DIR}/include)

# What the libraries get on top: no exceptions, no run-time type information.
add_library(zor_library_options INTERFACE)
target_link_libraries(zor_library_options INTERFACE zor_options)
target_compile_options(zor_library_options INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti>)

if(ZOR_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
if(ZOR_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES Clang)
    message(FATAL_ERROR "ZOR_FUZZ takes clang")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
