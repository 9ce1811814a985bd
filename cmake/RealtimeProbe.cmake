# The realtime-safety check's helper: the core linked with LLVM's real-time sanitizer runtime
# (Debian's libclang-rt-19-dev), whole, as the compiler driver would with -fsanitize=realtime.
# Linux only; not in sanitizer builds, whose runtimes intercept the same functions. Without the
# runtime the check reports skip.
if(NOT VST_ADAPTER_PLATFORM STREQUAL "linux" OR VST_ADAPTER_SANITIZE OR VST_ADAPTER_TSAN)
  return()
endif()
file(GLOB rtsan_candidates
     /usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.rtsan-${CMAKE_SYSTEM_PROCESSOR}.a)
list(SORT rtsan_candidates COMPARE NATURAL ORDER DESCENDING)
find_file(VST_ADAPTER_RTSAN_RUNTIME libclang_rt.rtsan-${CMAKE_SYSTEM_PROCESSOR}.a
          HINTS ${rtsan_candidates} NO_DEFAULT_PATH)
if(NOT VST_ADAPTER_RTSAN_RUNTIME AND rtsan_candidates)
  list(GET rtsan_candidates 0 VST_ADAPTER_RTSAN_RUNTIME)
endif()
if(NOT VST_ADAPTER_RTSAN_RUNTIME)
  message(WARNING "LLVM's real-time sanitizer runtime not found (libclang-rt-19-dev): "
                  "validate's realtime-safety check will skip")
  return()
endif()

file(GLOB realtime_window_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/checks/realtime/*.cpp)
vst_adapter_platform_filter(realtime_window_sources ${realtime_window_sources})
add_executable(vst-adapter-realtime-probe ${PROJECT_SOURCE_DIR}/app/realtime_probe_main.cpp
               ${realtime_window_sources})
target_link_libraries(vst-adapter-realtime-probe PRIVATE
  adapter_core vst_adapter_warnings
  "-Wl,--whole-archive" ${VST_ADAPTER_RTSAN_RUNTIME} "-Wl,--no-whole-archive"
  ${CMAKE_DL_LIBS} pthread rt)
set_target_properties(vst-adapter-realtime-probe PROPERTIES
  RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
set_property(GLOBAL APPEND PROPERTY VST_ADAPTER_HELPER_TARGETS vst-adapter-realtime-probe)
