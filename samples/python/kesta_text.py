"""Texts on their way to a control and back.

Only printable ASCII passes the server as it was sent. So client and control write every other UTF-16 code unit as a backslash,
"u" and four upper-case hexadecimal digits, and also a backslash with a "u" behind it; nothing else is changed.

Copy this file into your program.
"""

import re

_NOT_PLAIN = re.compile(r"[^ -~]|\\(?=u)")
_ESCAPE = re.compile(r"\\u([0-9A-F]{4})")


def encode(text: str) -> str:
    """The text as the server gets it."""
    return _NOT_PLAIN.sub(_escape, text)


def decode(text: str) -> str:
    """The text of an answer or an event."""
    units = _ESCAPE.sub(lambda escape: chr(int(escape[1], 16)), text)
    # Python's characters are code points: two surrogates that belong together become one of them.
    return units.encode("utf-16-le", "surrogatepass").decode("utf-16-le", "surrogatepass")


def _escape(character: re.Match[str]) -> str:
    units = character[0].encode("utf-16-be", "surrogatepass").hex().upper()
    return "".join("\\u" + units[place : place + 4] for place in range(0, len(units), 4))
