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

# The soak program, briefly: every phase's own checks, and no gross growth. Under the
# sanitizers memory is theirs to keep (quarantine, shadow), so only the checks count there.
if(TARGET vela_soak)
  set(vela_soak_limit --limit-mib 64)
  if(VELA_SANITIZE)
    set(vela_soak_limit --no-limit)
  endif()
  add_test(NAME Soak_smoke COMMAND vela_soak 3 --warmup 1 ${vela_soak_limit})
endif()

# The audio outputs: the JACK test starts its own server, so each test has a time limit in
# case a server or client hangs, and the tests that start servers run one at a time (servers
# starting together share the JACK library's memory registry and have damaged it).
if(TARGET tools_Vela_Audio_test)
  if(TARGET vela_audio)
    # The render test plays the tool's demo song.
    target_sources(tools_Vela_Audio_test PRIVATE ${PROJECT_SOURCE_DIR}/tools/vela/Demo.cpp)
    target_include_directories(tools_Vela_Audio_test PRIVATE ${PROJECT_SOURCE_DIR}/tools/vela)
    target_link_libraries(tools_Vela_Audio_test PRIVATE vela_audio)
    gtest_discover_tests(tools_Vela_Audio_test DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 60 RESOURCE_LOCK jack)
  else()
    set_target_properties(tools_Vela_Audio_test PROPERTIES EXCLUDE_FROM_ALL ON)
  endif()
endif()

# The command-line tool end to end: the demo writes its files; each command runs on them and a
# damaged file gives one line on stderr and exit status 1, a bad command line status 2.
if(TARGET vela_tool)
  set(vela_tool_dir ${CMAKE_CURRENT_BINARY_DIR}/vela_tool_test)
  file(MAKE_DIRECTORY ${vela_tool_dir})
  add_test(NAME VelaTool.DemoAndCommands WORKING_DIRECTORY ${vela_tool_dir} COMMAND sh -ec "
    vela=$<TARGET_FILE:vela_tool>
    \$vela > demo.txt && test -s demo.mid && test -s demo-roll.svg
    \$vela import demo.mid -o demo.vela && \$vela export demo.vela -o again.mid
    \$vela export again.mid -o again2.mid && cmp again.mid again2.mid
    \$vela info demo.vela | grep -q '172 notes'
    \$vela dump demo.vela --xml | grep -q MIDI_Chunk
    \$vela play demo.vela --from 2 --to 3 --loop 2..2.5 --locate 6 --no-restrike | grep -q NoteOn
    \$vela play demo.mid -o played.mid > /dev/null && test -s played.mid
    \$vela roll demo.mid --from 2 --to 4 -o roll.svg > /dev/null && grep -q '</svg>' roll.svg
    head -c 30 demo.mid > cut.mid
    if \$vela info cut.mid 2> error.txt; then exit 1; else test \$? -eq 1; fi
    test \$(wc -l < error.txt) -eq 1 && grep -q 'cut.mid: byte' error.txt
    if \$vela play demo.mid --from x 2> /dev/null; then exit 1; else test \$? -eq 2; fi")
endif()

# vela render and vela play --jack from the command line: the files they write and their
# one-line errors (the JACK server the test asks for does not exist).
if(TARGET vela_tool AND VELA_AUDIO_OUTPUTS)
  set(vela_audio_dir ${CMAKE_CURRENT_BINARY_DIR}/vela_audio_test)
  file(MAKE_DIRECTORY ${vela_audio_dir})
  add_test(NAME VelaTool.RenderAndJackErrors WORKING_DIRECTORY ${vela_audio_dir} COMMAND sh -ec "
    vela=$<TARGET_FILE:vela_tool>
    \$vela > /dev/null
    if [ -r /usr/share/sounds/sf2/TimGM6mb.sf2 ]; then
      \$vela render demo.mid --from 2 --to 3 -o song.wav --picture wave.svg | grep -q 'wrote song.wav'
      test -s song.wav && grep -q '</svg>' wave.svg
    fi
    if \$vela render demo.mid -o x.wav --soundfont no.sf2 2> error.txt; then exit 1; fi
    grep -qx 'vela render: soundfont not found: no.sf2' error.txt
    if \$vela play demo.mid --jack --server vela-no-such-server 2> error.txt; then exit 1; fi
    grep -qx \"vela play: cannot reach the JACK server 'vela-no-such-server' (is jackd running?)\" error.txt")
  set_tests_properties(VelaTool.RenderAndJackErrors PROPERTIES TIMEOUT 120 RESOURCE_LOCK jack)
  # Ctrl-C while playing on a JACK server still stops the transport: status 130, at rest.
  add_test(NAME VelaTool.JackPlayStopsOnInterrupt WORKING_DIRECTORY ${vela_audio_dir} COMMAND sh -ec "
    vela=$<TARGET_FILE:vela_tool>
    command -v jackd > /dev/null || exit 0
    \$vela > /dev/null
    server=vela-interrupt-\$\$
    JACK_NO_AUDIO_RESERVATION=1 jackd --no-realtime -n \$server -d dummy -r 48000 -p 256 > /dev/null 2>&1 &
    jackd=\$!
    trap 'kill \$jackd 2> /dev/null' EXIT
    for attempt in 1 2 3 4 5 6 7 8 9 10; do  # until the server answers
      \$vela play demo.mid --jack --server \$server > played.txt 2>&1 &
      player=\$!
      sleep 1
      grep -q 'playing on' played.txt && break
      wait \$player || true
    done
    sleep 1
    kill -INT \$player
    status=0; wait \$player || status=\$?
    test \$status -eq 130 && grep -q 'interrupted: stopped' played.txt")
  set_tests_properties(VelaTool.JackPlayStopsOnInterrupt PROPERTIES TIMEOUT 60 RESOURCE_LOCK jack)
endif()

# The damaged-document test runs the fuzz targets' round trip over its inputs.
if(TARGET Vela_Vela_DamagedDocument_test)
  target_include_directories(Vela_Vela_DamagedDocument_test PRIVATE ${PROJECT_SOURCE_DIR}/fuzz)
endif()
