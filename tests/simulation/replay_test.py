#!/usr/bin/python3
"""The promises about repeating: the same seed gives the same journal to the byte, in every build, and a failing life
gets shorter and still fails, be it one of many or the only one.

usage: replay_test.py BUILD same|sums|shortened
       replay_test.py BUILD write-sums

journal_sums has the sums of some journals. A change of the simulator, or of what the server does, may change them:
write-sums writes them anew.
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
SUMS = planted.HERE / "journal_sums"


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


def journal_sums(build: pathlib.Path) -> str:
    """A line for each seed, with the sum over its journal."""
    lines = []
    for seed in SEEDS:
        run = simulate(build, "--seed", str(seed), "--quiet")
        told = re.fullmatch(r"journal ([0-9a-f]{16})\n", run.stdout)
        assert run.returncode == 0 and told is not None, run.stdout
        lines.append(f"{seed} {told[1]}\n")
    return "".join(lines)


def sums(build: pathlib.Path, _: pathlib.Path) -> None:
    now = journal_sums(build)
    assert now == SUMS.read_text(), (
        f"other journals than in {SUMS.name}. If a change of the simulator or the server is the reason, run "
        f"tests/simulation/replay_test.py {build} write-sums; if not, the journal depends on the build:\n{now}"
    )


def write_sums(build: pathlib.Path, _: pathlib.Path) -> None:
    SUMS.write_text(journal_sums(build))


def shortest_of(output: str) -> tuple[str, ...]:
    """The path of the shortened schedule, its choices, and those of the whole life."""
    shortest = re.search(r"shortest: \S+ --schedule (\S+) \((\d+) choices of (\d+)\)", output)
    assert shortest is not None, output
    return shortest.groups()


def shortened(build: pathlib.Path, folder: pathlib.Path) -> None:
    images = folder / "images"
    images.mkdir()
    planted.build_images(build, images, planted.HERE / "planted" / "requester-forgotten.patch")
    wrong = re.compile(r'VIOLATION: .*instead of "log 3 \(13\) ResultMgr: "add requester ')
    run = simulate(build, "--images", str(images), "--runs", "50", "--quiet")
    assert run.returncode == 1 and wrong.search(run.stdout), run.stdout
    shortest, few, many = shortest_of(run.stdout)
    assert int(few) * 4 < int(many), run.stdout
    schedule = pathlib.Path(shortest).read_bytes()
    pathlib.Path(shortest).unlink()

    again = re.search(r"again: +\S+ (.+)", run.stdout)
    assert again is not None, run.stdout
    one = simulate(build, "--images", str(images), "--quiet", *again[1].split())
    assert one.returncode == 1 and wrong.search(one.stdout) and again[0] in one.stdout, one.stdout
    assert shortest_of(one.stdout) == (shortest, few, many), one.stdout
    assert pathlib.Path(shortest).read_bytes() == schedule

    replayed = simulate(build, "--images", str(images), "--quiet", "--schedule", shortest)
    pathlib.Path(shortest).unlink()
    assert replayed.returncode == 1 and wrong.search(replayed.stdout), replayed.stdout
    assert "shortest:" not in replayed.stdout, replayed.stdout


def main() -> int:
    build = pathlib.Path(sys.argv[1]).resolve()
    with tempfile.TemporaryDirectory() as name:
        todo = {"same": same, "sums": sums, "write-sums": write_sums, "shortened": shortened}
        todo[sys.argv[2]](build, pathlib.Path(name))
    return 0


if __name__ == "__main__":
    sys.exit(main())
