# The Windows zip, included from the top-level CMakeLists.txt in the Windows build:
#
#   cpack -G ZIP --config build-windows/CPackConfig.cmake    # stashwell-<version>-win64.zip
#
# It holds, in a folder of its own name, stashwell.exe, qrv.exe, "QRV Manual.pdf" and
# README-Windows.txt. The Windows build prints no manual (no Qt): STASHWELL_MANUAL_PDF names the
# one a Linux build printed (target manual; scripts/build-windows.sh finds or prints it). The
# zip comes with cli, the level that makes both programs.

if(NOT (TARGET stashwell AND TARGET qrv))
    message(STATUS "No Windows zip at STASHWELL_WINDOWS_UPTO=${STASHWELL_WINDOWS_UPTO}: "
        "it holds stashwell.exe and qrv.exe, made from cli up")
    return()
endif()
set(STASHWELL_MANUAL_PDF "" CACHE FILEPATH
    "QRV Manual.pdf as a Linux build printed it (target manual), for the Windows zip")
if(NOT EXISTS "${STASHWELL_MANUAL_PDF}")
    message(STATUS "No Windows zip: STASHWELL_MANUAL_PDF names no printed manual")
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
