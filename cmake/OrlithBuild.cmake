# Compiler settings that every target of ours shares, and the helpers that make targets.

find_program(CCACHE ccache)
if(CCACHE)
    # The base directory lets clones in different folders share what they compiled.
    set(launcher ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${CMAKE_SOURCE_DIR} CCACHE_NOHASHDIR=1
        CCACHE_SLOPPINESS=time_macros ${CCACHE})
    set(CMAKE_C_COMPILER_LAUNCHER ${launcher})
    set(CMAKE_CXX_COMPILER_LAUNCHER ${launcher})
endif()

add_library(orlith_options INTERFACE)
target_include_directories(orlith_options INTERFACE ${CMAKE_SOURCE_DIR} ${CMAKE_BINARY_DIR}/generated)
target_compile_options(orlith_options INTERFACE
    -Wall -Wextra -Wpedantic $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local> -Wnon-virtual-dtor -Woverloaded-virtual -Wimplicit-fallthrough
    -Wcast-qual -Wformat=2 -fno-omit-frame-pointer)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    # GCC 12 reports the unused alternatives of a std::variant, and impossible lengths of a vector,
    # that it has inlined.
    target_compile_options(orlith_options INTERFACE -Wno-maybe-uninitialized -Wno-stringop-overread
        -Wno-stringop-overflow -Wno-array-bounds)
endif()
if(ORLITH_WERROR)
    target_compile_options(orlith_options INTERFACE -Werror)
endif()
if(ORLITH_FUZZ)
    # Everything counts its coverage; the programs of fuzz/ bring the driver.
    set(ORLITH_SANITIZE fuzzer-no-link,address,undefined)
endif()
if(ORLITH_SANITIZE)
    add_compile_options(-fsanitize=${ORLITH_SANITIZE})
    add_link_options(-fsanitize=${ORLITH_SANITIZE})
    if(ORLITH_SANITIZE MATCHES undefined)
        add_compile_options(-fno-sanitize-recover=undefined)
    endif()
else()
    find_program(MOLD mold)
    if(MOLD)
        add_link_options(-fuse-ld=mold)
    endif()
endif()

# orlith_library(name SOURCES ... LINK ...): a static library of ours.
function(orlith_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LINK;PRIVATE_LINK" ${ARGN})
    add_library(${name} STATIC ${ARG_SOURCES})
    target_link_libraries(${name} PUBLIC orlith_options ${ARG_LINK} PRIVATE ${ARG_PRIVATE_LINK})
endfunction()

# orlith_test(name SOURCES ... LINK ...): a GoogleTest program whose cases CTest knows one by one.
function(orlith_test name)
    cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LINK" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE orlith_options ${ARG_LINK} GTest::gmock GTest::gtest_main)
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 120)
    endif()
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT ${ARG_TIMEOUT})
endfunction()
