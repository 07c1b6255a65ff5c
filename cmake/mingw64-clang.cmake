# The same target with Clang, which takes headers and libraries from GCC's.
include(${CMAKE_CURRENT_LIST_DIR}/mingw64.cmake)
set(CMAKE_C_COMPILER clang-19)
set(CMAKE_CXX_COMPILER clang++-19)
set(CMAKE_C_COMPILER_TARGET x86_64-w64-mingw32)
set(CMAKE_CXX_COMPILER_TARGET x86_64-w64-mingw32)
# GCC's libraries, linked statically, need its threads, which only GCC adds by itself.
foreach(kind EXE SHARED MODULE)
    set(CMAKE_${kind}_LINKER_FLAGS_INIT -pthread)
endforeach()
