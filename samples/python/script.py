"""A script: fills the control's table, lets it add up the values, and takes the events with the sums.

usage: python script.py [ROUNDS]
"""

import sys
import time

import pythoncom
import pywintypes
import win32com.client
import win32con
import win32event
from kesta_text import decode, encode

TIME_LIMIT = 60  # seconds


class Events:
    """Called while this thread handles messages, and while it waits for the answer of a call."""

    def __init__(self):
        self.sums = []

    def OncustomEvent(self, text):
        self.sums.append(decode(text))


def main() -> int:
    rounds = int(sys.argv[1]) if len(sys.argv) > 1 else 3
    control = win32com.client.Dispatch("KESTAserver.JavaManager.1")
    events = win32com.client.WithEvents(control, Events)
    control.pushWindowHandle(0)  # a script has no window to put the control into
    print(control.setUsedControl("Stations", "1.0"))
    for value in range(1, rounds + 1):
        control.setProperty("rows", encode(f"Tromsø;{value}|東京;{value}"))
        control.callMethod("sum", "")  # begun; the sum comes as an event
    print(decode(control.getProperty("rows")))

    limit = time.monotonic() + TIME_LIMIT
    while len(events.sums) < rounds and time.monotonic() < limit:
        win32event.MsgWaitForMultipleObjectsEx([], 1000, win32event.QS_ALLINPUT, win32con.MWMO_INPUTAVAILABLE)
        pythoncom.PumpWaitingMessages()
    print(f"{len(events.sums)} of {rounds} events")

    try:
        control.callMethod("nonsense", "")
    except pywintypes.com_error as error:
        print("a call failed:", error.excepinfo[2])  # what the server logged about the failure
    events.close()
    return 0 if len(events.sums) == rounds else 1


if __name__ == "__main__":
    sys.exit(main())  # the object goes when main returns, and with it the server
