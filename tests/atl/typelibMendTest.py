#!/usr/bin/env python3
"""tools/typelib-mend.py changes the two known places of the type library and nothing else, and refuses everything else.

usage: typelibMendTest.py PROJECT CONTRACT_FOLDER
"""

import os
import runpy
import struct
import sys
import types
import unittest

project, contract = sys.argv[1:3]
tool = types.SimpleNamespace(**runpy.run_path(os.path.join(project, "tools", "typelib-mend.py")))

with open(os.path.join(project, "server", "KESTAserver.idl"), encoding="ascii") as file:
    IDL = file.read()
with open(os.path.join(contract, "KESTAserver-widl.tlb"), "rb") as file:
    BROKEN = file.read()
with open(os.path.join(contract, "KESTAserver.tlb"), "rb") as file:
    MENDED = file.read()
LIBID = bytes.fromhex("029f3d6a15e87b4c8d245b1f0e93c7a6")
IMPORTS = tool.segment(BROKEN, tool.SEGMENT_IMPORTS)[0]
GUIDS = tool.segment(BROKEN, tool.SEGMENT_GUIDS)[0]
IDISPATCH = struct.unpack_from("<i", BROKEN, IMPORTS + 8)[0]
SEGMENTS = tool.HEADER_SIZE + 4 * struct.unpack_from("<i", BROKEN, tool.HEADER_TYPE_COUNT)[0]


def changed(offset, value):
    return BROKEN[:offset] + bytes([value]) + BROKEN[offset + 1 :]


class MendTest(unittest.TestCase):
    def test_only_the_two_places_change(self):
        self.assertEqual(MENDED, tool.mend(BROKEN, tool.library_guid(IDL)))
        self.assertEqual(len(BROKEN), len(MENDED))
        second = IMPORTS + 12 + 8
        places = [i for i in range(len(BROKEN)) if BROKEN[i] != MENDED[i]]
        self.assertEqual([GUIDS + 15, *range(second, second + 4)], sorted(places))
        self.assertEqual(LIBID, MENDED[GUIDS:][:16])
        self.assertEqual(MENDED[IMPORTS + 8 :][:4], MENDED[second:][:4])

    def test_the_guid_of_the_library_comes_from_the_source(self):
        self.assertEqual(LIBID, tool.library_guid(IDL))
        with self.assertRaises(tool.Refused):
            tool.library_guid("[uuid(6A3D9F02-E815-4C7B-8D24-5B1F0E93C7A6)] coclass X {}")

    def test_everything_else_is_refused(self):
        other_guid = "the library's GUID is not broken in the way that is known"
        for data, reason in (
            (MENDED, "the second import names a GUID: there is nothing to mend"),
            (b"MZ" + BROKEN[2:], "not a type library in MSFT format"),
            (b"", "not a type library in MSFT format"),
            (BROKEN[: IMPORTS + 10], "segment 1 does not lie in the file"),
            (BROKEN[:20], "the file ends too early"),
            (changed(IMPORTS, 1), "first import has the flags 0x3010001"),
            (changed(IMPORTS + 12, 2), "second import has the flags 0x3010002"),
            (changed(IMPORTS + 16, 4), "the two imports come from different libraries"),
            (changed(IMPORTS + 11, 0x7F), "the first import names no GUID of the file"),
            (changed(GUIDS + IDISPATCH, 0x30), "the first import is not IDispatch"),
            (changed(SEGMENTS + tool.SEGMENT_SIZE * tool.SEGMENT_IMPORTS + 4, 12), "12 bytes of imports instead of two imports"),
            (changed(GUIDS + 15, 0x0E), other_guid),
            (changed(GUIDS, 0), other_guid),
        ):
            with self.assertRaises(tool.Refused) as caught:
                tool.mend(data, LIBID)
            self.assertEqual(reason, str(caught.exception))


unittest.main(argv=sys.argv[:1])
