#!/usr/bin/python3
"""An owner in Python: whether a network interface is connected, answered at once, and how much comes in through all of
them, which takes two seconds."""

import sys
import time
from pathlib import Path
from typing import Generator

import ominspect

owner = ominspect.Owner("example-py")
NETWORK = Path("/sys/class/net")


@owner.item("carrier")
def carrier(cmd: str) -> ominspect.Answer:
    """The interface is the request's argument: ominspectctl run carrier --cmd eth0."""
    name = cmd or "lo"
    # The argument comes from outside: it is looked up among what is there, and never becomes a path.
    if name not in {folder.name for folder in NETWORK.iterdir()}:
        return "unknown", f"there is no interface {name}"
    try:
        connected = (NETWORK / name / "carrier").read_text().strip() == "1"
    except OSError:  # so the kernel says that it is down
        connected = False
    return ("success", f"{name} is connected") if connected else ("fail", f"{name} is not connected")


def received() -> int:
    return sum(int(count.read_text()) for count in NETWORK.glob("*/statistics/rx_bytes"))


@owner.item("net_rate", time_limit=10, pause=0.5)
def net_rate(_cmd: str) -> Generator[str, None, ominspect.Answer]:
    """Each yield is a pause of half a second, in which the owner serves others; its text is the progress."""
    begin, count = time.monotonic(), received()
    for step in range(4):
        yield f"{step * 25} % measured"
    rate = (received() - count) / (time.monotonic() - begin)
    return "success", f"{rate / 1000:.1f} kB/s come in"


try:
    owner.serve()  # until SIGTERM or Ctrl-C; registers again when the server restarts
except ominspect.Error as error:
    sys.exit(f"owner: {error}")
