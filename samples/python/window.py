"""A window of tkinter with the control inside.

COM has a thread of its own. A control that takes its time then never holds up the window; and tkinter must not be called while it
handles messages itself, which is when COM would bring the events on its thread. So the two threads only pass work to each other.
"""

import queue
import threading
import tkinter
from tkinter import ttk

import pythoncom
import pywintypes
import win32api
import win32com.client
import win32con
import win32event
import win32gui
import win32process
from kesta_text import decode, encode

RELEASE_LIMIT = 5  # seconds
POLL_PERIOD = 20  # ms
SHOW = win32con.SWP_NOZORDER | win32con.SWP_NOACTIVATE | win32con.SWP_FRAMECHANGED | win32con.SWP_SHOWWINDOW


def frame_of(server: int) -> int:
    """The window of the server's frame. Any program can give a window this name, so it has to belong to the server's process."""
    windows = []
    win32gui.EnumWindows(lambda window, _: windows.append(window) or True, None)
    for window in windows:
        if (
            win32gui.GetWindowText(window) == f"kesta_frame_{server}"
            and win32process.GetWindowThreadProcessId(window)[1] == server
        ):
            return window
    raise LookupError(f"there is no kesta_frame_{server}")


def take_in(frame: int, pane: int) -> None:
    """Makes the frame a child of the pane. Its first size differs from every later one: a change makes Java paint all of it."""
    style = win32gui.GetWindowLong(frame, win32con.GWL_STYLE)
    style &= ~(win32con.WS_POPUP | win32con.WS_CAPTION | win32con.WS_THICKFRAME)
    style |= win32con.WS_CHILD | win32con.WS_CLIPSIBLINGS | win32con.WS_CLIPCHILDREN
    win32gui.SetWindowLong(frame, win32con.GWL_STYLE, style)
    # Or each click in the control would wait until this program has handled a message about it.
    extended = win32gui.GetWindowLong(frame, win32con.GWL_EXSTYLE)
    win32gui.SetWindowLong(frame, win32con.GWL_EXSTYLE, extended | win32con.WS_EX_NOPARENTNOTIFY)
    win32gui.SetParent(frame, pane)
    fit(frame, 1, 1)


def fit(frame: int, width: int, height: int) -> None:
    """In the server's own time, so that a busy server does not hold up this window."""
    win32gui.SetWindowPos(frame, 0, 0, 0, width, height, SHOW | win32con.SWP_ASYNCWINDOWPOS)


class Events:
    news: queue.SimpleQueue

    def OncontrolReady(self, text):
        self.news.put(("ready", decode(text)))

    def OncustomEvent(self, text):
        self.news.put(("event", decode(text)))


class Control(threading.Thread):
    """The object: this thread creates it, calls it, takes its events and releases it.

    What happens is put into `news`: ("ready", text), ("event", text), ("answer", text), ("failed", text), and at the end, always,
    ("ended", text). From "ready" on, the control can be seen in its `frame`.
    """

    def __init__(self, name: str, pane: int):
        # If the server hangs, this thread may never come back; it does not keep the program.
        super().__init__(name="control", daemon=True)
        self.news = queue.SimpleQueue()
        self.server = 0
        self.frame = 0
        self._control_name = name
        self._pane = pane
        self._calls = queue.SimpleQueue()
        self._wake = win32event.CreateEvent(None, False, False, None)

    def call(self, method: str, *arguments) -> None:
        """The answer, or the error's text, comes as news."""
        self._calls.put((method, arguments))
        win32event.SetEvent(self._wake)

    def release(self) -> None:
        """Call it before the pane is destroyed. Waits, but not for ever."""
        self._calls.put(None)
        win32event.SetEvent(self._wake)
        self.join(RELEASE_LIMIT)

    def run(self):
        pythoncom.CoInitialize()
        try:
            end = self._live()
        except Exception as error:  # the window shows it, whatever it is
            end = error_text(error)
        pythoncom.CoUninitialize()
        self.news.put(("ended", end))

    def _live(self) -> str:
        control = win32com.client.Dispatch("KESTAserver.JavaManager.1")
        events = win32com.client.WithEvents(control, Events)
        events.news = self.news
        self.server = control.getBeanFrameID()
        control.validate()  # fails when there is no frame, and its error text says why
        process = win32api.OpenProcess(win32con.SYNCHRONIZE, False, self.server)
        self.frame = frame_of(self.server)
        take_in(self.frame, self._pane)
        control.pushWindowHandle(self._pane)
        control.setUsedControl(self._control_name, "")
        while True:
            signalled = win32event.MsgWaitForMultipleObjectsEx(
                [process, self._wake], win32event.INFINITE, win32event.QS_ALLINPUT, win32con.MWMO_INPUTAVAILABLE
            )
            if signalled == win32event.WAIT_OBJECT_0:
                return "the server has ended"
            pythoncom.PumpWaitingMessages()
            while not self._calls.empty():
                call = self._calls.get()
                if call is None:
                    events.close()
                    return "released"
                self._answer(control, *call)

    def _answer(self, control, method: str, arguments) -> None:
        try:
            texts = (encode(argument) if isinstance(argument, str) else argument for argument in arguments)
            self.news.put(("answer", decode(str(getattr(control, method)(*texts)))))
        except pywintypes.com_error as error:
            self.news.put(("failed", error_text(error)))


def error_text(error: Exception) -> str:
    """The server's own text where there is one."""
    details = getattr(error, "excepinfo", None)
    return details[2] if details and details[2] else str(error)


class Window:
    def __init__(self, root: tkinter.Tk):
        self.root = root
        self.frame = 0
        root.title("A control in tkinter")
        root.geometry("640x480")
        self.pane = tkinter.Frame(root, background="white")
        self.text = tkinter.StringVar(value="Tromsø 東京 😀")
        self.log = tkinter.Listbox(root, height=6)
        bar = ttk.Frame(root, padding=6)
        ttk.Entry(bar, textvariable=self.text).pack(side="left", fill="x", expand=True)
        ttk.Button(bar, text="Set title", command=self.set_title).pack(side="left", padx=6)
        ttk.Button(bar, text="Sum", command=self.sum).pack(side="left")
        self.log.pack(side="bottom", fill="x")
        bar.pack(side="bottom", fill="x")
        self.pane.pack(fill="both", expand=True)
        root.update()  # the pane's window has to be there

        self.control = Control("Stations", self.pane.winfo_id())
        self.pane.bind("<Configure>", lambda _: self.fit())
        root.protocol("WM_DELETE_WINDOW", self.close)
        self.control.start()
        self.control.call("setProperty", "rows", "Tromsø;2.5|東京;14|Alta;1")
        self.set_title()
        self.poll()

    def set_title(self) -> None:
        self.control.call("setProperty", "title", self.text.get())

    def sum(self) -> None:
        self.control.call("callMethod", "sum", "")

    def poll(self) -> None:
        while not self.control.news.empty():
            self.show(*self.control.news.get())
        self.root.after(POLL_PERIOD, self.poll)

    def show(self, kind: str, content) -> None:
        if kind == "ready":
            self.frame = self.control.frame
            self.fit()
        elif kind == "ended":
            self.frame = 0
        self.log.insert("end", f"{kind}: {content}")
        self.log.see("end")

    def fit(self) -> None:
        if self.frame and win32gui.IsWindow(self.frame):
            fit(self.frame, self.pane.winfo_width(), self.pane.winfo_height())

    def close(self) -> None:
        self.control.release()
        self.root.destroy()


if __name__ == "__main__":
    Window(tkinter.Tk())
    tkinter.mainloop()
