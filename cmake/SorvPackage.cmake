# The Debian package (CPack DEB, `dev/package`): both programs with the
# private pieces they load (sorvelandrix-capture, the FIDO2 module), the
# local service, the desktop entry, the D-Bus service file, the icon and the
# manual pages. Depends comes from dpkg-shlibdeps, plus the QML modules and
# Qt plugins the application loads at run time, which no ELF file names.

# Manual pages and the changelog go in compressed, without a time stamp in
# the gzip header, so two builds make the same package.
find_program(SORV_GZIP gzip REQUIRED)
set(_sorv_doc ${CMAKE_BINARY_DIR}/package-doc)
set(_sorv_man_pages ${CMAKE_SOURCE_DIR}/src/cli/sorvelandrix.1
                    ${CMAKE_SOURCE_DIR}/src/app/sorvelandrix-recorder.1
                    ${CMAKE_SOURCE_DIR}/localservice/sorvelandrix-local-service.1)
set(_sorv_compressed)
foreach(page ${_sorv_man_pages} ${CMAKE_SOURCE_DIR}/cmake/debian/changelog)
  get_filename_component(_name ${page} NAME)
  add_custom_command(OUTPUT ${_sorv_doc}/${_name}.gz
    COMMAND ${CMAKE_COMMAND} -E make_directory ${_sorv_doc}
    COMMAND ${SORV_GZIP} -9 -n -c ${page} > ${_sorv_doc}/${_name}.gz
    DEPENDS ${page} VERBATIM)
  list(APPEND _sorv_compressed ${_sorv_doc}/${_name}.gz)
endforeach()
add_custom_target(sorv_package_doc ALL DEPENDS ${_sorv_compressed})

list(TRANSFORM _sorv_man_pages REPLACE ".*/([^/]+)$" "${_sorv_doc}/\\1.gz")
install(FILES ${_sorv_man_pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
set(_sorv_docdir ${CMAKE_INSTALL_DATADIR}/doc/sorvelandrix-recorder)
install(FILES ${_sorv_doc}/changelog.gz ${CMAKE_SOURCE_DIR}/cmake/debian/copyright
        DESTINATION ${_sorv_docdir})

# CPack installs what is built and builds nothing: dev/package builds only
# the programs, never the tests and benchmarks beside them.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME sorvelandrix-recorder)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_CONTACT "Sorvelandrix Recorder developers <linux@sorvelandrix.com>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "record meetings and calls and get them transcribed")
set(CPACK_PACKAGE_DESCRIPTION
    "Records the microphone and everything the computer plays (and, in video\n"
    "mode, a display, application or window) through PulseAudio or PipeWire,\n"
    "and hands the recordings to the Sorvelandrix transcription service.\n"
    "Contains the tray application sorvelandrix-recorder, the command line\n"
    "sorvelandrix and sorvelandrix-local-service, a local implementation of\n"
    "the service to try everything without an account.")
string(REPLACE ";" "" CPACK_PACKAGE_DESCRIPTION "${CPACK_PACKAGE_DESCRIPTION}")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://sorvelandrix.com")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "qml6-module-qtquick, qml6-module-qtquick-controls, qml6-module-qtquick-templates, qml6-module-qtquick-layouts, qml6-module-qtquick-window, qml6-module-qtqml-workerscript, qt6-qpa-plugins, libqt6svg6")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "pulseaudio-utils | pipewire-pulse, xdg-utils")
include(CPack)
