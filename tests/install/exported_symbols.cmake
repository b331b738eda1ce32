# Fails when a shared library exports a symbol of an internal namespace: what the module
# folders keep to themselves (detail and the modules' *_detail namespaces, the grid
# corresponder's and the robust grid mapping's namespaces, the tool's) must stay out of
# the libraries' dynamic symbol tables, so that users cannot come to depend on it.
#
#   cmake -DNM=<nm> -DLIBRARIES=<lib>[,<lib>...] -P exported_symbols.cmake
#
# Prints "skipped: ..." (the test's skip expression) when nm is not available.
if(NOT NM OR NOT EXISTS "${NM}")
  message("skipped: nm not found")
  return()
endif()
string(REPLACE "," ";" libraries "${LIBRARIES}")
set(private_pattern "[^_A-Za-z0-9](detail|[A-Za-z0-9]+_detail|ptmatch::gridcorr|ptmatch::robustgrid|ptmatch::cli)::")
set(offenders "")
foreach(library ${libraries})
  execute_process(COMMAND "${NM}" -D --defined-only -C "${library}"
    RESULT_VARIABLE status OUTPUT_VARIABLE symbols ERROR_VARIABLE errors)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${NM} failed on ${library}: ${errors}")
  endif()
  string(REPLACE "\n" ";" lines "${symbols}")
  set(count 0)
  foreach(line ${lines})
    if(line MATCHES "${private_pattern}")
      string(APPEND offenders "  ${library}: ${line}\n")
    endif()
    math(EXPR count "${count} + 1")
  endforeach()
  if(count EQUAL 0)
    message(FATAL_ERROR "${library} exports nothing: is it the right file?")
  endif()
  message(STATUS "${library}: ${count} exported symbols")
endforeach()
if(offenders)
  message(FATAL_ERROR "internal symbols exported:\n${offenders}")
endif()
