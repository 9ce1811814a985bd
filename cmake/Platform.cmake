# One implementation file per platform seam: "*_linux.cpp" here, "*_mac.mm" on macOS,
# "*_posix.cpp" for what both share. The helper drops the other platform's files.
if(APPLE)
  set(VST_ADAPTER_PLATFORM mac)
else()
  set(VST_ADAPTER_PLATFORM linux)
endif()

function(vst_adapter_platform_filter out_var)
  set(kept)
  foreach(file IN LISTS ARGN)
    get_filename_component(stem "${file}" NAME_WE)
    if(stem MATCHES "_mac$" AND NOT VST_ADAPTER_PLATFORM STREQUAL "mac")
      continue()
    endif()
    if(stem MATCHES "_linux$" AND NOT VST_ADAPTER_PLATFORM STREQUAL "linux")
      continue()
    endif()
    list(APPEND kept "${file}")
  endforeach()
  set(${out_var} "${kept}" PARENT_SCOPE)
endfunction()

if(VST_ADAPTER_PLATFORM STREQUAL "mac")
  # The .mm files manage Objective-C objects by hand (retain, release, autorelease), not by ARC.
  enable_language(OBJCXX)
  add_compile_options($<$<COMPILE_LANGUAGE:OBJCXX>:-fno-objc-arc>)
endif()

# Links a system framework by name on macOS ("-framework Name").
function(vst_adapter_link_frameworks target)
  foreach(framework IN LISTS ARGN)
    target_link_libraries(${target} PRIVATE "$<LINK_LIBRARY:FRAMEWORK,${framework}>")
  endforeach()
endfunction()
