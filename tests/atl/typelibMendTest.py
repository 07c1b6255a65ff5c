#!/usr/bin/env python3
"""The tool that mends the type library: changes the two known places and nothing else, and refuses everything else.

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


def changed(data, offset, value):
    return data[:offset] + bytes([value]) + data[offset + 1 :]


class MendTest(unittest.TestCase):
    def refusal(self, data, libid=LIBID):
        with self.assertRaises(tool.Refused) as caught:
            tool.mend(data, libid)
        return str(caught.exception)

    def setUp(self):
        self.imports, _ = tool.segment(BROKEN, tool.SEGMENT_IMPORTS)
        self.guids, _ = tool.segment(BROKEN, tool.SEGMENT_GUIDS)

    def test_the_library_in_use_is_the_mended_one(self):
        self.assertEqual(MENDED, tool.mend(BROKEN, tool.library_guid(IDL)))

    def test_only_the_two_places_change(self):
        self.assertEqual(len(BROKEN), len(MENDED))
        places = [i for i in range(len(BROKEN)) if BROKEN[i] != MENDED[i]]
        second = self.imports + 12 + 8
        self.assertEqual([self.guids + 15, *range(second, second + 4)], sorted(places))
        self.assertEqual(LIBID, MENDED[self.guids :][:16])
        self.assertEqual(b"\xff\xff\xff\xff", BROKEN[second:][:4])
        self.assertEqual(MENDED[self.imports + 8 :][:4], MENDED[second:][:4])

    def test_the_librarys_guid_comes_from_the_source(self):
        self.assertEqual(LIBID, tool.library_guid(IDL))
        with self.assertRaises(tool.Refused):
            tool.library_guid("[uuid(6A3D9F02-E815-4C7B-8D24-5B1F0E93C7A6)] coclass X {}")

    def test_refuses_what_is_whole_already(self):
        self.assertEqual("the second import names a GUID: there is nothing to mend", self.refusal(MENDED))

    def test_refuses_other_files(self):
        self.assertEqual("not a type library in MSFT format", self.refusal(b"MZ" + BROKEN[2:]))
        self.assertEqual("not a type library in MSFT format", self.refusal(b""))
        self.assertEqual("segment 1 does not lie in the file", self.refusal(BROKEN[: self.imports + 10]))
        self.assertEqual("the file ends too early", self.refusal(BROKEN[:20]))

    def test_refuses_other_faults(self):
        self.assertEqual("first import has the flags 0x3010001", self.refusal(changed(BROKEN, self.imports, 1)))
        self.assertEqual("second import has the flags 0x3010002", self.refusal(changed(BROKEN, self.imports + 12, 2)))
        self.assertEqual("the two imports come from different libraries", self.refusal(changed(BROKEN, self.imports + 16, 4)))
        self.assertEqual("the first import names no GUID of the file", self.refusal(changed(BROKEN, self.imports + 11, 0x7F)))
        idispatch = struct.unpack_from("<i", BROKEN, self.imports + 8)[0]
        self.assertEqual("the first import is not IDispatch", self.refusal(changed(BROKEN, self.guids + idispatch, 0x30)))
        broken_guid = "the library's GUID is not broken in the way that is known"
        self.assertEqual(broken_guid, self.refusal(changed(BROKEN, self.guids + 15, 0x0E)))
        self.assertEqual(broken_guid, self.refusal(changed(BROKEN, self.guids, 0)))
        self.assertEqual(broken_guid, self.refusal(BROKEN, bytes(16)))
        type_count = struct.unpack_from("<i", BROKEN, tool.HEADER_TYPE_COUNT)[0]
        entry = tool.HEADER_SIZE + 4 * type_count + tool.SEGMENT_SIZE * tool.SEGMENT_IMPORTS
        self.assertEqual("12 bytes of imports instead of two imports", self.refusal(changed(BROKEN, entry + 4, 12)))


unittest.main(argv=sys.argv[:1])
