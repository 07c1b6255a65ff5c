"""A long log, made of what a real server has written.

A server that logs everything is driven by a script: calls, calls that fail, slow calls, and events that four threads of the
control raise at once. Its log is cut wherever no function of a call or an event is running, and pieces chosen by a seeded
generator, with their times moved on, follow one another until the log is long enough. Start and end are the real ones, and a few
damaged lines lie in between.
"""

import datetime
import os
import random
import re
import subprocess
from collections import defaultdict

TIME_LIMIT = 300  # seconds, for the script
DAMAGED = (b"2026-11-22 14:\r\n", b"2026-11-22 14:05:06.789 ##### FINE   BeanFrame            044 x\r\n")
ONE_DAMAGED_IN = 500  # pieces
LONGEST_PAUSE = 5  # ms between two pieces
SECOND = 1000

HEADER = re.compile(rb"(.{23}) (\d+) .{6} .{20} \d+ ( *)(-> |<- )?")
BACKTRACE_BEGIN = b"/****"
BACKTRACE_END = b"\\****"

SCRIPT = """Option Explicit
Dim control, number
Set control = CreateObject("KESTAserver.JavaManager.1")
control.setUsedControl "TestControl", ""
On Error Resume Next
For number = 1 To 150
    control.setProperty "text", "a text of the usual length " & number
    control.getProperty "text"
    control.callMethod "echo", "a text of the usual length " & number
    control.callMethodCompressed "echo", 1, "x"
    control.testBridge "abc", 2, number Mod 20
    If number Mod 10 = 0 Then control.callMethod "throw", "planted " & number Mod 30
    If number Mod 15 = 0 Then control.callMethod "sleep", number
    If number Mod 25 = 0 Then control.callMethod "burst", "40;4"
Next
WScript.Sleep 2000
control.callMethod "echo", "the last call"
Set control = Nothing
"""


def windows_path(path):
    return "Z:" + str(path).replace("/", "\\")


def record(programs, folder):
    """The log of a server of these programs, in a new folder. The start of the tool environment has a registry of its own."""

    def quoted(path):
        return windows_path(path).replace("\\", "\\\\")

    def wine(*command, limit=60):
        with open(folder / "wine.txt", "ab") as output:
            subprocess.run(["wine", *command], cwd=folder, check=True, stdin=subprocess.DEVNULL, stdout=output, timeout=limit)

    folder.mkdir()
    prefs = "HKEY_LOCAL_MACHINE\\SOFTWARE\\WOW6432Node\\JavaSoft\\Prefs\\com\\orvane\\qmrt"
    runtimes = "HKEY_LOCAL_MACHINE\\SOFTWARE\\JavaSoft\\JRE"
    (folder / "settings.reg").write_text(
        f"""REGEDIT4

[{runtimes}]
"CurrentVersion"="21"

[{runtimes}\\21]
"RuntimeLib"="{quoted(os.environ["KESTA_JAVA_21"])}\\\\bin\\\\server\\\\jvm.dll"

[{prefs}]
"loglevel"=dword:5
"splitlogfilesize"=dword:0
"logpath"="{quoted(folder)}"

[{prefs}\\TestControl]
"installpath"="{quoted(programs)}"
"""
    )
    (folder / "calls.vbs").write_text(SCRIPT)
    wine("regedit", "/S", "settings.reg")
    wine(str(programs / "KESTAx64.exe"), "/RegServer")
    before = set(folder.glob("KESTA-KESTAx64.exe-*.log"))
    wine("cscript.exe", "//nologo", "calls.vbs", limit=TIME_LIMIT)
    (log,) = set(folder.glob("KESTA-KESTAx64.exe-*.log")) - before
    return log


class Lines:
    """The lines of a log with their times in ms, and the places where it may be cut."""

    def __init__(self, text):
        self.times = []  # None without header
        self.rests = []  # what follows the time; without header the whole line
        self.repeated = {}  # whole lines of backtraces, by number: they repeat when a function began
        self.cuts = []
        self.days = {}
        running = defaultdict(int)  # functions, by thread
        traced = None  # the thread whose backtrace is being written; "" before its first line
        first = base = last = None
        for number, line in enumerate(text.splitlines(keepends=True)):
            found = HEADER.match(line)
            if found is None:
                traced = "" if line.startswith(BACKTRACE_BEGIN) else None if line.startswith(BACKTRACE_END) else traced
                self.times.append(None)
                self.rests.append(line)
                continue
            self.times.append(self.milliseconds(found[1]))
            self.rests.append(line[23:])
            thread, depth, marker = found[2], len(found[3]), found[4]
            first = first or thread
            is_quiet = base is not None and all(running[other] == (base if other == first else 0) for other in running)
            if marker == b"-> " and traced is None and is_quiet:
                self.cuts.append(number)
            traced = thread if traced == "" else traced
            if thread == traced and marker == b"-> ":
                self.repeated[number] = line
            if marker == b"<- ":
                running[thread] = depth
                if b"CJavaManagerATLObject  setUsedControl " in line:
                    base = depth
                if b"CJavaManagerATLObject  callMethod echo, the last call" in line:
                    last = number
            elif marker == b"-> " and thread != traced:
                running[thread] = depth + 1
        self.cuts = [cut for cut in self.cuts if cut <= last]

    def milliseconds(self, stamp):
        day = self.days.get(stamp[:10])
        if day is None:
            day = self.days[stamp[:10]] = datetime.date.fromisoformat(stamp[:10].decode()).toordinal() * 86400
        return (day + int(stamp[11:13]) * 3600 + int(stamp[14:16]) * 60 + int(stamp[17:19])) * SECOND + int(stamp[20:23])

    def pieces(self):
        """Start, what may be repeated, end; each a list of (ms since the piece began or None, rest of the line)."""
        ends = [*self.cuts, len(self.times)]
        pieces = []
        for begin, end in zip([0, *self.cuts], ends, strict=True):
            start = next(time for time in self.times[begin:] if time is not None)
            pieces.append([self.moved(number, start) for number in range(begin, end)])
        return pieces[0], pieces[1:-1], pieces[-1]

    def moved(self, number, start):
        time = self.times[number]
        # A function that runs all the time began with the log.
        if number in self.repeated and time < start:
            return None, self.repeated[number]
        return (None if time is None else time - start), self.rests[number]


class Writer:
    def __init__(self, file, begin):
        self.file = file
        self.now = begin
        self.size = 0
        self.second = None
        self.stamp = b""

    def line(self, line):
        self.file.write(line)
        self.size += len(line)

    def piece(self, piece):
        last = 0
        for offset, rest in piece:
            if offset is None:
                self.line(rest)
                continue
            last = max(last, offset)
            second, part = divmod(self.now + offset, SECOND)
            if second != self.second:
                day, inside = divmod(second, 86400)
                hours, minutes = divmod(inside // 60, 60)
                self.second = second
                self.stamp = f"{datetime.date.fromordinal(day)} {hours:02}:{minutes:02}:{inside % 60:02}.".encode()
            self.line(b"%s%03d%s" % (self.stamp, part, rest))
        self.now += last


def write(log, target, size, seed):
    """A log of this size in bytes at least. How many lines of it are damaged."""
    lines = Lines(log.read_bytes())
    start, middle, end = lines.pieces()
    chance = random.Random(seed)
    damaged = 0
    with open(target, "wb", buffering=1 << 20) as file:
        writer = Writer(file, lines.times[0])
        writer.piece(start)
        while writer.size < size:
            writer.now += chance.randint(0, LONGEST_PAUSE)
            writer.piece(chance.choice(middle))
            if chance.randrange(ONE_DAMAGED_IN) == 0:
                writer.line(chance.choice(DAMAGED))
                damaged += 1
        writer.piece(end)
    return damaged
