"""Runs the scenarios of one file: run.py NAME for NAME_test.py. Ends with 77 when this machine cannot run them.

run.py --image BUILD-FOLDER makes the image that they all boot.
"""

import sys
import unittest
from pathlib import Path

sys.dont_write_bytecode = True
sys.path[0:1] = [str(Path(__file__).resolve().parent), str(Path(__file__).resolve().parent.parent.parent)]

from lab import emulator
from lab.image import Image
from scenario import sweep

NOT_RUN = 77


def main() -> int:
    if not emulator.available():
        print(f"NOT RUN: there is no {emulator.PROGRAM} on this machine")
        return NOT_RUN
    if sys.argv[1] == "--image":
        print(Image.built(Path(sys.argv[2])).initrd)
        return 0
    sweep()
    suite = unittest.defaultTestLoader.loadTestsFromName(f"{sys.argv[1]}_test")
    result = unittest.TextTestRunner(stream=sys.stdout, verbosity=2).run(suite)
    if not result.wasSuccessful():
        return 1
    if len(result.skipped) == result.testsRun:
        print("NOT RUN:", "; ".join(sorted({reason for _, reason in result.skipped})) or "no scenario")
        return NOT_RUN
    return 0


if __name__ == "__main__":
    sys.exit(main())
