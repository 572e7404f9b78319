# The tests of the Windows build, included from tests/CMakeLists.txt. They are the test
# programs that tests/windows-tests.txt names, one a line (platform_CFile is
# tests/platform/test_CFile.cpp), a list that grows as more of the core is ported. Each is
# linked with its own folder's layer only, so it builds as soon as that layer does; one whose
# layer is above STASHWELL_WINDOWS_UPTO, or that needs the shared helpers of tests/common (built
# from cli up, as they still call POSIX), is left out at this level and named in
# windows-tests-left-out.txt in the build folder. CTest runs them under Wine (the toolchain's
# emulator), each GoogleTest case as a test of its own, found when CTest starts.

# GoogleTest built from Debian's sources (libgtest-dev) with the cross compiler.
set(STASHWELL_GOOGLETEST_DIR /usr/src/googletest CACHE PATH "GoogleTest's sources (libgtest-dev)")
set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
add_subdirectory(${STASHWELL_GOOGLETEST_DIR} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
include(GoogleTest)

if(STASHWELL_BUILDS_cli)
    file(GLOB TEST_COMMON_SOURCES CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/common/*.cpp)
    # Built only for the listed tests that need it.
    add_library(stashwell_testcommon STATIC EXCLUDE_FROM_ALL ${TEST_COMMON_SOURCES})
    target_compile_options(stashwell_testcommon PRIVATE -O0) # as the test programs, below
    target_include_directories(stashwell_testcommon PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/common)
    # Tests read catalogues with SQLite themselves.
    target_link_libraries(stashwell_testcommon PUBLIC stashwell_core GTest::gtest
        stashwell_sqlite3)
    target_compile_definitions(stashwell_testcommon PRIVATE
        STASHWELL_BIN="$<TARGET_FILE:stashwell>" QRV_BIN="$<TARGET_FILE:qrv>")
    add_dependencies(stashwell_testcommon stashwell qrv)
endif()

# The headers of tests/common, to tell which tests need the shared helpers.
file(GLOB common_headers RELATIVE ${CMAKE_CURRENT_SOURCE_DIR}/common
    ${CMAKE_CURRENT_SOURCE_DIR}/common/*.h)

set(windows_tests_list ${CMAKE_CURRENT_SOURCE_DIR}/windows-tests.txt)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${windows_tests_list})
file(STRINGS ${windows_tests_list} listed)
set(built)
set(left_out)
foreach(line IN LISTS listed)
    string(STRIP "${line}" target)
    if(target STREQUAL "" OR target MATCHES "^#")
        continue()
    endif()
    if(NOT target MATCHES "^([a-z0-9]+)_([A-Za-z0-9_]+)$")
        message(FATAL_ERROR "tests/windows-tests.txt: ${target} is not a test name like platform_CFile")
    endif()
    set(folder ${CMAKE_MATCH_1})
    set(source ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/test_${CMAKE_MATCH_2}.cpp)
    if(NOT EXISTS ${source})
        message(FATAL_ERROR "tests/windows-tests.txt: ${target} has no ${source}")
    endif()
    # The layer the test needs: its folder's, or the programs' for the end-to-end tests.
    if(folder IN_LIST stashwell_core_layers)
        set(layer ${folder})
    elseif(folder STREQUAL "e2e" OR folder STREQUAL "kill")
        set(layer cli)
    elseif(folder STREQUAL "winui")
        # The Win32 window, made with the app layer.
        set(layer winui)
        set(STASHWELL_BUILDS_winui ${STASHWELL_BUILDS_app})
    else()
        message(FATAL_ERROR "tests/windows-tests.txt: ${target} is a Linux test (tests/${folder})")
    endif()
    set(needs_common OFF)
    file(STRINGS ${source} includes REGEX "^[ \t]*#[ \t]*include[ \t]*\"")
    foreach(include IN LISTS includes)
        string(REGEX REPLACE "^[^\"]*\"([^\"]*)\".*" "\\1" header "${include}")
        if(header IN_LIST common_headers)
            set(needs_common ON)
        endif()
    endforeach()
    if(NOT STASHWELL_BUILDS_${layer})
        list(APPEND left_out "${target}: needs the layer ${layer}")
        continue()
    endif()
    if(needs_common AND NOT STASHWELL_BUILDS_cli)
        list(APPEND left_out "${target}: needs tests/common, built from cli up")
        continue()
    endif()

    add_executable(${target} ${source})
    # The code under test is the release build's; the test programs themselves are compiled
    # without optimisation, which takes the cross build of them about half the time.
    target_compile_options(${target} PRIVATE -O0)
    target_link_libraries(${target} PRIVATE GTest::gtest_main stashwell_${layer})
    if(needs_common)
        target_link_libraries(${target} PRIVATE stashwell_testcommon)
    endif()
    target_compile_definitions(${target} PRIVATE STASHWELL_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
    if(TARGET stashwell)
        target_compile_definitions(${target} PRIVATE STASHWELL_BIN="$<TARGET_FILE:stashwell>")
        add_dependencies(${target} stashwell)
    endif()
    if(TARGET qrv)
        add_dependencies(${target} qrv)
    endif()
    if(folder STREQUAL "winui")
        # The window's tests run with the program's manifest, as the program does.
        target_sources(${target} PRIVATE ${CMAKE_BINARY_DIR}/stashwell.rc)
        set(labels window)
    elseif(layer STREQUAL folder)
        set(labels core)
    else()
        set(labels ${folder})
    endif()
    if(folder STREQUAL "winui")
        # A window test program runs all its tests in one process, on the test display
        # (cmake/wine.sh): started once for each test, the window's tests took twice as long.
        add_test(NAME ${target} COMMAND ${target})
        set_tests_properties(${target} PROPERTIES LABELS "${labels}" TIMEOUT 600
            ENVIRONMENT STASHWELL_WINE_DISPLAY=xvfb)
    else()
        # Found when CTest starts, not after each link, so the build itself never needs Wine.
        gtest_discover_tests(${target} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
            PROPERTIES LABELS "${labels}" TIMEOUT 600)
    endif()
    list(APPEND built ${target})
endforeach()

list(LENGTH built built_count)
message(STATUS "Windows tests at STASHWELL_WINDOWS_UPTO=${STASHWELL_WINDOWS_UPTO}: "
    "${built_count} test programs")
set(left_out_text "")
if(left_out)
    string(REPLACE ";" "\n   " shown "${left_out}")
    message(STATUS "Windows tests left out at this level:\n   ${shown}")
    string(REPLACE ";" "\n" left_out_text "${left_out}")
    string(APPEND left_out_text "\n")
endif()
file(WRITE ${CMAKE_BINARY_DIR}/windows-tests-left-out.txt "${left_out_text}")
