#!/usr/bin/python3
"""Plants mistakes in the server, one at a time, and says after how many seeds the simulator finds each.

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
IMAGE = "simulated_server"


def compile_commands(build: pathlib.Path) -> dict[str, list[str]]:
    """The command for each source of the server's image, by the source's path in the tree."""
    entries = json.loads((build / "compile_commands.json").read_text())
    found = {}
    for entry in entries:
        if f"{IMAGE}.dir/" in entry["command"]:
            source = pathlib.Path(entry["file"])
            found[str(source.relative_to(TREE))] = shlex.split(entry["command"])
    return found


def object_of(command: list[str]) -> str:
    return command[command.index("-o") + 1]


def build_image(build: pathlib.Path, folder: pathlib.Path, patch: pathlib.Path) -> None:
    """Puts the images into the folder, the server's with the patch."""
    shutil.copytree(TREE / "src", folder / "src")
    subprocess.run(["patch", "-s", "-p1", "-d", folder, "-i", patch], check=True)
    commands = compile_commands(build)
    changed = re.findall(r"^\+\+\+ b/(\S+)", patch.read_text(), re.MULTILINE)
    objects: list[str] = []
    for source, command in commands.items():
        output = object_of(command)
        if source in changed:
            mine = str(folder / (str(len(objects)) + ".o"))
            text = [word.replace(str(TREE / "src"), str(folder / "src")) for word in command]
            text[text.index("-o") + 1] = mine
            subprocess.run(text, check=True, cwd=build)
            objects.append(mine)
        else:
            objects.append(output)
    compiler = next(word for word in next(iter(commands.values())) if re.search(r"(\+\+|g\+\+.*|c\+\+)$", word))
    libraries = subprocess.run(
        ["pkg-config", "--libs", "libcjson", "tinyxml2"], check=True, capture_output=True, text=True
    ).stdout.split()
    script = f"-Wl,--version-script={HERE / 'images' / 'server.map'}"
    subprocess.run(
        [compiler, "-shared", script, "-o", str(folder / f"lib{IMAGE}.so"), *objects, *libraries],
        check=True, cwd=build,
    )
    for other in ("libsimulated_owner.so", "libsimulated_requester.so"):
        shutil.copy(build / "tests" / "simulation" / other, folder)


def find(build: pathlib.Path, patch: pathlib.Path) -> bool:
    """Whether the simulator finds the mistake in time."""
    limit = re.search(r"^Seeds: (\d+)$", patch.read_text(), re.MULTILINE)
    assert limit is not None, patch
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        build_image(build, folder, patch)
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
