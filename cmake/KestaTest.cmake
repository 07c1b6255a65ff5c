# GoogleTest, cross-compiled from Debian's source package.
set(INSTALL_GTEST OFF)
set(gtest_force_shared_crt ON)
add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
include(GoogleTest)

# kesta_test(NAME n TIER unit|vm|process [ROOM libs...] [TIMEOUT seconds] SOURCES ... [LINKS ...] [ENVIRONMENT ...])
# A test program. Each of its tests is a CTest test that runs in its own process and has its tier as a label.
function(kesta_test)
    cmake_parse_arguments(T "" "NAME;TIER;TIMEOUT" "ROOM;SOURCES;LINKS;ENVIRONMENT" ${ARGN})
    if(NOT T_TIMEOUT)
        set(T_TIMEOUT 120)
    endif()
    add_executable(${T_NAME} ${T_SOURCES})
    target_link_libraries(${T_NAME} PRIVATE ${T_ROOM} ${T_LINKS} kesta_options GTest::gmock_main)
    gtest_discover_tests(${T_NAME}
        TEST_PREFIX ${T_TIER}.
        DISCOVERY_TIMEOUT 120
        DISCOVERY_MODE PRE_TEST
        PROPERTIES LABELS ${T_TIER} TIMEOUT ${T_TIMEOUT} ENVIRONMENT "${T_ENVIRONMENT}")
endfunction()
