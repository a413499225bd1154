# Replays every fuzz target's seeds and saved crashers in the ordinary test builds (dev and
# asan presets), without libFuzzer: each target's source is linked with ReplayMain.cpp. A crash
# found by a campaign is saved under fuzz/crashers/<target>/ with its minimised input, and from
# then on `make test` runs it.
include(${CMAKE_CURRENT_LIST_DIR}/Targets.cmake)
foreach(target ${ET_FUZZ_TARGETS})
  string(REPLACE "fuzz_" "" corpus ${target})
  add_executable(replay_${target} ${CMAKE_CURRENT_LIST_DIR}/${target}.cpp
                 ${CMAKE_CURRENT_LIST_DIR}/ReplayMain.cpp)
  target_include_directories(replay_${target} PRIVATE ${CMAKE_CURRENT_LIST_DIR})
  target_link_libraries(replay_${target} PRIVATE gs_linked)
  target_compile_options(replay_${target} PRIVATE ${ET_WARNINGS})
  add_test(NAME fuzz.replay.${corpus}
           COMMAND replay_${target} ${CMAKE_CURRENT_LIST_DIR}/corpus/${corpus}
                   ${CMAKE_CURRENT_LIST_DIR}/crashers/${corpus})
  set_tests_properties(fuzz.replay.${corpus} PROPERTIES LABELS fuzz TIMEOUT 300)
endforeach()
