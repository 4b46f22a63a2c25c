# sorv_add_test(NAME SOURCES a.cpp ... LIBS lib ... [LABELS l ...] [TIMEOUT s] [PIPEWIRE]
#               [NO_PCH] [COST s])
# One QtTest executable per test file, registered with CTest and labelled
# with its folder (core, audio, service, …) besides any LABELS given: "pulse"
# marks the tests that need the private PulseAudio daemon, "x11" those that
# need a display. Both are acceptance tests on the real thing and labelled
# "slow" too: `ctest -LE slow` (dev/test --quick) is the inner loop.
# COST is the seconds a long test usually takes: ctest starts those first, so
# that a clean clone, which has no timings of its own yet, does not end on one.
# NO_PCH leaves out the shared precompiled header (SORV_PCH), for a test whose
# libraries' flags define what the header was not built with (_REENTRANT).
# PIPEWIRE registers the executable a second time as NAME_pipewire (label
# "pipewire"), its sound server then a private PipeWire session. Every test gets its own XDG directories so settings,
# secrets and recordings never touch the user's.
function(sorv_add_test name)
  cmake_parse_arguments(T "PIPEWIRE;NO_PCH" "TIMEOUT;COST" "SOURCES;LIBS;LABELS" ${ARGN})
  add_executable(${name} ${T_SOURCES})
  target_link_libraries(${name} PRIVATE Qt6::Test sorv_test_support ${T_LIBS})
  if(SORV_PCH AND NOT T_NO_PCH)
    target_precompile_headers(${name} REUSE_FROM sorv_test_pch)
  endif()
  add_test(NAME ${name} COMMAND ${name})
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 300)
  endif()
  if(NOT T_COST)
    set(T_COST 0)
  endif()
  if("pulse" IN_LIST T_LABELS OR "x11" IN_LIST T_LABELS)
    list(APPEND T_LABELS slow)
  endif()
  get_filename_component(folder ${CMAKE_CURRENT_SOURCE_DIR} NAME)
  set_tests_properties(${name} PROPERTIES TIMEOUT ${T_TIMEOUT} COST ${T_COST}
    LABELS "${folder};${T_LABELS}"
    ENVIRONMENT "QT_QPA_PLATFORM=offscreen;SORV_TEST_BINARY_DIR=${CMAKE_BINARY_DIR};SORV_SOURCE_DIR=${CMAKE_SOURCE_DIR}")
  if(T_PIPEWIRE)
    add_test(NAME ${name}_pipewire COMMAND ${name})
    set_tests_properties(${name}_pipewire PROPERTIES TIMEOUT ${T_TIMEOUT} COST ${T_COST}
      LABELS "${folder};pipewire;slow"
      ENVIRONMENT "QT_QPA_PLATFORM=offscreen;SORV_TEST_BINARY_DIR=${CMAKE_BINARY_DIR};SORV_SOURCE_DIR=${CMAKE_SOURCE_DIR};SORV_SOUND_SERVER=pipewire")
  endif()
endfunction()
