"""Sends JSON, with the letters as they are and as numbers, to the test control. Prints the code units that it got."""

import json

import win32com.client
from kesta_text import decode, encode

control = win32com.client.Dispatch("KESTAserver.JavaManager.1")
control.pushWindowHandle(0)
for letters_as_numbers in (False, True):
    text = json.dumps({"site": "Tromsø 😀", "path": "C:\\users"}, ensure_ascii=letters_as_numbers, separators=(",", ":"))
    print(control.callMethod("units", encode(text)))
    assert decode(control.callMethod("echo", encode(text))) == text
