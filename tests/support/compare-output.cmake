# SPDX-License-Identifier: Apache-2.0
# usage: cmake -DPROGRAM=FILE -DARGUMENTS=LIST -DSTATUS=N -DEXPECTED=FILE -P compare-output.cmake
# Runs the program and compares its exit status, and all that it prints, with what is expected.
execute_process(COMMAND "${PROGRAM}" ${ARGUMENTS} RESULT_VARIABLE status OUTPUT_VARIABLE said ERROR_VARIABLE said)
file(READ "${EXPECTED}" expected)
if(NOT status STREQUAL STATUS OR NOT said STREQUAL expected)
  message(FATAL_ERROR "Expected status ${STATUS} and\n${expected}\nbut got ${status} and\n${said}")
endif()
