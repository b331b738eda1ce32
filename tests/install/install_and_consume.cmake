# Script run by the install_and_consume test (cmake -P). Inputs: BUILD_DIR, WORK_DIR,
# CONSUMER_SOURCE, LIBDIR, GENERATOR, CXX_COMPILER, BUILD_TYPE, EXTRA_FLAGS, PKG_CONFIG.
cmake_minimum_required(VERSION 3.20)

function(run_step what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${what} failed (${result}):\n${out}\n${err}")
  endif()
  message(STATUS "${what}: ok")
  set(STEP_OUTPUT "${out}" PARENT_SCOPE)
endfunction()

set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

# 1. Install.
run_step("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
foreach(installed
    include/mvbase/mvbase.h include/ptmatch/ptmatch.h
    ${LIBDIR}/cmake/ptmatch/ptmatchConfig.cmake ${LIBDIR}/pkgconfig/ptmatch.pc)
  if(NOT EXISTS ${prefix}/${installed})
    message(FATAL_ERROR "not installed: ${installed}")
  endif()
endforeach()
set(runtime_env LD_LIBRARY_PATH=${prefix}/${LIBDIR})

# 2. find_package(ptmatch CONFIG REQUIRED) and ptmatch::ptmatch.
set(consumer_build ${WORK_DIR}/consumer-build)
run_step("configure the consumer" ${CMAKE_COMMAND} -S ${CONSUMER_SOURCE} -B ${consumer_build}
  -G ${GENERATOR} -DCMAKE_CXX_COMPILER=${CXX_COMPILER} -DCMAKE_BUILD_TYPE=${BUILD_TYPE}
  -DCMAKE_PREFIX_PATH=${prefix} "-DCMAKE_CXX_FLAGS=${EXTRA_FLAGS}")
run_step("build the consumer" ${CMAKE_COMMAND} --build ${consumer_build})
run_step("run the consumer" ${CMAKE_COMMAND} -E env ${runtime_env} ${consumer_build}/consumer)
message(STATUS "${STEP_OUTPUT}")

# 3. pkg-config.
if(PKG_CONFIG)
  set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
  run_step("pkg-config" ${PKG_CONFIG} --cflags --libs ptmatch)
  string(STRIP "${STEP_OUTPUT}" flags)
  if(NOT flags MATCHES "-lptmatch" OR NOT flags MATCHES "-lmvbase")
    message(FATAL_ERROR "pkg-config flags lack the libraries: ${flags}")
  endif()
  separate_arguments(flag_list UNIX_COMMAND "${flags}")
  separate_arguments(extra_list UNIX_COMMAND "${EXTRA_FLAGS}")
  set(exe ${WORK_DIR}/consumer-pkg-config)
  run_step("build with pkg-config flags" ${CXX_COMPILER} -std=c++17 ${extra_list}
    ${CONSUMER_SOURCE}/main.cpp -o ${exe} ${flag_list})
  run_step("run the pkg-config build" ${CMAKE_COMMAND} -E env ${runtime_env} ${exe})
else()
  message(STATUS "pkg-config not found: its check is skipped")
endif()
