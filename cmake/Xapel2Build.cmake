# Settings that every target of the project shares. A parent project keeps its own choice of warnings, build type, compiler
# launcher and output folders.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

find_package(Threads REQUIRED)

# Inconsistent rounding between builds would make results differ; every product is rounded as written.
add_compile_options(-ffp-contract=off)

if(PROJECT_IS_TOP_LEVEL)
  set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
  set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
  set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
  if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Build type" FORCE)
  endif()

  find_program(CCACHE_PROGRAM ccache)
  if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
  endif()

  add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion)
endif()
if(XAPEL2_WERROR)
  add_compile_options(-Werror)
endif()

if(XAPEL2_BUILD_FUZZERS)
  set(XAPEL2_SANITIZE fuzzer-no-link,address,undefined)
endif()
if(XAPEL2_SANITIZE)
  add_compile_options(-fsanitize=${XAPEL2_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${XAPEL2_SANITIZE})
endif()
