# The tool's tests drive its commands in-process through the tool's internal library,
# which is built here when the tool itself is switched off.
if(NOT PTMATCH_BUILD_TOOLS)
  set(PTMATCH_TOOLS_LIBRARY_ONLY ON)
  add_subdirectory(${PROJECT_SOURCE_DIR}/tools ${PROJECT_BINARY_DIR}/tools-library)
endif()
target_link_libraries(test_tools PRIVATE ptmatch_cli)

