# Configures the fixture project, runs the layering check on it and compares what it reports.
cmake_minimum_required(VERSION 3.25)
set(fixture ${CMAKE_CURRENT_LIST_DIR}/fixture)
file(REMOVE_RECURSE ${WORK})
execute_process(COMMAND ${CMAKE_COMMAND} -S ${fixture} -B ${WORK} -DARNEX_SOURCE=${SOURCE}
    RESULT_VARIABLE rc OUTPUT_QUIET ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "the fixture project does not configure:\n${err}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -DLAYER_DATA=${WORK}/Layering.cmake -DLAYER_ROOT=${fixture}
    -P ${SOURCE}/cmake/CheckLayering.cmake
    RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
set(expected [[src/high/High.cpp:3: includes "base/Base.h" of base, which high does not link
src/low/Low.cpp:3: includes "high/High.h" of high, which low does not link
src/low/Parse.cpp:2: includes "Low.h" of low, which low_parse does not link
]])
string(REGEX MATCHALL "[^\n]*: includes [^\n]*\n" reported "${err}")
string(JOIN "" reported ${reported})
if(rc EQUAL 0 OR NOT reported STREQUAL expected)
    message(FATAL_ERROR "exit code ${rc}; expected the report\n${expected}got\n${out}${err}")
endif()
