# The switches of the build, each with its default. CMakePresets.json combines them.
option(VANTREL_BUILD_TESTS "Build the tests" ON)
option(VANTREL_BUILD_BENCHMARKS "Build the benchmarks" ON)
option(VANTREL_BUILD_EXAMPLES "Build the example programs" ON)
option(VANTREL_BUILD_FUZZERS "Build the fuzz targets with libFuzzer (needs Clang)" OFF)
option(VANTREL_FAST_BUILD "Precompile headers, and compile some sources together" ON)
option(VANTREL_WERROR "Treat warnings as errors" OFF)
set(VANTREL_SANITIZE "" CACHE STRING "Sanitizers for every target, as -fsanitize takes them")

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE RelWithDebInfo)
endif()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
    # One clone finds what another one has compiled.
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${PROJECT_SOURCE_DIR}
        CCACHE_NOHASHDIR=true CCACHE_SLOPPINESS=pch_defines,time_macros ${CCACHE_PROGRAM})
endif()

include(GNUInstallDirs)
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(Boost REQUIRED)
pkg_check_modules(UUID REQUIRED IMPORTED_TARGET uuid)
pkg_check_modules(CAP REQUIRED IMPORTED_TARGET libcap)
