#!/usr/bin/python3
"""Counts the tests of every build's reports (GoogleTest XML and the unittest suites' reports of
testreport.py), lists each skipped test with its reason and ends with one line
"Tests: N passed, N failed, N skipped".

With --ci (or CI=true in the environment) a skip that no entry of the allowed list matches fails
the run: a test that cannot run in CI must say so in that list, with its reason.

Usage: skip_summary.py --allowed FILE LABEL=REPORT_DIR [LABEL=REPORT_DIR ...]
"""
import argparse
import fnmatch
import os
import sys
import xml.etree.ElementTree as ET


def read_allowed(path):
    """Entries "LABEL:SUITE.TEST | reason" (fnmatch patterns); '#' starts a comment."""
    allowed = []
    with open(path, encoding="utf-8") as f:
        for line in f:
            line = line.strip()
            if not line or line.startswith("#"):
                continue
            pattern, _, reason = line.partition("|")
            if not reason.strip():
                sys.exit(f"{path}: the entry '{line}' gives no reason")
            allowed.append((pattern.strip(), reason.strip()))
    return allowed


def read_reports(label, folder):
    """Yields (full name, outcome, message) for every test case of the reports in folder."""
    if not os.path.isdir(folder):
        return
    for name in sorted(os.listdir(folder)):
        if not name.endswith(".xml"):
            continue
        root = ET.parse(os.path.join(folder, name)).getroot()
        for case in root.iter("testcase"):
            full = f"{label}:{case.get('classname')}.{case.get('name')}"
            skipped = case.find("skipped")
            if case.find("failure") is not None or case.find("error") is not None:
                yield full, "failed", ""
            elif skipped is not None:
                message = (skipped.get("message") or "").splitlines()
                # GoogleTest puts "file:line" before the reason.
                reason = message[-1] if message else ""
                yield full, "skipped", reason
            elif case.get("status") == "notrun":
                yield full, "skipped", "disabled"
            else:
                yield full, "passed", ""


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--allowed", required=True)
    ap.add_argument("--ci", action="store_true", default=os.environ.get("CI") == "true")
    ap.add_argument("reports", nargs="+", metavar="LABEL=DIR")
    args = ap.parse_args()
    allowed = read_allowed(args.allowed)

    counts = {"passed": 0, "failed": 0, "skipped": 0}
    skips, unexpected = [], []
    for spec in args.reports:
        label, _, folder = spec.partition("=")
        n_before = sum(counts.values())
        for full, outcome, reason in read_reports(label, folder):
            counts[outcome] += 1
            if outcome == "skipped":
                match = next((r for p, r in allowed if fnmatch.fnmatchcase(full, p)), None)
                skips.append((full, reason, match))
                if match is None:
                    unexpected.append(full)
        if sum(counts.values()) == n_before:
            print(f"{label}: no test reports in {folder}")
            unexpected.append(f"{label}: no reports")

    print()
    print("Skipped tests:" if skips else "Skipped tests: none")
    for full, reason, match in skips:
        note = "" if match else "   <- not on the allowed list"
        print(f"  {full}: {reason}{note}")
    print(f"Tests: {counts['passed']} passed, {counts['failed']} failed, "
          f"{counts['skipped']} skipped")
    if args.ci and unexpected:
        print(f"{len(unexpected)} skip(s) not on {args.allowed} fail the CI run.")
        return 1
    return 1 if counts["failed"] else 0


if __name__ == "__main__":
    sys.exit(main())
