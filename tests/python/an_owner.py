"""The owner of the integration tests' items."""

from typing import Generator

import ominspect

owner = ominspect.Owner("pyowner")


@owner.item("now")
def now(cmd: str) -> ominspect.Answer:
    return "success", f"asked for [{cmd}]"


@owner.item("warns")
def warns(_cmd: str) -> ominspect.Answer:
    return "warn", "grüße " * 40


@owner.item("raises")
def raises(_cmd: str) -> ominspect.Answer:
    raise OSError("no such disk")


@owner.item("nothing")
def nothing(_cmd: str) -> ominspect.Answer:
    return None  # type: ignore[return-value]


@owner.item("later", time_limit=30, pause=0.2)
def later(cmd: str) -> Generator[str, None, ominspect.Answer]:
    for step in range(4):
        yield f"step {step}"
    return "success", f"{cmd} done"


@owner.item("at_once", time_limit=30)
def at_once(_cmd: str) -> Generator[str, None, ominspect.Answer]:
    yield "begun"
    return "success", "before the server had digested that"


@owner.item("breaks", time_limit=30)
def breaks(_cmd: str) -> Generator[str, None, ominspect.Answer]:
    yield "begun"
    raise ValueError("half-way")


@owner.item("endless", pause=0.1)
def endless(_cmd: str) -> Generator[str, None, ominspect.Answer]:
    try:
        while True:
            yield "still running"
    finally:
        with open("closed", "a", encoding="utf-8") as file:
            file.write("closed\n")


@owner.item("short", time_limit=1, pause=0.1)
def short(_cmd: str) -> Generator[str, None, ominspect.Answer]:
    while True:
        yield "longer than its limit"


owner.serve()
