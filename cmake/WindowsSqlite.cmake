# SQLite in the Windows build: Debian has no mingw SQLite, so the build compiles the
# amalgamation that scripts/fetch-sqlite.sh makes from Debian's own sqlite3 source (the SQLite
# of the Linux build) into a static C library, stashwell_sqlite3. The catalogue links it
# PRIVATE, so sqlite3.h is on no other layer's include path (except for the files that
# tests/layers/pending-sqlite.txt still lists). C is enabled for this library only.

set(STASHWELL_SQLITE_DIR ${CMAKE_BINARY_DIR}/sqlite CACHE PATH
    "The folder holding sqlite3.c and sqlite3.h (scripts/fetch-sqlite.sh DIR)")

# The files must be the checked ones, also when the folder was filled by hand.
set(stashwell_sqlite_sums ${PROJECT_SOURCE_DIR}/third_party/sqlite3.c.sha256)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${stashwell_sqlite_sums})
foreach(name sqlite3.c sqlite3.h)
    set(file ${STASHWELL_SQLITE_DIR}/${name})
    if(NOT EXISTS ${file})
        message(FATAL_ERROR "${file} is missing: run scripts/fetch-sqlite.sh ${STASHWELL_SQLITE_DIR}")
    endif()
    file(STRINGS ${stashwell_sqlite_sums} line REGEX "^[0-9a-f]+  ${name}$")
    string(REGEX REPLACE " .*" "" want "${line}")
    file(SHA256 ${file} have)
    if(NOT have STREQUAL want)
        message(FATAL_ERROR "${file} is not the checked ${name} (SHA-256 ${have}, "
            "third_party/sqlite3.c.sha256 says ${want}): run scripts/fetch-sqlite.sh again")
    endif()
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
endforeach()

enable_language(C)
add_library(stashwell_sqlite3 STATIC ${STASHWELL_SQLITE_DIR}/sqlite3.c)
# SQLite's own code is not held to the project's warnings, and is optimised as Debian builds it
# (-O2, which also compiles the 8 MB file faster than the build type's -O3).
target_compile_options(stashwell_sqlite3 PRIVATE -w -O2)
# Serialized mode, as Debian's library: any connection from any thread.
target_compile_definitions(stashwell_sqlite3 PRIVATE SQLITE_THREADSAFE=1)
target_include_directories(stashwell_sqlite3 INTERFACE ${STASHWELL_SQLITE_DIR})
