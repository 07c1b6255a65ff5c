# kesta_contract: the COM contract, for the server and its clients. "KESTAserver_h.h" declares the interfaces, the library
# contains their identifiers (IIDs, CLSID, LIBID), and KESTAserver.tlb in KESTA_CONTRACT_DIR is the type library.
#
# Include this file in every folder that compiles KESTAserver.rc. The resources are then compiled again when the version, the type
# library, a registration script or the manifest has changed.
set(KESTA_CONTRACT_DIR ${CMAKE_BINARY_DIR}/contract)
set_source_files_properties(${CMAKE_SOURCE_DIR}/server/KESTAserver.rc PROPERTIES
    INCLUDE_DIRECTORIES "${CMAKE_SOURCE_DIR};${CMAKE_SOURCE_DIR}/server;${KESTA_CONTRACT_DIR}"
    OBJECT_DEPENDS "${CMAKE_SOURCE_DIR}/package/version.rc;${CMAKE_SOURCE_DIR}/package/product.h;${KESTA_CONTRACT_DIR}/KESTAserver.tlb;${CMAKE_SOURCE_DIR}/server/KESTAserver.rgs;${CMAKE_SOURCE_DIR}/server/JavaManagerATLObject.rgs;${CMAKE_SOURCE_DIR}/server/KESTAserver.manifest")

include_guard(GLOBAL)

find_program(KESTA_WIDL widl REQUIRED)
find_program(KESTA_PYTHON python3 REQUIRED)
file(MAKE_DIRECTORY ${KESTA_CONTRACT_DIR})

add_custom_command(
    OUTPUT
        ${KESTA_CONTRACT_DIR}/KESTAserver_h.h
        ${KESTA_CONTRACT_DIR}/KESTAserver_i.c
        ${KESTA_CONTRACT_DIR}/KESTAserver.tlb
    COMMAND ${KESTA_WIDL} --win64 -h -o KESTAserver_h.h ${CMAKE_SOURCE_DIR}/server/KESTAserver.idl
    COMMAND ${KESTA_WIDL} --win64 -u -o KESTAserver_i.c ${CMAKE_SOURCE_DIR}/server/KESTAserver.idl
    # widl prints "duplicate uuid" here because of a fault of its own, which the next command repairs.
    COMMAND ${KESTA_WIDL} --win64 -t -o KESTAserver-widl.tlb ${CMAKE_SOURCE_DIR}/server/KESTAserver.idl
    COMMAND ${KESTA_PYTHON} ${CMAKE_SOURCE_DIR}/tools/typelib-mend.py
        ${CMAKE_SOURCE_DIR}/server/KESTAserver.idl KESTAserver-widl.tlb KESTAserver.tlb
    WORKING_DIRECTORY ${KESTA_CONTRACT_DIR}
    DEPENDS ${CMAKE_SOURCE_DIR}/server/KESTAserver.idl ${CMAKE_SOURCE_DIR}/tools/typelib-mend.py
    COMMENT "Generating the COM contract"
    VERBATIM)

add_library(kesta_contract STATIC ${KESTA_CONTRACT_DIR}/KESTAserver_i.c ${KESTA_CONTRACT_DIR}/KESTAserver_h.h
    ${KESTA_CONTRACT_DIR}/KESTAserver.tlb)
target_include_directories(kesta_contract SYSTEM PUBLIC ${KESTA_CONTRACT_DIR})
