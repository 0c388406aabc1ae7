#!/usr/bin/python3
"""Runs the tests of a build, with many window tests in one process: under a sanitizer most of their
time is GTK's start.

    run_batches.py BUILD_DIR JUNIT_XML [CTEST_SELECTION ...]

CTEST_SELECTION (-R, -E, -LE ...) selects as for ctest. The tests of one suite of BATCHED share
processes, BATCH at most in one; all others have their own. A test that fails in company, or whose
process ends before it, runs again alone, and that is what counts: company only saves time. What a
sanitizer reports fails in any case, and so does a process that ends badly after its last test.
Standard output tells the counts and who failed in company only; JUNIT_XML has the form of ctest's.
"""

import concurrent.futures
import json
import os
import re
import subprocess
import sys
import tempfile
import time
import xml.etree.ElementTree as ElementTree

BATCHED = "ferrodeck_app_tests"
BATCH = 20
SANITIZER = re.compile(r"ERROR: \w+Sanitizer|WARNING: ThreadSanitizer|: runtime error: ")
KEPT_BYTES = 100_000  # of a failed test's output
TIMEOUT_SECONDS = 300  # of one test without a timeout of its own
PASSED, FAILED, SKIPPED = "run", "fail", "notrun"


class Test:
    def __init__(self, entry):
        properties = {p["name"]: p["value"] for p in entry.get("properties", [])}
        self.name = entry["name"]
        self.command = entry.get("command")
        self.folder = properties.get("WORKING_DIRECTORY")
        self.timeout = float(properties.get("TIMEOUT", TIMEOUT_SECONDS))
        filters = [a for a in self.command or [] if a.startswith("--gtest_filter=")]
        self.filter = filters[0].split("=", 1)[1] if filters else None
        self.status, self.output, self.seconds = FAILED, "no such program", 0.0

    def batch_key(self):
        if self.filter and os.path.basename(self.command[0]) == BATCHED:
            return self.filter.split(".")[0]
        return "alone " + self.name


def run(command, folder, timeout):
    """The exit status (None: not in time) and the output."""
    process = subprocess.Popen(command, cwd=folder, stdin=subprocess.DEVNULL,
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    try:
        output, _ = process.communicate(timeout=timeout)
        return process.returncode, output.decode(errors="replace")
    except subprocess.TimeoutExpired:
        process.kill()
        output, _ = process.communicate()
        return None, output.decode(errors="replace") + f"\nnot finished after {timeout} s"


def run_alone(test):
    if not test.command:
        return
    start = time.monotonic()
    status, output = run(test.command, test.folder, test.timeout)
    test.seconds = time.monotonic() - start
    test.output = output[-KEPT_BYTES:]
    if status != 0:
        test.status = FAILED
    else:
        test.status = SKIPPED if "[  SKIPPED ]" in output else PASSED


def read_results(path):
    """{filter: (status, output, seconds)} of what GoogleTest wrote; empty when it could not."""
    try:
        cases = ElementTree.parse(path).getroot().iter("testcase")
    except (OSError, ElementTree.ParseError):
        return {}
    results = {}
    for case in cases:
        if case.get("status") != "run":
            continue
        skip = case.find("skipped")
        if case.find("failure") is not None:
            result = FAILED, ""
        elif skip is not None:
            # The form that a test alone prints.
            result = SKIPPED, f": Skipped\n{skip.text or skip.get('message')}\n[  SKIPPED ]"
        else:
            result = PASSED, ""
        key = f"{case.get('classname')}.{case.get('name')}"
        results[key] = result + (float(case.get("time", 0)),)
    return results


def run_batch(tests):
    """Runs tests of one suite. Returns those that failed in company and pass alone."""
    if len(tests) == 1:
        run_alone(tests[0])
        return []
    with tempfile.TemporaryDirectory() as folder:
        xml = os.path.join(folder, "results.xml")
        command = [a for a in tests[0].command if not a.startswith("--gtest_filter=")]
        command += ["--gtest_filter=" + ":".join(t.filter for t in tests),
                    "--gtest_output=xml:" + xml]
        status, output = run(command, tests[0].folder, sum(t.timeout for t in tests))
        results = read_results(xml)
    again = []
    for test in tests:
        test.status, test.output, test.seconds = results.get(test.filter, (FAILED, "", 0.0))
        if test.status == FAILED:
            again.append(test)
    bad_end = status != 0 and not again
    for test in again:
        run_alone(test)
    if bad_end or SANITIZER.search(output):
        culprits = [t for t in again if t.status == FAILED] or [again[0] if again else tests[-1]]
        culprits[0].status = FAILED
        culprits[0].output = f"in a process with others:\n{output[-KEPT_BYTES:]}"
    return [t for t in again if t.status != FAILED]


def batches_of(tests):
    groups = {}
    for test in tests:
        groups.setdefault(test.batch_key(), []).append(test)
    batches = []
    for group in groups.values():
        count = -(-len(group) // BATCH)
        batches += [group[i::count] for i in range(count)]
    # The long ones first, so that the short ones fill up the end.
    return sorted(batches, key=lambda batch: batch[0].batch_key().startswith("alone "))


def write_junit(path, tests):
    suite = ElementTree.Element("testsuite", tests=str(len(tests)))
    for test in tests:
        case = ElementTree.SubElement(suite, "testcase", name=test.name, status=test.status,
                                      time=f"{test.seconds:.3f}")
        # XML 1.0 has no way to write the other control characters.
        text = re.sub(r"[^\t\n\x20-\ud7ff\ue000-\ufffd\U00010000-\U0010ffff]", "?", test.output)
        ElementTree.SubElement(case, "system-out").text = text
    ElementTree.ElementTree(suite).write(path)


def main(build, xml, *selection):
    listing = subprocess.run(["ctest", "--test-dir", build, "--show-only=json-v1", *selection],
                             check=True, capture_output=True, text=True).stdout
    tests = [Test(entry) for entry in json.loads(listing)["tests"]]
    batches = batches_of([t for t in tests if t.command])
    # Many a test waits for a window, a bus or a stalled disk.
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count() + 1) as pool:
        in_company = sum(pool.map(run_batch, batches), [])
    write_junit(xml, tests)
    slow = sorted(tests, key=lambda t: -t.seconds)[:10]
    print("slowest: " + ", ".join(f"{t.name} {t.seconds:.0f} s" for t in slow))
    if in_company:
        print("failed in company, passed alone: " + ", ".join(t.name for t in in_company))
    failed = sum(t.status == FAILED for t in tests)
    print(f"{len(tests) - failed} of {len(tests)} tests passed, {len(batches)} processes")


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    main(*sys.argv[1:])
