// The source that the tests' shared precompiled header is made with (tests/CMakeLists.txt).
