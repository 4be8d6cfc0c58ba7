# wf_discover_tests(TARGET [TEST_PREFIX prefix] [LABELS label...] [TIMEOUT seconds]
#                   [RUN_SERIAL])
#
# gtest_discover_tests for every test folder, with labels and limits that hold.
# gtest_discover_tests flattens a list given to PROPERTIES into the property
# pairs ("LABELS a;b TIMEOUT 180" becomes LABELS=a and the rest is lost), so
# the properties are set here from a CTest script of their own, run after the
# discovered tests are defined, on the list of their names.
#
# Every call is also recorded in tests-declared.json in the build folder;
# scripts/check-test-properties compares it with what ctest reports, so a
# label or limit that goes missing fails the test command.
function(wf_discover_tests target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "RUN_SERIAL" "TEST_PREFIX;TIMEOUT" "LABELS")
  if(arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "wf_discover_tests(${target}): unknown arguments ${arg_UNPARSED_ARGUMENTS}")
  endif()
  set(list_var "${target}_TESTS")
  set(extra "")
  if(DEFINED arg_TEST_PREFIX)
    list(APPEND extra TEST_PREFIX "${arg_TEST_PREFIX}")
  endif()
  gtest_discover_tests(${target} DISCOVERY_TIMEOUT 60 TEST_LIST ${list_var} ${extra})

  set(props "")
  if(arg_LABELS)
    list(JOIN arg_LABELS ";" joined)
    string(APPEND props " LABELS \"${joined}\"")
  endif()
  if(DEFINED arg_TIMEOUT)
    string(APPEND props " TIMEOUT ${arg_TIMEOUT}")
  endif()
  if(arg_RUN_SERIAL)
    string(APPEND props " RUN_SERIAL TRUE")
  endif()
  if(NOT props STREQUAL "")
    set(script "${CMAKE_CURRENT_BINARY_DIR}/${target}_properties.cmake")
    file(WRITE "${script}"
         "if(${list_var})\n"
         "  set_tests_properties(\${${list_var}} PROPERTIES${props})\n"
         "endif()\n")
    # After the include file gtest_discover_tests has just added.
    set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES "${script}")
  endif()

  # One JSON object per call; the list is written once configuring is over.
  set(labels_json "")
  foreach(label IN LISTS arg_LABELS)
    if(NOT labels_json STREQUAL "")
      string(APPEND labels_json ", ")
    endif()
    string(APPEND labels_json "\"${label}\"")
  endforeach()
  set(timeout_json "null")
  if(DEFINED arg_TIMEOUT)
    set(timeout_json "${arg_TIMEOUT}")
  endif()
  set(serial_json "false")
  if(arg_RUN_SERIAL)
    set(serial_json "true")
  endif()
  set_property(GLOBAL APPEND PROPERTY WF_DECLARED_TESTS
    "{\"target\": \"${target}\", \"executable\": \"$<TARGET_FILE:${target}>\", \"labels\": [${labels_json}], \"timeout\": ${timeout_json}, \"run_serial\": ${serial_json}}")
  get_property(deferred GLOBAL PROPERTY WF_DECLARED_TESTS_DEFERRED)
  if(NOT deferred)
    set_property(GLOBAL PROPERTY WF_DECLARED_TESTS_DEFERRED TRUE)
    cmake_language(DEFER DIRECTORY ${CMAKE_SOURCE_DIR} CALL _wf_write_declared_tests)
  endif()
endfunction()

function(_wf_write_declared_tests)
  get_property(entries GLOBAL PROPERTY WF_DECLARED_TESTS)
  list(JOIN entries ",\n  " body)
  file(GENERATE OUTPUT "${CMAKE_BINARY_DIR}/tests-declared.json" CONTENT "[\n  ${body}\n]\n")
endfunction()
