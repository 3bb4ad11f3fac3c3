# The bodies of the fuzz targets, shared by the fuzzers and by the regression test that
# replays their inputs with the ordinary test suite.
set(FORMATV2_FUZZ_DIR ${CMAKE_CURRENT_LIST_DIR})

include(${FORMATV2_FUZZ_DIR}/../tools/runner/base/json_scan.cmake)

# Adds the bodies to target, with the runner's JSON scanner, which the json target compares
# with cJSON. FuzzedDataProvider.h ships with clang; other compilers get a copy of it from clang's
# resource folder (installed with the clang package).
function(formatv2_fuzz_entries target)
  target_sources(${target} PRIVATE
    ${FORMATV2_FUZZ_DIR}/fuzz_support.cpp
    ${FORMATV2_FUZZ_DIR}/config_entry.cpp
    ${FORMATV2_FUZZ_DIR}/format_entry.cpp
    ${FORMATV2_FUZZ_DIR}/runs_entry.cpp
    ${FORMATV2_FUZZ_DIR}/json_entry.cpp)
  target_link_libraries(${target} PUBLIC formatv2_preview_json)
  # The bodies' own headers ("fuzz/..."), the runner's JSON scanner's and the tests' reference
  # formatters', below the tree's root.
  target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR})
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    return()
  endif()
  file(GLOB headers /usr/lib/llvm-*/lib/clang/*/include/fuzzer/FuzzedDataProvider.h)
  if(NOT headers)
    message(FATAL_ERROR "FuzzedDataProvider.h not found below /usr/lib/llvm-*: install clang "
                        "(scripts/setup.sh does)")
  endif()
  list(SORT headers COMPARE NATURAL)
  list(GET headers -1 header)
  set(dir ${CMAKE_BINARY_DIR}/fuzz_include)
  configure_file(${header} ${dir}/fuzzer/FuzzedDataProvider.h COPYONLY)
  target_include_directories(${target} SYSTEM PRIVATE ${dir})
endfunction()
