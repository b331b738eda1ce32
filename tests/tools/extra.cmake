# The tool's tests drive its commands in-process through the tool's internal library,
# which is built here when the tool itself is switched off.
if(NOT PTMATCH_BUILD_TOOLS)
  set(PTMATCH_TOOLS_LIBRARY_ONLY ON)
  add_subdirectory(${PROJECT_SOURCE_DIR}/tools ${PROJECT_BINARY_DIR}/tools-library)
endif()
target_link_libraries(test_tools PRIVATE ptmatch_cli)

# The pictures of the real program read by Python's XML parser, beside the tests' own
# well-formedness check. (The tool's target is defined after the tests; the generator
# expression resolves it.)
# (find_program, not find_package(Python3): the Python module picks its interpreter from
# the variables that find_package would set.)
find_program(PTMATCH_TOOLS_TEST_PYTHON NAMES python3)
if(PTMATCH_TOOLS_TEST_PYTHON AND PTMATCH_BUILD_TOOLS)
  add_test(NAME tools.svg_pictures_parse_as_xml
    COMMAND ${PTMATCH_TOOLS_TEST_PYTHON} ${CMAKE_CURRENT_LIST_DIR}/check_svg.py
      $<TARGET_FILE:ptmatch_tool> ${CMAKE_CURRENT_BINARY_DIR}/svg-check)
  set_tests_properties(tools.svg_pictures_parse_as_xml PROPERTIES LABELS tools)
endif()
