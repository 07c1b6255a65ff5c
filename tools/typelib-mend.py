#!/usr/bin/env python3
"""Repairs what widl gets wrong when a library has a dispinterface before a dual interface.

usage: typelib-mend.py SOURCE.idl WIDL.tlb MENDED.tlb

Both interfaces import IDispatch. For the second import widl adds the GUID to its table again, finds that it is there already
("duplicate uuid") and uses the error value -1 as its offset. So the second import names no GUID, and the reference that belongs
to the GUID's entry is written one byte before the first GUID: over the last byte of the library's own GUID. Without that import
nothing can be marshalled with the library (0x80040155).

This corrects both places, and refuses a file that does not have exactly these two faults.
"""

import re
import struct
import sys
import uuid

MAGIC = b"MSFT\x02\x00\x01\x00"
HEADER_TYPE_COUNT = 0x20
HEADER_VARFLAGS = 0x14
HEADER_GUID_OFFSET = 0x08
HEADER_SIZE = 0x54
VARFLAG_HELP_FILE = 0x100
SEGMENT_SIZE = 16
SEGMENT_IMPORTS = 1
SEGMENT_GUIDS = 5
IMPORT_SIZE = 12
GUID_ENTRY_SIZE = 24
IMPORTED_INTERFACE_BY_GUID = 0x03010000
IDISPATCH = uuid.UUID("00020400-0000-0000-c000-000000000046").bytes_le


class Refused(Exception):
    pass


def expect(condition, what):
    if not condition:
        raise Refused(what)


def word(data, offset):
    expect(offset + 4 <= len(data), "the file ends too early")
    return struct.unpack_from("<i", data, offset)[0]


def segment(data, index):
    types = word(data, HEADER_TYPE_COUNT)
    extra = 4 if word(data, HEADER_VARFLAGS) & VARFLAG_HELP_FILE else 0
    entry = HEADER_SIZE + extra + 4 * types + SEGMENT_SIZE * index
    offset, length = word(data, entry), word(data, entry + 4)
    expect(offset > 0 and offset + length <= len(data), f"segment {index} does not lie in the file")
    return offset, length


def library_guid(idl):
    uuids = re.findall(r"uuid\(([0-9A-Fa-f-]{36})\)(?=[^{}]*\blibrary\b)", idl)
    expect(len(uuids) == 1, f"the source has {len(uuids)} libraries instead of one")
    return uuid.UUID(uuids[0]).bytes_le


def mend(data, libid):
    expect(data[: len(MAGIC)] == MAGIC, "not a type library in MSFT format")
    imports, imports_length = segment(data, SEGMENT_IMPORTS)
    guids, guids_length = segment(data, SEGMENT_GUIDS)
    expect(imports_length == 2 * IMPORT_SIZE, f"{imports_length} bytes of imports instead of two imports")
    first = struct.unpack_from("<Iii", data, imports)
    second = struct.unpack_from("<Iii", data, imports + IMPORT_SIZE)
    expect(first[0] == IMPORTED_INTERFACE_BY_GUID, f"first import has the flags {first[0]:#x}")
    expect(second[0] == IMPORTED_INTERFACE_BY_GUID | 1, f"second import has the flags {second[0]:#x}")
    expect(first[1] == second[1], "the two imports come from different libraries")
    expect(second[2] == -1, "the second import names a GUID: there is nothing to mend")
    idispatch = first[2]
    expect(0 <= idispatch <= guids_length - GUID_ENTRY_SIZE, "the first import names no GUID of the file")
    expect(data[guids + idispatch :][:16] == IDISPATCH, "the first import is not IDispatch")

    own = guids + word(data, HEADER_GUID_OFFSET)
    reference = IMPORT_SIZE | 1  # what refers to the second import
    expect(data[own:][:16] == libid[:15] + bytes([reference]), "the library's GUID is not broken in the way that is known")

    mended = bytearray(data)
    struct.pack_into("<i", mended, imports + IMPORT_SIZE + 8, idispatch)
    mended[own + 15] = libid[15]
    return bytes(mended)


def main(arguments):
    if len(arguments) != 3:
        sys.exit(__doc__)
    source, broken, target = arguments
    with open(source, encoding="ascii") as file:
        idl = file.read()
    with open(broken, "rb") as file:
        data = file.read()
    try:
        result = mend(data, library_guid(idl))
    except Refused as reason:
        sys.exit(f"typelib-mend: {broken}: {reason}")
    with open(target, "wb") as file:
        file.write(result)


if __name__ == "__main__":
    main(sys.argv[1:])
