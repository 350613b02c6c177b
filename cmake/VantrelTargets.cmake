# What holds for every target of the project: language level, warnings, hidden symbols, sanitizers.
# Log lines and assertions name sources relative to the repository, on every machine alike, also where ccache hands
# the compiler paths relative to the build folder.
file(RELATIVE_PATH VANTREL_SOURCE_FROM_BUILD ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR})
function(vantrel_defaults target)
    target_compile_features(${target} PUBLIC cxx_std_17)
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wnon-virtual-dtor
        -Woverloaded-virtual -Wcast-align -Wformat=2 -Wnull-dereference
        $<$<BOOL:${VANTREL_WERROR}>:-Werror>
        $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety -Wthread-safety-beta>
        -fdebug-prefix-map=${PROJECT_SOURCE_DIR}/= -fdebug-prefix-map=${VANTREL_SOURCE_FROM_BUILD}=
        -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/= -fmacro-prefix-map=${VANTREL_SOURCE_FROM_BUILD}=)
    set_target_properties(${target} PROPERTIES
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        POSITION_INDEPENDENT_CODE ON)
    if(VANTREL_SANITIZE)
        target_compile_options(${target} PRIVATE -fsanitize=${VANTREL_SANITIZE} -fno-omit-frame-pointer
            -fno-sanitize-recover=all)
        target_link_options(${target} PUBLIC -fsanitize=${VANTREL_SANITIZE})
    endif()
endfunction()

# One layer of the house: a static library of the current folder's sources, which sees its own
# headers and those of the layers in LINKS.
#   vantrel_layer(NAME SOURCES a.cpp b.cpp LINKS other ...)
function(vantrel_layer target)
    cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
    add_library(${target} STATIC ${ARG_SOURCES})
    target_include_directories(${target} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
    target_link_libraries(${target} PUBLIC ${ARG_LINKS} Threads::Threads)
    vantrel_defaults(${target})
endfunction()

# The shared library: the layers of WHOLE, the top one last, of which only what MAP names is exported.
#   vantrel_shared_library(NAME WHOLE layer ... top MAP file)
function(vantrel_shared_library target)
    cmake_parse_arguments(ARG "" "MAP" "WHOLE" ${ARGN})
    list(JOIN ARG_WHOLE "," whole)
    add_library(${target} SHARED ${ARG_MAP})
    list(GET ARG_WHOLE -1 top)
    target_link_libraries(${target} PRIVATE ${top})
    target_include_directories(${target} PUBLIC
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/vantrel/include>
        $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
    target_link_options(${target} PRIVATE -Wl,--version-script=${ARG_MAP} -Wl,--no-undefined)
    set_target_properties(${target} PROPERTIES
        LINKER_LANGUAGE CXX
        LINK_LIBRARY_OVERRIDE "WHOLE_ARCHIVE,${whole}"
        LINK_DEPENDS ${ARG_MAP}
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR})
    vantrel_defaults(${target})
    install(TARGETS ${target} EXPORT vantrelTargets)
endfunction()
