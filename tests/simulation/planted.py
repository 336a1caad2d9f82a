#!/usr/bin/python3
"""Plants mistakes in the server and the libraries, one at a time, and says after how many seeds each is found.

usage: planted.py BUILD [NAME...]

BUILD is a build folder with the simulator; NAME is one of planted/NAME.patch, all of them by default. A patch says in
its head within how many seeds it must be found. The tree stays as it is: what a patch changes is compiled from a copy,
and the rest is the build's.
"""

import json
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
TREE = HERE.parent.parent
IMAGES = ("simulated_server", "simulated_owner", "simulated_requester")
SOURCES = ("src", "client", "platform")


def compile_commands(build: pathlib.Path, image: str) -> dict[str, list[str]]:
    """The command for each source of an image, by the source's path in the tree."""
    entries = json.loads((build / "compile_commands.json").read_text())
    found = {}
    for entry in entries:
        if f"{image}.dir/" in entry["command"]:
            source = pathlib.Path(entry["file"])
            found[str(source.relative_to(TREE))] = shlex.split(entry["command"])
    return found


def link_command(build: pathlib.Path, image: str) -> list[str]:
    target = f"tests/simulation/lib{image}.so"
    commands = subprocess.run(
        ["ninja", "-C", str(build), "-t", "commands", target], check=True, capture_output=True, text=True
    ).stdout.splitlines()
    return [word for word in shlex.split(commands[-1]) if word not in (":", "&&")]


def object_of(command: list[str]) -> str:
    return command[command.index("-o") + 1]


def build_image(build: pathlib.Path, folder: pathlib.Path, image: str, changed: list[str]) -> None:
    """Puts an image into the folder, with the changed sources that it has."""
    commands = compile_commands(build, image)
    replaced: dict[str, str] = {}
    for source in changed:
        if source not in commands:
            continue
        text = commands[source]
        for name in SOURCES:
            text = [word.replace(str(TREE / name), str(folder / name)) for word in text]
        mine = str(folder / f"{image}.{len(replaced)}.o")
        replaced[object_of(text)] = mine
        text[text.index("-o") + 1] = mine
        subprocess.run(text, check=True, cwd=build)
    library = f"lib{image}.so"
    if not replaced:
        shutil.copy(build / "tests" / "simulation" / library, folder)
        return
    link = [replaced.get(word, word) for word in link_command(build, image)]
    link[link.index("-o") + 1] = str(folder / library)
    subprocess.run(link, check=True, cwd=build)


def build_images(build: pathlib.Path, folder: pathlib.Path, patch: pathlib.Path) -> None:
    """Puts the images into the folder, with the patch."""
    for name in SOURCES:
        shutil.copytree(TREE / name, folder / name)
    subprocess.run(["patch", "-s", "-p1", "-d", folder, "-i", patch], check=True)
    changed = re.findall(r"^\+\+\+ b/(\S+)", patch.read_text(), re.MULTILINE)
    for image in IMAGES:
        build_image(build, folder, image, changed)


def find(build: pathlib.Path, patch: pathlib.Path) -> bool:
    """Whether the simulator finds the mistake in time."""
    limit = re.search(r"^Seeds: (\d+)$", patch.read_text(), re.MULTILINE)
    assert limit is not None, patch
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        build_images(build, folder, patch)
        run = subprocess.run(
            [str(build / "tests" / "simulation" / "simulate"), "--images", name, "--runs", limit[1], "--seed", "1",
             "--quiet", "--no-minimise"],
            check=False, capture_output=True, text=True,
        )
    after = re.search(r"^found after (\d+) seeds$", run.stdout, re.MULTILINE)
    what = re.search(r"^VIOLATION: (.*)$", run.stdout, re.MULTILINE)
    if after is None or what is None:
        print(f"{patch.stem:32} NOT FOUND within {limit[1]} seeds {run.stdout}{run.stderr}", flush=True)
        return False
    print(f"{patch.stem:32} {after[1]:>5} of {limit[1]:>5}  {what[1][:150]}", flush=True)
    return True


def main() -> int:
    if len(sys.argv) < 2:
        print(__doc__, file=sys.stderr)
        return 2
    build = pathlib.Path(sys.argv[1]).resolve()
    names = sys.argv[2:] or sorted(path.stem for path in (HERE / "planted").glob("*.patch"))
    print(f"{'planted':32} found after seeds")
    found = [find(build, HERE / "planted" / f"{name}.patch") for name in names]
    print(f"{sum(found)} of {len(found)} found")
    return 0 if all(found) else 1


if __name__ == "__main__":
    sys.exit(main())
