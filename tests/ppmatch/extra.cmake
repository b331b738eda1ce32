# The voting differential test drives the search's internal Voter (exported for it) through
# its internal header.
target_include_directories(test_ppmatch PRIVATE ${PROJECT_SOURCE_DIR}/ptmatch)
