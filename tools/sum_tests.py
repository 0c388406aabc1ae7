#!/usr/bin/python3
"""Adds up the test runs of ./test.

    sum_tests.py --failed STAGE ... RUN=JUNIT_XML ...

Each JUNIT_XML is what ctest wrote for the run of that name. STAGE names what failed without being a
test: a build, the format check. Prints skips with their reasons, failures with their output, and as
the last line "N passed, N failed, N skipped". The exit status is 1 when anything failed.
"""

import sys
import xml.etree.ElementTree as ElementTree

OUTPUT_LINES = 80  # of each failed test


def skip_reason(output):
    """What stands between GoogleTest's "Skipped" and its closing banner."""
    reason = []
    inside = False
    for line in output.splitlines():
        if line.endswith(": Skipped"):
            inside = True
        elif line.startswith("[  SKIPPED ]"):
            break
        elif inside and line:
            reason.append(line)
    return " ".join(reason) or "no reason given"


def read_run(name, path, counts, notes):
    try:
        cases = list(ElementTree.parse(path).getroot().iter("testcase"))
    except (OSError, ElementTree.ParseError) as error:
        counts["failed"] += 1
        notes["failed"].append((f"{name}: no result", str(error)))
        return
    if not cases:
        counts["failed"] += 1
        notes["failed"].append((f"{name}: no tests were found", ""))
    for case in cases:
        title = f"{name}: {case.get('name')}"
        output = case.findtext("system-out") or ""
        status = case.get("status")
        if status == "run":
            counts["passed"] += 1
        elif status == "disabled":
            counts["skipped"] += 1
            notes["skipped"].append((title, "disabled"))
        elif status == "notrun" and "SKIPPED" in output:
            counts["skipped"] += 1
            notes["skipped"].append((title, skip_reason(output)))
        else:  # "fail", or "notrun" for want of its program
            counts["failed"] += 1
            notes["failed"].append((f"{title} ({float(case.get('time', 0)):.1f} s)", output))


def main(arguments):
    counts = {"passed": 0, "failed": 0, "skipped": 0}
    notes = {"failed": [], "skipped": []}
    while arguments:
        argument = arguments.pop(0)
        if argument == "--failed":
            counts["failed"] += 1
            notes["failed"].append((f"stage {arguments.pop(0)}", ""))
        else:
            name, path = argument.split("=", 1)
            read_run(name, path, counts, notes)
    for title, reason in notes["skipped"]:
        print(f"skipped {title}: {reason}")
    for title, output in notes["failed"]:
        print(f"FAILED {title}")
        lines = output.splitlines()
        if len(lines) > OUTPUT_LINES:
            print(f"    ... {len(lines) - OUTPUT_LINES} lines before these")
        for line in lines[-OUTPUT_LINES:]:
            print(f"    {line}")
    print("{passed} passed, {failed} failed, {skipped} skipped".format(**counts))
    return 1 if counts["failed"] else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
