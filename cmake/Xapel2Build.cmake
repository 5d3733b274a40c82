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

# These files of a target compile once for each kind of vectors, by including themselves (Highway).
function(xapel2_vector_sources TARGET)
  find_package(hwy REQUIRED)
  target_link_libraries(${TARGET} PRIVATE hwy::hwy)
  set_source_files_properties(${ARGN} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
  # NEON is part of every 64-bit ARM processor, with or without the AES instructions that a choice at run time would
  # ask for. Scalable vectors cannot stand in the kernels' structures.
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
    target_compile_definitions(${TARGET} PRIVATE HWY_COMPILE_ONLY_STATIC)
  elseif(XAPEL2_NATIVE)
    target_compile_definitions(${TARGET} PRIVATE HWY_COMPILE_ONLY_STATIC)
    # A folder that comes to another machine, and a compiler's cache, see that their objects are not for it.
    file(STRINGS /proc/cpuinfo CPU REGEX "^flags" LIMIT_COUNT 1)
    string(MD5 CPU "${CPU}")
    set_property(SOURCE ${ARGN} APPEND PROPERTY COMPILE_OPTIONS -march=native -DXAPEL2_CPU=0x${CPU})
  endif()
endfunction()
