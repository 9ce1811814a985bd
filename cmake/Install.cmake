# What an installation ships beside the worker (app/CMakeLists.txt installs the worker itself):
# its helpers, the man page, bash completion and the Python client, in Debian's layout.
include(GNUInstallDirs)

# Helper programs live in a folder of their own, which the worker finds from its own binary
# (bin/../lib/vst-adapter). A helper target joins with
#   set_property(GLOBAL APPEND PROPERTY VST_ADAPTER_HELPER_TARGETS <target>)
# None exists yet, so the folder ships empty.
set(VST_ADAPTER_HELPER_DIR lib/vst-adapter)
get_property(helper_targets GLOBAL PROPERTY VST_ADAPTER_HELPER_TARGETS)
if(helper_targets)
  install(TARGETS ${helper_targets} RUNTIME DESTINATION ${VST_ADAPTER_HELPER_DIR})
else()
  install(DIRECTORY DESTINATION ${VST_ADAPTER_HELPER_DIR})
endif()

# Compressed without a name or time stamp, so that every build gives the same bytes.
function(vst_adapter_gzip source output)
  add_custom_command(OUTPUT ${output} COMMAND gzip -9 -n -c ${source} > ${output}
                     DEPENDS ${source} VERBATIM)
endfunction()

vst_adapter_gzip(${PROJECT_SOURCE_DIR}/docs/vst-adapter.1 ${CMAKE_BINARY_DIR}/vst-adapter.1.gz)
add_custom_target(man_page ALL DEPENDS ${CMAKE_BINARY_DIR}/vst-adapter.1.gz)
install(FILES ${CMAKE_BINARY_DIR}/vst-adapter.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)

install(FILES ${PROJECT_SOURCE_DIR}/packaging/vst-adapter.bash-completion
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME vst-adapter)

# Where Debian's python3 finds packages of every Python version.
set(VST_ADAPTER_PYTHON_DIR lib/python3/dist-packages CACHE STRING
    "Folder under the prefix for the Python client")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/python/vst_adapter DESTINATION ${VST_ADAPTER_PYTHON_DIR}
        FILES_MATCHING PATTERN "*.py" PATTERN "py.typed" PATTERN "__pycache__" EXCLUDE)
