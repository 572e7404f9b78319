# The Windows zip and the installer, included from CMakeLists.txt in the Windows build:
#
#   cpack -G ZIP --config build-windows/CPackConfig.cmake    # stashwell-<version>-win64.zip
#   cmake --build build-windows --target installer           # Stashwell-<version>-setup.exe
#
# It holds, in a folder of its own name, stashwell.exe, qrv.exe, "QRV Manual.pdf" and
# README-Windows.txt. The Windows build prints no manual (no Qt): STASHWELL_MANUAL_PDF names the
# one a Linux build printed (target manual; scripts/build-windows.sh finds or prints it). The
# zip and the installer come with cli, the level that makes both programs.

if(NOT (TARGET stashwell AND TARGET qrv))
    message(STATUS "No Windows zip or installer at STASHWELL_WINDOWS_UPTO="
        "${STASHWELL_WINDOWS_UPTO}: they hold stashwell.exe and qrv.exe, made from cli up")
    return()
endif()
set(STASHWELL_MANUAL_PDF "" CACHE FILEPATH
    "QRV Manual.pdf as a Linux build printed it (target manual), for the Windows zip")
if(NOT EXISTS "${STASHWELL_MANUAL_PDF}")
    message(STATUS "No Windows zip or installer: STASHWELL_MANUAL_PDF names no printed manual")
    return()
endif()

install(TARGETS stashwell qrv RUNTIME DESTINATION .)
install(FILES "${STASHWELL_MANUAL_PDF}" DESTINATION . RENAME "QRV Manual.pdf")
# Windows line ends, for Notepad of every Windows version.
configure_file(${PROJECT_SOURCE_DIR}/packaging/windows/README-Windows.txt.in
    ${CMAKE_BINARY_DIR}/packaging/README-Windows.txt @ONLY NEWLINE_STYLE CRLF)
install(FILES ${CMAKE_BINARY_DIR}/packaging/README-Windows.txt DESTINATION .)

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_NAME stashwell)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR Korvex)
set(CPACK_PACKAGE_FILE_NAME stashwell-${PROJECT_VERSION}-win64)
set(CPACK_STRIP_FILES ON)
include(CPack)

# The installer, Stashwell-<version>-setup.exe in build-windows/installer, made by makensis
# (Debian package nsis) from packaging/windows/stashwell.nsi:
#
#   cmake --build build-windows --target installer
#
# It installs the zip's four files, the programs stripped alike, per user without
# administrator rights, with Start-menu entries and an uninstaller (docs/windows.md). It is a
# target of its own, not part of every build: scripts/build-windows.sh makes it after the zip.
find_program(STASHWELL_MAKENSIS makensis)
if(NOT STASHWELL_MAKENSIS)
    message(STATUS "No Windows installer: makensis is missing (Debian package nsis)")
    return()
endif()
set(installer_dir ${CMAKE_BINARY_DIR}/installer)
set(setup ${installer_dir}/Stashwell-${PROJECT_VERSION}-setup.exe)
# The setup of an earlier version would be taken for this one's.
file(GLOB stale_setups ${installer_dir}/Stashwell-*-setup.exe)
list(REMOVE_ITEM stale_setups ${setup})
if(stale_setups)
    file(REMOVE ${stale_setups})
endif()
# Windows wants four numbers in a file's version: 1.0.0 is 1.0.0.0.
string(REGEX MATCHALL "[0-9]+" version_numbers "${PROJECT_VERSION}.0.0.0")
list(SUBLIST version_numbers 0 4 version_numbers)
list(JOIN version_numbers . file_version)

add_custom_command(OUTPUT ${installer_dir}/stashwell.exe ${installer_dir}/qrv.exe
    COMMAND ${CMAKE_COMMAND} -E make_directory ${installer_dir}
    COMMAND ${CMAKE_STRIP} -o ${installer_dir}/stashwell.exe $<TARGET_FILE:stashwell>
    COMMAND ${CMAKE_STRIP} -o ${installer_dir}/qrv.exe $<TARGET_FILE:qrv>
    DEPENDS stashwell qrv
    COMMENT "Stripping the programs for the installer"
    VERBATIM)
set(nsi ${PROJECT_SOURCE_DIR}/packaging/windows/stashwell.nsi)
set(readme ${CMAKE_BINARY_DIR}/packaging/README-Windows.txt)
# -V2 keeps makensis to its warnings and errors, and -WX fails the build on a warning.
add_custom_command(OUTPUT ${setup}
    COMMAND ${STASHWELL_MAKENSIS} -V2 -WX -DVERSION=${PROJECT_VERSION}
        -DFILE_VERSION=${file_version} -DSTASHWELL_EXE=${installer_dir}/stashwell.exe
        -DQRV_EXE=${installer_dir}/qrv.exe -DMANUAL_PDF=${STASHWELL_MANUAL_PDF}
        -DREADME=${readme} -DOUTFILE=${setup} ${nsi}
    DEPENDS ${installer_dir}/stashwell.exe ${installer_dir}/qrv.exe ${STASHWELL_MANUAL_PDF}
        ${readme} ${nsi}
    COMMENT "Making the installer Stashwell-${PROJECT_VERSION}-setup.exe"
    VERBATIM)
add_custom_target(installer DEPENDS ${setup})
