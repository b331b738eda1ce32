# The robustness tests start threads of their own.
find_package(Threads REQUIRED)
target_link_libraries(test_robustness PRIVATE Threads::Threads)

# Every committed fuzz input (seeds and the inputs that once took too long) replayed through
# its target in this build: each must end within a second, the whole folder within the
# test's TIMEOUT. Needs the fuzzers' FuzzedDataProvider header, which comes with clang.
file(GLOB PTMATCH_FUZZED_DATA_PROVIDER
  /usr/lib/llvm-*/lib/clang/*/include/fuzzer/FuzzedDataProvider.h)
if(PTMATCH_FUZZED_DATA_PROVIDER)
  # The header alone, away from the compiler headers beside it.
  list(GET PTMATCH_FUZZED_DATA_PROVIDER 0 provider)
  set(fuzz_include ${CMAKE_CURRENT_BINARY_DIR}/fuzz-include)
  configure_file(${provider} ${fuzz_include}/fuzzer/FuzzedDataProvider.h COPYONLY)
  file(GLOB fuzz_sources ${PROJECT_SOURCE_DIR}/fuzz/fuzz_*.cpp)
  foreach(source ${fuzz_sources})
    get_filename_component(name ${source} NAME_WE)
    add_executable(replay_${name} ${source} ${PROJECT_SOURCE_DIR}/fuzz/replay_main.cpp)
    target_include_directories(replay_${name} SYSTEM PRIVATE ${fuzz_include})
    target_link_libraries(replay_${name} PRIVATE ptmatch ptmatch_warnings)
    if(name STREQUAL "fuzz_cli_readers")
      target_link_libraries(replay_${name} PRIVATE ptmatch_cli)
    endif()
    add_test(NAME robustness.fuzz_corpus.${name}
      COMMAND replay_${name} --max-seconds 1 ${PROJECT_SOURCE_DIR}/fuzz/corpus/${name})
    set_tests_properties(robustness.fuzz_corpus.${name} PROPERTIES LABELS robustness TIMEOUT 120)
  endforeach()
else()
  message(STATUS "ptmatch: FuzzedDataProvider.h not found; the fuzz corpora are not replayed")
endif()
