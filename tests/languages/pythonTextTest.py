"""The shared vectors, and random texts. usage: pythonTextTest.py PROJECT"""

import random
import sys
import unittest
from pathlib import Path

PROJECT = Path(sys.argv.pop(1))
sys.path.insert(0, str(PROJECT / "samples" / "python"))
sys.dont_write_bytecode = True

import kesta_text  # noqa: E402

RANDOM_TEXTS = 20000


def text_of(units):
    """The text of code units in hexadecimal digits."""
    return bytes.fromhex(units).decode("utf-16-be", "surrogatepass")


class PythonTextTest(unittest.TestCase):
    def test_every_vector_holds(self):
        held = 0
        for line in (PROJECT / "tests" / "texts" / "encoding.txt").read_text("ascii").split("\n"):
            kind, _, rest = line.partition("\t")
            plain, _, encoded = rest.partition("\t")
            if kind == "both":
                self.assertEqual(kesta_text.encode(text_of(plain)), encoded)
            if kind in ("both", "decode"):
                self.assertEqual(kesta_text.decode(encoded), text_of(plain))
                held += 1
        self.assertGreater(held, 40)

    def test_every_text_comes_back(self):
        random.seed(1)
        for _ in range(RANDOM_TEXTS):
            text = "".join(random.choices("\\\\\\uuu0041AFx\xe9\ud83d\U0001f600\0~\x7f\n", k=random.randrange(12)))
            encoded = kesta_text.encode(text)
            self.assertRegex(encoded, r"\A[ -~]*\Z")
            # As UTF-16, where a high surrogate before a low one is one character.
            self.assertEqual(kesta_text.decode(encoded).encode("utf-16", "surrogatepass"), text.encode("utf-16", "surrogatepass"))


if __name__ == "__main__":
    unittest.main()
