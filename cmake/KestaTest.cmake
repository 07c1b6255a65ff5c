# GoogleTest, cross-compiled from Debian's source package.
set(INSTALL_GTEST OFF)
set(gtest_force_shared_crt ON)
add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
include(GoogleTest)

# kesta_test(NAME n TIER unit|vm|process [ROOM libs...] [TIMEOUT seconds] [FILTER f] SOURCES ... [LINKS ...] [ENVIRONMENT ...])
# A test program. Each of its tests is a CTest test that runs in its own process and has its tier as a label. With a filter these
# are only some of its tests; kesta_discover_tests adds others, with other labels.
function(kesta_test)
    cmake_parse_arguments(T "" "NAME;TIER;TIMEOUT;FILTER" "ROOM;SOURCES;LINKS;ENVIRONMENT" ${ARGN})
    if(NOT T_TIMEOUT)
        set(T_TIMEOUT 120)
    endif()
    add_executable(${T_NAME} ${T_SOURCES})
    # Line numbers only: all else takes a fifth of the time that it takes to compile a test.
    target_compile_options(${T_NAME} PRIVATE -g1)
    target_link_libraries(${T_NAME} PRIVATE ${T_ROOM} ${T_LINKS} kesta_options GTest::gmock_main)
    kesta_discover_tests(${T_NAME} "${T_FILTER}" ${T_TIMEOUT} "${T_ENVIRONMENT}" ${T_TIER})
endfunction()

# The labels follow. The first one begins the tests' names.
function(kesta_discover_tests name filter timeout environment prefix)
    set(labels ${prefix} ${ARGN})
    list(JOIN labels "\\;" labels)
    gtest_discover_tests(${name}
        TEST_PREFIX ${prefix}.
        TEST_FILTER "${filter}"
        DISCOVERY_TIMEOUT 120
        DISCOVERY_MODE PRE_TEST
        PROPERTIES LABELS "${labels}" TIMEOUT ${timeout} ENVIRONMENT "${environment}")
endfunction()

# Writes the first block of the language that a page prints under the heading, unchanged, into a file of the build folder.
function(kesta_page_block file page language heading)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${page})
    file(READ ${CMAKE_SOURCE_DIR}/${page} section)
    string(FIND "${section}" "\n## ${heading}\n" begin)
    if(NOT begin EQUAL -1)
        math(EXPR begin "${begin} + 3")
        string(SUBSTRING "${section}" ${begin} -1 section)
        string(FIND "${section}" "\n## " end)
        string(SUBSTRING "${section}" 0 ${end} section)
    endif()
    if(begin EQUAL -1 OR NOT section MATCHES "\n```${language}\n([^`]+)```\n")
        message(FATAL_ERROR "${page} has no ${language} block under \"${heading}\" any more: ${CMAKE_CURRENT_SOURCE_DIR} needs it")
    endif()
    file(CONFIGURE OUTPUT ${file} CONTENT "${CMAKE_MATCH_1}" @ONLY)
endfunction()
