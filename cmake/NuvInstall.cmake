# What is installed, and the Debian packages made of it (cpack -G DEB in the build tree):
#   libnuvmidi1     runtime: libNuvMIDI, libNuvCore, libNuvAudioOut
#   libnuvmidi-dev  the host headers, nuvmidi.pc, the CMake package NuvMIDI
#   nuvmidi         the command-line host
# Every path is relative to the prefix, so a tree installed with --prefix anywhere works.
include(CMakePackageConfigHelpers)

install(TARGETS NuvMIDI NuvCore EXPORT NuvMIDITargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/nuv)
# The audio library is in the export too, as libNuvMIDI's own dependency: a host's linker
# is then told where it is (-rpath-link), which a cross linker needs.
install(TARGETS NuvAudioOut EXPORT NuvMIDITargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_SKIP)
install(TARGETS nuvmidi RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)

# The headers a host includes, and those they include; the core's internals stay out.
install(FILES
  midi/include/NuvMIDI.h midi/include/NuvMIDITypes.h midi/include/INuvMIDIDevice.h
  midi/include/INuvMIDIDeviceManager.h midi/include/NuvMIDIEntry.h
  Nuv/Core/Inc/INuvDevice Nuv/Core/Inc/INuvDeviceManager Nuv/Core/Inc/NuvCallback
  Nuv/Core/Inc/NuvThread Nuv/Core/Inc/NuvLog Nuv/Core/Inc/NuvDevInfo Nuv/Core/Inc/NuvResult
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/nuv COMPONENT dev)

file(RELATIVE_PATH NUV_PC_TO_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" NUV_PC_TO_PREFIX "${NUV_PC_TO_PREFIX}")
configure_file(midi/nuvmidi.pc.in nuvmidi.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/nuvmidi.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

set(NUV_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/NuvMIDI)
install(EXPORT NuvMIDITargets NAMESPACE NuvMIDI:: DESTINATION ${NUV_CMAKE_DIR} COMPONENT dev)
configure_file(cmake/NuvMIDIConfig.cmake.in NuvMIDIConfig.cmake @ONLY)
write_basic_package_version_file(NuvMIDIConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/NuvMIDIConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/NuvMIDIConfigVersion.cmake
  DESTINATION ${NUV_CMAKE_DIR} COMPONENT dev)

# Debian packages, one per component, each with the copyright and changelog Debian asks for.
execute_process(COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/packaging/changelog
  OUTPUT_FILE ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz)
foreach(component runtime dev tools)
  set(package_runtime libnuvmidi1)
  set(package_dev libnuvmidi-dev)
  set(package_tools nuvmidi)
  install(FILES packaging/copyright ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package_${component}} COMPONENT ${component})
endforeach()
set(CPACK_GENERATOR DEB)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_NAME nuvmidi)
set(CPACK_PACKAGE_VENDOR "Nuv")
set(CPACK_PACKAGE_CONTACT "Nuv MIDI developers <midi@nuv.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "MIDI plug-in of the Nuv device framework")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libnuvmidi1)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
# The dynamic linker's cache is refreshed by a trigger, as Debian's library packages do.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libnuvmidi-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME nuvmidi)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION sound)
set(CPACK_COMPONENT_DEV_DEPENDS runtime)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
# Each under the one-line summary above.
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
  "Runtime libraries: the plug-in, its framework core and its audio output.")
set(CPACK_DEBIAN_DEV_DESCRIPTION
  "Development files: host headers, pkg-config file and CMake package NuvMIDI.")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION
  "nuvmidi, the command-line host: lists, plays and monitors MIDI devices.")
include(CPack)
