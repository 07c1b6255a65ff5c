# kesta_options: what every target of the project compiles and links with.
add_library(kesta_options INTERFACE)
target_compile_features(kesta_options INTERFACE cxx_std_20)
target_compile_definitions(kesta_options INTERFACE
    _WIN32_WINNT=0x0A00 WINVER=0x0A00 NTDDI_VERSION=0x0A000000 WIN32_LEAN_AND_MEAN NOMINMAX)
target_compile_options(kesta_options INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-Wall -Wextra -Wpedantic -Wconversion -Werror>)
# Otherwise Windows' STDMETHOD declares a method as one that throws nothing, and its STDMETHODIMP does not repeat that.
target_compile_definitions(kesta_options INTERFACE $<$<COMPILE_LANG_AND_ID:CXX,Clang>:COM_STDMETHOD_CAN_THROW>)
target_include_directories(kesta_options INTERFACE ${CMAKE_SOURCE_DIR})
# -static: the program then needs no DLLs but Windows' own.
target_link_options(kesta_options INTERFACE -static -Wl,--dynamicbase,--high-entropy-va,--nxcompat)
# So that the same sources make the same bytes.
target_link_options(kesta_options INTERFACE $<$<CONFIG:Release>:-Wl,--no-insert-timestamp>)

# Atomic, because several threads count.
option(KESTA_COVERAGE "Programs record in files beside their objects which lines and branches they ran" OFF)
if(KESTA_COVERAGE)
    target_compile_options(kesta_options INTERFACE $<$<COMPILE_LANGUAGE:CXX>:--coverage -fprofile-update=atomic>)
    target_link_options(kesta_options INTERFACE --coverage)
endif()

# The trap needs no runtime library, which this target does not have.
option(KESTA_UBSAN "Undefined behaviour ends the program with an illegal instruction" OFF)
if(KESTA_UBSAN)
    target_compile_options(kesta_options INTERFACE
        $<$<COMPILE_LANGUAGE:CXX>:-fsanitize=undefined -fsanitize-undefined-trap-on-error>)
endif()

# kesta_jni: jni.h and the Windows jni_md.h of the pinned runtime.
add_library(kesta_jni INTERFACE)
if(NOT DEFINED ENV{KESTA_JNI_INCLUDE})
    message(FATAL_ERROR "KESTA_JNI_INCLUDE is not set: configure inside the tool environment (./toolbox cmake --preset debug)")
endif()
set(KESTA_JNI_INCLUDE $ENV{KESTA_JNI_INCLUDE} CACHE PATH "Folder of jni.h for Windows")
target_include_directories(kesta_jni SYSTEM INTERFACE ${KESTA_JNI_INCLUDE})

# kesta_room(NAME SOURCES ... LINKS ...): the static library of one folder of the product.
function(kesta_room name)
    cmake_parse_arguments(ROOM "" "" "SOURCES;LINKS" ${ARGN})
    add_library(${name} STATIC ${ROOM_SOURCES})
    target_link_libraries(${name} PUBLIC ${ROOM_LINKS} kesta_options)
endfunction()
