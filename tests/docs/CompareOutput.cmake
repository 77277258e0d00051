# Runs PROGRAM, which must end well and print what stands in EXPECTED.
execute_process(COMMAND ${PROGRAM} OUTPUT_VARIABLE printed ERROR_VARIABLE printed RESULT_VARIABLE status)
file(READ ${EXPECTED} expected)
if(NOT status EQUAL 0 OR NOT printed STREQUAL expected)
  message(FATAL_ERROR "The program ended with ${status} and printed\n${printed}\nwhere the page has\n${expected}")
endif()
