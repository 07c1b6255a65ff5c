"""Takes the events of a burst with one of Python's libraries for COM. usage: takeBurst.py pywin32|comtypes"""

import sys
import time

EVENTS = 200
TIME_LIMIT = 40  # seconds
seen = []


def with_pywin32():
    import pythoncom
    import win32com.client
    import win32con
    import win32event

    class Events:
        def OncustomEvent(self, text):
            seen.append(text)

    def handle_messages():
        win32event.MsgWaitForMultipleObjectsEx([], 1000, win32event.QS_ALLINPUT, win32con.MWMO_INPUTAVAILABLE)
        pythoncom.PumpWaitingMessages()

    control = win32com.client.Dispatch("KESTAserver.JavaManager.1")
    events = win32com.client.WithEvents(control, Events)
    take(control, handle_messages)
    events.close()


def with_comtypes():
    import comtypes.client

    class Events:
        def customEvent(self, text):
            seen.append(text)

    comtypes.client.gen_dir = None  # in memory
    library = comtypes.client.GetModule(("{6A3D9F02-E815-4C7B-8D24-5B1F0E93C7A6}", 1, 0))
    control = comtypes.client.CreateObject(library.JavaManager, interface=library.IJavaManager)
    connection = comtypes.client.GetEvents(control, Events(), interface=library._IJavaManagerEvents)
    take(control, lambda: comtypes.client.PumpEvents(0.05))
    del connection


def take(control, handle_messages):
    control.pushWindowHandle(0)
    assert control.callMethod("echo", "there") == "there"
    control.callMethod("burst", f"{EVENTS // 4};4")
    limit = time.monotonic() + TIME_LIMIT
    while len(seen) < EVENTS and time.monotonic() < limit:
        handle_messages()
    assert set(seen) == {f"burst 1.{thread}.{number}" for thread in range(1, 5) for number in range(1, EVENTS // 4 + 1)}, seen
    print(f"{len(seen)} of {EVENTS} events")


{"pywin32": with_pywin32, "comtypes": with_comtypes}[sys.argv[1]]()
