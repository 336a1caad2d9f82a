#!/usr/bin/python3
"""The promises about repeating: the same seed gives the same journal to the byte, and a failing life gets shorter and
still fails.

usage: replay_test.py BUILD same|shortened
"""

import pathlib
import re
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
import planted  # noqa: E402

SEEDS = range(1, 9)


def simulate(build: pathlib.Path, *arguments: str) -> subprocess.CompletedProcess[str]:
    program = build / "tests" / "simulation" / "simulate"
    return subprocess.run([str(program), *arguments], check=False, capture_output=True, text=True)


def journal(build: pathlib.Path, folder: pathlib.Path, name: str, seed: int) -> bytes:
    path = folder / name
    run = simulate(build, "--seed", str(seed), "--quiet", "--journal", str(path))
    assert run.returncode == 0, run.stdout
    return path.read_bytes()


def same(build: pathlib.Path, folder: pathlib.Path) -> None:
    different = set()
    for seed in SEEDS:
        first = journal(build, folder, "first", seed)
        assert len(first.splitlines()) > 100, first
        assert first == journal(build, folder, "second", seed), f"seed {seed} gave two journals"
        different.add(first)
    assert len(different) == len(SEEDS), "two seeds gave the same journal"


def shortened(build: pathlib.Path, folder: pathlib.Path) -> None:
    images = folder / "images"
    images.mkdir()
    planted.build_images(build, images, planted.HERE / "planted" / "requester-forgotten.patch")
    run = simulate(build, "--images", str(images), "--runs", "50", "--quiet")
    assert run.returncode == 1, run.stdout
    shortest = re.search(r"shortest: \S+ --schedule (\S+) \((\d+) choices of (\d+)\)", run.stdout)
    assert shortest is not None, run.stdout
    assert int(shortest[2]) * 4 < int(shortest[3]), run.stdout
    again = simulate(build, "--images", str(images), "--quiet", "--schedule", shortest[1])
    pathlib.Path(shortest[1]).unlink()
    assert again.returncode == 1, again.stdout
    wrong = re.compile(r'VIOLATION: .*instead of "log 3 \(13\) ResultMgr: "add requester ')
    assert wrong.search(run.stdout) and wrong.search(again.stdout), again.stdout


def main() -> int:
    build = pathlib.Path(sys.argv[1]).resolve()
    with tempfile.TemporaryDirectory() as name:
        {"same": same, "shortened": shortened}[sys.argv[2]](build, pathlib.Path(name))
    return 0


if __name__ == "__main__":
    sys.exit(main())
