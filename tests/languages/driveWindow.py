"""Uses the tkinter sample as a user would, and says what was seen. usage: driveWindow.py SAMPLES"""

import sys
import time
import tkinter

import win32api
import win32con
import win32event
import win32gui
import win32process

sys.path.insert(0, sys.argv[1])

import window as sample

TIME_LIMIT = 40  # seconds
EVENTS = 200
TEXT = "ü\\u0041 \0 日本 \U0001f600"


class Recorder(sample.Window):
    def __init__(self, root):
        self.seen = []
        super().__init__(root)

    def show(self, kind, content):
        self.seen.append((kind, content))
        super().show(kind, content)

    def wait(self, what, condition):
        limit = time.monotonic() + TIME_LIMIT
        while not condition():
            if time.monotonic() > limit:
                sys.exit(f"{what}: not within {TIME_LIMIT} seconds. Seen: {self.seen[-5:]}")
            self.root.update()
            time.sleep(0.005)
        print(what, flush=True)

    def fills_the_pane(self):
        inside = win32gui.GetClientRect(self.frame)[2:]
        return inside == (self.pane.winfo_width(), self.pane.winfo_height())


root = tkinter.Tk()
window = Recorder(root)
window.wait("ready", lambda: window.frame and any(kind == "ready" for kind, _ in window.seen))
pane = window.pane.winfo_id()
window.wait("inside", lambda: win32gui.GetParent(window.frame) == pane)
window.wait("of the server", lambda: win32process.GetWindowThreadProcessId(window.frame)[1] == window.control.server)
window.wait("sized", window.fills_the_pane)
style = win32gui.GetWindowLong(window.frame, win32con.GWL_STYLE)
extended = win32gui.GetWindowLong(window.frame, win32con.GWL_EXSTYLE)
kept = style & (win32con.WS_POPUP | win32con.WS_CAPTION | win32con.WS_THICKFRAME)
if kept or not style & win32con.WS_CHILD or not extended & win32con.WS_EX_NOPARENTNOTIFY:
    sys.exit(f"the frame has the styles {style:x} and {extended:x}")
print("with a child's styles")

# Another program's window with the frame's name.
decoy = win32gui.CreateWindow("STATIC", f"kesta_frame_{window.control.server}", 0, 0, 0, 0, 0, 0, 0, 0, None)
try:
    sys.exit(f"taken for the frame: {sample.frame_of(window.control.server)}, {decoy}")
except LookupError:
    print("no stranger")
win32gui.DestroyWindow(decoy)

root.geometry("700x520")
window.wait("sized anew", lambda: window.pane.winfo_width() == 700 and window.fills_the_pane())

window.control.call("setProperty", "text", TEXT)
window.control.call("getProperty", "text")
window.wait("text there and back", lambda: window.seen[-2:] == [("answer", TEXT), ("answer", TEXT)])

window.control.call("setProperty", "rows", "Tromsø;2.5|東京;14")
for _ in range(EVENTS):
    window.control.call("callMethod", "sum", "")
window.wait(f"{EVENTS} events", lambda: window.seen.count(("event", "sum;16.5")) == EVENTS)

window.control.call("callMethod", "nonsense", "")
window.wait("failure with its text", lambda: window.seen[-1][0] == "failed" and 'no method "nonsense"' in window.seen[-1][1])

server = win32api.OpenProcess(win32con.SYNCHRONIZE, False, window.control.server)
window.close()
if win32event.WaitForSingleObject(server, TIME_LIMIT * 1000) != win32event.WAIT_OBJECT_0:
    sys.exit("the server has not ended")
print("released")
