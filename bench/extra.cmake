# Optional peer comparison: the parser benchmark runs ALSA's byte encoder on the same stream
# when its development files are installed, and skips that comparison otherwise.
find_package(ALSA QUIET)
if(ALSA_FOUND)
  target_link_libraries(vela_bench PRIVATE ALSA::ALSA)
  target_compile_definitions(vela_bench PRIVATE VELA_BENCH_HAVE_ALSA=1)
  message(STATUS "vela_bench: comparing the parser with ALSA ${ALSA_VERSION_STRING}")
else()
  message(STATUS "vela_bench: ALSA not found, parser comparison skipped")
endif()
