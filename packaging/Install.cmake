# Installation and the Debian package, included from the top-level CMakeLists.txt.
#
#   cmake --install build-release --prefix /usr      # or, for the package:
#   cpack --config build-release/CPackConfig.cmake   # stashwell_<version>_<arch>.deb
#
# The programs and the manual go to lib/stashwell/ together: the Help menu opens
# "QRV Manual.pdf" from the program's own folder, which it finds through /proc/self/exe, so the
# symlinks in bin/ resolve to lib/stashwell/ and the manual is found there.

# The core-only build has no window and no manual: there is nothing to install or package.
if(STASHWELL_CORE_ONLY)
    return()
endif()

set(stashwell_libdir lib/stashwell)
# Folders the install creates are world-readable whatever the umask of whoever builds the
# package; files get their own modes from install() below.
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

install(TARGETS stashwell qrv RUNTIME DESTINATION ${stashwell_libdir})
install(FILES "${CMAKE_BINARY_DIR}/QRV Manual.pdf" DESTINATION ${stashwell_libdir})

# bin/stashwell and bin/qrv: relative symlinks made here, in the build folder, and installed as
# symlinks, so that they point into lib/stashwell/ under any prefix or DESTDIR.
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/packaging/bin)
foreach(program stashwell qrv)
    file(CREATE_LINK ../${stashwell_libdir}/${program}
        ${CMAKE_BINARY_DIR}/packaging/bin/${program} SYMBOLIC)
    install(FILES ${CMAKE_BINARY_DIR}/packaging/bin/${program} DESTINATION bin)
endforeach()

# Man pages, gzipped at build time; -n leaves out the name and time so the .gz is the same at
# every build.
find_program(GZIP_EXECUTABLE gzip REQUIRED)
set(man_pages)
foreach(page stashwell.1 qrv.1)
    set(source ${PROJECT_SOURCE_DIR}/docs/man/${page})
    set(copy ${CMAKE_BINARY_DIR}/man/${page})
    # gzip replaces the copy with copy.gz, so the page in docs/man/ is never touched.
    add_custom_command(OUTPUT ${copy}.gz
        COMMAND ${CMAKE_COMMAND} -E copy ${source} ${copy}
        COMMAND ${GZIP_EXECUTABLE} -9nf ${copy}
        DEPENDS ${source}
        COMMENT "Compressing the man page ${page}"
        VERBATIM)
    list(APPEND man_pages ${copy}.gz)
endforeach()
add_custom_target(man_pages ALL DEPENDS ${man_pages})
install(FILES ${man_pages} DESTINATION share/man/man1)

# The menu entry and its icon, in the hicolor theme that every desktop searches. The PNGs are
# rendered once from the SVG (packaging/icons/render.sh) and kept, so the build needs no
# renderer.
install(FILES ${PROJECT_SOURCE_DIR}/packaging/stashwell.desktop DESTINATION share/applications)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/icons/stashwell.svg
    DESTINATION share/icons/hicolor/scalable/apps)
foreach(size 16 24 32 48 64 128 256)
    install(FILES ${PROJECT_SOURCE_DIR}/packaging/icons/stashwell-${size}.png
        DESTINATION share/icons/hicolor/${size}x${size}/apps RENAME stashwell.png)
endforeach()

# The systemd user units for scheduled backups are examples a user copies into
# ~/.config/systemd/user/, not units the package enables.
install(FILES ${PROJECT_SOURCE_DIR}/packaging/systemd/stashwell-backup.service
    ${PROJECT_SOURCE_DIR}/packaging/systemd/stashwell-backup.timer
    DESTINATION share/doc/stashwell/examples/systemd)

# The Debian package. dpkg-shlibdeps (dpkg-dev) finds the libraries the programs link (Qt,
# SQLite, OpenSSL, the C++ runtime); it cannot see the Qt platform plugins, which Qt loads at
# run time, so qt6-qpa-plugins is named by hand. xdg-open opens the manual from the Help menu.
# Debian's own triggers refresh the icon cache and the menu, so no maintainer scripts are needed.
set(STASHWELL_MAINTAINER "Stashwell maintainers <stashwell@korvex.example>"
    CACHE STRING "The Maintainer line of the Debian package")
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME stashwell)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR Korvex)
set(CPACK_PACKAGE_CONTACT "${STASHWELL_MAINTAINER}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "desktop backup tool with a content-addressed store")
set(CPACK_PACKAGE_DESCRIPTION [=[
Stashwell (short name QRV) backs up a list of source folders into one backup
folder, usually on a second or removable drive. Each run signs every file's
content and copies only content that is not stored yet; a SQLite catalogue
records every run, folder and file, so any run can be browsed and restored.

The package holds the window program, stashwell, which also runs unattended
for scheduled backups (examples of systemd user units are included), and the
command-line companion qrv, which lists, finds, restores and checks backups.]=])
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS qt6-qpa-plugins)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS xdg-utils)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
