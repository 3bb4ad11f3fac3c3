# Runs the preview runner and compares its output with a file kept in the repository.
#   cmake -DRUNNER=... -DARGS="run;scenario.json" -DEXPECTED=... [-DEMULATOR=...] [-DEXIT=0]
#         [-DINPUT=file for standard input] -P golden.cmake
# FORMATV2_UPDATE_GOLDEN=1 in the environment (FORMATV2_UPDATE_GOLDEN=1 ctest -R golden) writes
# the output to the expected file instead of comparing. It is read at test time, never kept in
# the build's cache, so only the run that names it rewrites and every other run compares.
# Source line numbers of log lines, the configuration text's address, the checkout's path and
# JUnit's times change with the code, the run and the machine, so they are masked before
# comparing.
if(NOT INPUT)
  set(INPUT /dev/null)
endif()
execute_process(
  COMMAND ${EMULATOR} ${RUNNER} ${ARGS}
  INPUT_FILE ${INPUT}
  OUTPUT_VARIABLE out
  ERROR_VARIABLE err
  RESULT_VARIABLE rc)
if(NOT DEFINED EXIT)
  set(EXIT 0)
endif()
if(NOT rc EQUAL EXIT)
  message(FATAL_ERROR "exit code ${rc}, expected ${EXIT}\n${err}${out}")
endif()
string(APPEND out "${err}")
string(REGEX REPLACE "formatv2\\.cpp:[0-9]+" "formatv2.cpp:LINE" out "${out}")
string(REPLACE "${SOURCE_DIR}" "SRC" out "${out}")
string(REGEX REPLACE "pJsonStr = [^,]*," "pJsonStr = ADDRESS," out "${out}")
string(REGEX REPLACE " time=\"[0-9]+\\.[0-9]+\"" " time=\"SECONDS\"" out "${out}")
set(update "$ENV{FORMATV2_UPDATE_GOLDEN}")
if(update)
  file(WRITE ${EXPECTED} "${out}")
  message(STATUS "rewrote ${EXPECTED}")
  return()
endif()
file(READ ${EXPECTED} expected)
if(NOT out STREQUAL expected)
  file(WRITE ${EXPECTED}.actual "${out}")
  message(FATAL_ERROR "output differs from ${EXPECTED}; see ${EXPECTED}.actual")
endif()
