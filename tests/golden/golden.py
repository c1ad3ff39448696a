#!/usr/bin/env python3
"""Runs the graphs of graphs.txt and compares the checksums of every frame that comes out with what stands there.

    golden.py            with each variant of the kernels, and with a second holder of every frame that goes in
    golden.py --write    writes the digests anew; look at what changed, and why, before it is committed

PANTIQ names the program. A line of graphs.txt is the first 16 digits of a SHA-256 over the lines of the sink `checksum`, a tab, and
what stands between SOURCE and that sink. The second holder is a delay that keeps each frame for two more: whoever works in place
must copy first, and what comes out of the delay must be what went in.
"""
import hashlib
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile

PANTIQ = os.environ["PANTIQ"]
FILE = pathlib.Path(__file__).with_name("graphs.txt")
SOURCE = "TPQJaehneGen Rate=30 ImageSize.Width=97 ImageSize.Height=61 ! TPQUniformNoise Name=source High=60"
FRAMES = "7"
ASYNCHRONOUS = "TPQQueuedSwitch"  # passes frames on by a thread of its own: pumped from two sides, it may leave some out
SANITIZED = bool(os.environ.get("PANTIQ_SANITIZE"))


def run(line, folder, variant=""):
    done = subprocess.run([PANTIQ, "run", "--quiet", "--overwrite", "--frames", FRAMES, line], capture_output=True, cwd=folder,
                          env={**os.environ, **({"PANTIQ_CPU": variant} if variant else {})})
    if done.returncode != 0 or not done.stdout:
        return f"exit code {done.returncode}: {done.stderr.decode(errors='replace').strip()[-2000:]}"
    return hashlib.sha256(done.stdout).hexdigest()[:16]


def whole(tail):
    return f"{SOURCE} ! {tail}" + ("" if " checksum" in tail else " ! checksum")


def main():
    rows = [line.split("\t") for line in FILE.read_text(encoding="utf-8").splitlines() if line and not line.startswith("#")]
    with tempfile.TemporaryDirectory(prefix="pantiq_golden_") as folder:
        if sys.argv[1:] == ["--write"]:
            head = [line for line in FILE.read_text(encoding="utf-8").splitlines() if line.startswith("#")]
            body = [f"{run(whole(tail), folder)}\t{tail}" for _, tail in rows]
            FILE.write_text("\n".join(head + body) + "\n", encoding="utf-8")
            return 0
        listed = json.loads(subprocess.run([PANTIQ, "kernels", "--json"], capture_output=True, check=True).stdout)
        variants = [""] if SANITIZED else ["px", *listed["variants"]]
        held = os.path.join(folder, "held.txt")
        kept = f"{SOURCE} ! TPQDelay FrameDelay=2 ! checksum FileName={held}"
        run(kept, folder)
        expected = pathlib.Path(held).read_bytes()
        wrong = 0
        for digest, tail in rows:
            line = whole(tail)
            found = {variant or "as it is": run(line, folder, variant) for variant in dict.fromkeys(variants)}
            if ASYNCHRONOUS not in line:
                pathlib.Path(held).unlink(missing_ok=True)
                found["with a second holder"] = run(f"{line}  source ! TPQDelay FrameDelay=2 ! checksum FileName={held}", folder)
                if not os.path.exists(held) or pathlib.Path(held).read_bytes() != expected:
                    found["what the second holder had"] = "changed under it"
            for how, got in found.items():
                if got != digest:
                    wrong += 1
                    print(f"{tail}\n    {how}: {got}, expected {digest}")
    classes = set(re.findall(r"\bTPQ\w+", " ".join(tail for _, tail in rows)))
    print(f"golden: {len(rows)} graphs of {len(classes)} classes, {wrong} results are wrong")
    return 1 if wrong or len(rows) < 100 else 0


if __name__ == "__main__":
    sys.exit(main())
