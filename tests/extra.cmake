# Test set-up beyond one program per file (included by tests/CMakeLists.txt).

# The trace client, once with the shipped trace library found at load and once without it.
# Each program gets its environment from the test run (run by hand, it sets it up itself).
# These are plain tests, one per program, because the environment is a list and the discovered
# tests' properties cannot carry one; the cross-thread cases get a test of their own so the
# ThreadSanitizer run (which selects tests by name) picks them up.
if(TARGET Vela_Vela_Trace_test AND TARGET OrbiTrace)
  set(vela_trace_dir $<TARGET_FILE_DIR:OrbiTrace>)
  set(vela_trace_file ${CMAKE_CURRENT_BINARY_DIR}/Vela_Trace_test.trace)
  add_dependencies(Vela_Vela_Trace_test OrbiTrace)
  target_compile_definitions(Vela_Vela_Trace_test PRIVATE
    VELA_TEST_ORBITRACE_DIR="${vela_trace_dir}" VELA_TEST_ORBITRACE_FILE="${vela_trace_file}")
  add_test(NAME Vela_Trace_test COMMAND Vela_Vela_Trace_test --gtest_filter=-*Threads*)
  add_test(NAME Vela_Trace_Threads_test COMMAND Vela_Vela_Trace_test --gtest_filter=*Threads*)
  set_tests_properties(Vela_Trace_test Vela_Trace_Threads_test PROPERTIES
    ENVIRONMENT "VELA_ORBITRACE_PATH=${vela_trace_dir};ORBITRACE_FILE=${vela_trace_file}")
endif()
if(TARGET Vela_Vela_TraceAbsent_test)
  add_test(NAME Vela_TraceAbsent_test COMMAND Vela_Vela_TraceAbsent_test)
  set_tests_properties(Vela_TraceAbsent_test PROPERTIES ENVIRONMENT
    "VELA_ORBITRACE_PATH=${CMAKE_CURRENT_BINARY_DIR}/no-trace-library-here;ORBITRACE_FILE=${CMAKE_CURRENT_BINARY_DIR}/Vela_TraceAbsent_test.trace")
endif()

# The damaged-document test runs the fuzz targets' round trip over its inputs.
if(TARGET Vela_Vela_DamagedDocument_test)
  target_include_directories(Vela_Vela_DamagedDocument_test PRIVATE ${PROJECT_SOURCE_DIR}/fuzz)
endif()
