#!/usr/bin/python3
"""A requester in Python: runs the items on its command line as one group, and ends with 0 if all have passed."""

import sys

import ominspect


def main() -> int:
    try:
        with ominspect.Session() as session:
            record = session.group(sys.argv[1:], limit=60, wait=True)
    except ominspect.Error as error:
        print(f"requester: {error} ({error.word})", file=sys.stderr)
        return 3
    for item in record.items:
        result = item.result
        seconds = (item.end - item.start).total_seconds() if item.start and item.end else 0.0
        text = "no process has registered this item" if result.unknown_item else result.text
        print(f"{result.name}: {result.status}, {text} ({seconds:.1f} s)")
    return 0 if all(item.result.passed for item in record.items) else 1


if __name__ == "__main__":
    sys.exit(main())
