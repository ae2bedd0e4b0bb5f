"""What scripts that need a build share."""
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent


def build(who, preset, targets):
    """Builds targets of a preset; ends the script `who`, which names the log, when that fails."""
    log = ROOT / "build" / f"{preset}.log"
    log.parent.mkdir(exist_ok=True)
    steps = [["cmake", "--preset", preset], ["cmake", "--build", "--preset", preset, "--target", *targets]]
    with open(log, "w") as out:
        if not all(subprocess.run(step, cwd=ROOT, stdout=out, stderr=out).returncode == 0 for step in steps):
            sys.exit(f"{who}: the {preset} build failed: {log}")
