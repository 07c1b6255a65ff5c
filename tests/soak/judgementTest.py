"""usage: judgementTest.py PROJECT"""

import random
import runpy
import sys
import unittest
from pathlib import Path

SOAK = runpy.run_path(str(Path(sys.argv.pop(1)) / "tools" / "soak"))
LIMITS = SOAK["LIMITS"]
SAMPLES = 100


class JudgementTest(unittest.TestCase):
    def setUp(self):
        random.seed(1)
        # A million calls and events; each quantity scatters by as much as a run may grow.
        self.samples = [
            {"calls": 1e4 * number, "events": 1e4 * number}
            | {name: 1000 * limit.scatter + limit.scatter * random.random() for name, limit in LIMITS.items()}
            for number in range(SAMPLES + 1)
        ]

    def growing(self):
        return [row["quantity"] for row in SOAK["judge"](self.samples) if row["grows"]]

    def add(self, name, amount):
        """`amount(PART)` more at each part (0 to 1) of the run."""
        for number, sample in enumerate(self.samples):
            sample[name] += amount(number / SAMPLES)

    def test_what_only_scatters_does_not_grow(self):
        self.assertEqual(self.growing(), [])

    def test_each_quantity_grows_when_it_rises_by_more_than_its_limit(self):
        for name, limit in LIMITS.items():
            self.setUp()
            self.add(name, lambda part, limit=limit: 2 * max(limit.slope, limit.scatter) * part)
            self.assertEqual(self.growing(), [name])

    def test_stacks_of_threads_are_no_growth_of_private_bytes_but_what_grows_beside_them_is(self):
        for number, sample in enumerate(self.samples):
            sample["threads"] = 30 + (number > 60)
            sample["private bytes"] += sample["threads"] * 1024 * 1024 * 4
        self.assertEqual(self.growing(), [])
        self.add("private bytes", lambda part: 2 * LIMITS["private bytes"].slope * part)
        self.assertEqual(self.growing(), ["private bytes"])

    def test_a_step_of_private_bytes_is_no_growth_but_a_second_or_a_high_one_is_and_what_grows_beside_it(self):
        def step(at, height):
            self.add("private bytes", lambda part: height * (part > at))

        step(0.57, 3e6)
        self.assertEqual(self.growing(), [])
        self.add("private bytes", lambda part: 2 * LIMITS["private bytes"].slope * part)
        self.assertEqual(self.growing(), ["private bytes"])
        self.setUp()
        step(0.5, 3e6)
        step(0.75, 3e6)
        self.assertEqual(self.growing(), ["private bytes"])
        self.setUp()
        step(0.57, 1e7)
        self.assertEqual(self.growing(), ["private bytes"])

    def test_what_rises_in_the_warm_up_or_falls_does_not_grow(self):
        self.add("private bytes", lambda part: 1e9 * min(part, SOAK["WARM_UP"]))
        self.add("handles", lambda part: -1000 * part)
        self.assertEqual(self.growing(), [])

    def test_single_odd_samples_neither_make_nor_hide_a_growth(self):
        for number in (40, 70, 99):
            self.samples[number]["Java heap"] += 1e9
        self.assertEqual(self.growing(), [])
        self.add("threads", lambda part: 20 * part)
        for number in (99, 100):
            self.samples[number]["threads"] = 0
        self.assertEqual(self.growing(), ["threads"])

    def test_what_is_less_than_samples_scatter_anyway_does_not_grow(self):
        for sample in self.samples:
            sample["calls"] /= 100
            sample["events"] /= 100
        self.add("private bytes", lambda part: LIMITS["private bytes"].scatter / 2 * part)
        self.assertEqual(self.growing(), [])

    def test_what_the_system_does_not_tell_is_not_judged(self):
        self.add("GDI objects", lambda part: -1e6)
        rows = {row["quantity"]: row for row in SOAK["judge"](self.samples)}
        self.assertIsNone(rows["GDI objects"]["grows"])
        self.assertIn("does not tell", SOAK["table"](list(rows.values())))


if __name__ == "__main__":
    unittest.main()
