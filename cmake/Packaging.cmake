# The Debian package (scripts/package): `cpack` in the release build gives
# vst-adapter_VERSION-REVISION_amd64.deb from the install rules.
set(deb_files ${PROJECT_SOURCE_DIR}/packaging/debian)
set(deb_revision 1)

# The newest changelog entry names the version packaged: a new version needs a new entry.
file(STRINGS ${deb_files}/changelog newest_entry LIMIT_COUNT 1)
if(NOT newest_entry MATCHES "^vst-adapter \\(${PROJECT_VERSION}-${deb_revision}\\) ")
  message(FATAL_ERROR "packaging/debian/changelog: the newest entry is not version "
                      "${PROJECT_VERSION}-${deb_revision}")
endif()
set(doc_dir ${CMAKE_INSTALL_DATADIR}/doc/vst-adapter)
vst_adapter_gzip(${deb_files}/changelog ${CMAKE_BINARY_DIR}/changelog.Debian.gz)
add_custom_target(deb_changelog ALL DEPENDS ${CMAKE_BINARY_DIR}/changelog.Debian.gz)
install(FILES ${CMAKE_BINARY_DIR}/changelog.Debian.gz ${deb_files}/copyright DESTINATION ${doc_dir})
install(FILES ${deb_files}/lintian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
        RENAME vst-adapter)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vst-adapter)
set(CPACK_PACKAGE_CONTACT "Seed 74510d13 maintainers <maintainers@users.noreply.c-seed-74510d13.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "worker that runs one VST 2.4 or VST 3 effect plug-in")
set(CPACK_PACKAGE_DESCRIPTION
    "A command-line worker that an audio application starts once per job to load one\n"
    "VST 2.4 or VST 3 effect plug-in and do one thing with it: check that it loads,\n"
    "say whether it can be configured, print its pins or parameters, show its\n"
    "editor, or stream audio through it. A plug-in that crashes or hangs takes\n"
    "only the worker down.\n"
    "\n"
    "Includes a Python client (module vst_adapter) that runs plug-ins on numpy\n"
    "arrays, each in a worker of its own.")
string(JOIN "" CPACK_PACKAGE_DESCRIPTION ${CPACK_PACKAGE_DESCRIPTION})
set(CPACK_DEBIAN_PACKAGE_RELEASE ${deb_revision})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The Python client needs Python and numpy; libcurl is opened only for http(s) input.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "python3, python3-numpy, libcurl4")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${deb_files}/postinst ${deb_files}/prerm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
include(CPack)
