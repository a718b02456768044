#!/usr/bin/python3
"""Measures exports against the baseline: the time libxlsxwriter alone needs for the same cells.

    bench/run_bench.py --build BUILD_DIR [--out out/bench] [--reps 5] [--only NAME]

For each case: generates its data file (once; kept while the arguments stay the same), writes
its model dump with orv-model-dump, then runs the export (orv-export-excel) and the baseline
(orv-baseline on the dump) in turn, several times, and prints the medians: objects, rows,
cells, the export's wall seconds and peak resident memory, the baseline's seconds and the
ratio of the two. The parse case loads and walks a large data file without building anything.
The .xls cases time the Excel 97-2003 export against the .xlsx export of the same data (their
size is the largest the format's 65,536 rows hold). The views case times the largest item
structure with every view (--views level,flat,where-used,outline) against the same export
without views.
size is the largest the format's 65,536 rows hold). The batch case exports 50 data files of 1,000
objects each in one --batch run, on one thread and on two, and reports the speed-up.
Ends with the goals and whether each one holds; the exit status is 1 when one does not.
"""

import argparse
import json
import os
import shutil
import statistics
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)

# The mix of an item structure: about 12.5 rows per object, so 50,000 objects stay well below
# the sheet's 1,048,576 rows (about 626,000).
ITEM_MIX = ["--attrs", "6", "--mnfs", "0.5", "--vnds", "0.25", "--docs", "0.2", "--files", "1",
            "--alternates", "0.2", "--refdes", "2", "--folders", "0.05"]
DOC_MIX = ["--attrs", "6", "--files", "2", "--items", "0.5", "--folders", "0.2", "--docs", "0.3"]

CASES = [
    # name, setup, generator arguments
    ("item-structure-1k", "item-structure.xml",
     ["--kind", "item", "--objects", "1000", "--depth", "6", "--fanout", "4"] + ITEM_MIX),
    ("item-structure-10k", "item-structure.xml",
     ["--kind", "item", "--objects", "10000", "--depth", "7", "--fanout", "4"] + ITEM_MIX),
    ("item-structure-50k", "item-structure.xml",
     ["--kind", "item", "--objects", "50000", "--depth", "7", "--fanout", "4"] + ITEM_MIX),
    # Past one sheet's 1,048,576 rows: the property panel continues on a second sheet.
    ("item-structure-100k", "item-structure.xml",
     ["--kind", "item", "--objects", "100000", "--depth", "7", "--fanout", "4"] + ITEM_MIX),
    # A collection lists its top-level objects; each one here has a part list of one child.
    ("item-collection-50k", "item-collection.xml",
     ["--kind", "item", "--mode", "collection", "--objects", "50000", "--depth", "2",
      "--fanout", "1"] + ITEM_MIX),
    ("doc-structure-20k", "doc-structure.xml",
     ["--kind", "document", "--objects", "20000", "--depth", "7", "--fanout", "4"] + DOC_MIX),
]
# Excel 97-2003 exports: the largest item structure of the benchmark's mix that fits the
# format's 65,536 rows (about 60,000 rows).
XLS_CASES = [
    ("item-structure-4800", "item-structure.xml",
     ["--kind", "item", "--objects", "4800", "--depth", "7", "--fanout", "4"] + ITEM_MIX),
]
# The largest item structure with all views, against the same export without them.
VIEW_CASES = [
    ("item-structure-50k", "item-structure.xml",
     ["--kind", "item", "--objects", "50000", "--depth", "7", "--fanout", "4"] + ITEM_MIX),
]
ALL_VIEWS = "level,flat,where-used,outline"
# One --batch run over BATCH_FILES copies of a data file of this case, -j 1 against -j 2.
BATCH_CASE = ("batch-50x1k", "item-structure.xml",
              ["--kind", "item", "--objects", "1000", "--depth", "6", "--fanout", "4"] + ITEM_MIX)
BATCH_FILES = 50
PARSE_CASE = ("parse-100mb", "item-structure.xml",
              ["--kind", "item", "--mb", "100", "--depth", "5", "--fanout", "4", "--attrs", "6"])


def run_rss(cmd, env=None):
    """Runs cmd; returns (stdout, stderr, wall seconds, peak resident memory in MB)."""
    r, w = os.pipe()
    t0 = time.perf_counter()
    pid = os.fork()
    if pid == 0:
        os.close(r)
        os.dup2(w, 1)
        devnull = os.open(os.devnull, os.O_WRONLY)
        os.dup2(devnull, 2)
        if env is not None:
            os.execve(cmd[0], cmd, env)
        os.execv(cmd[0], cmd)
    os.close(w)
    chunks = []
    while True:
        b = os.read(r, 65536)
        if not b:
            break
        chunks.append(b)
    os.close(r)
    _, status, ru = os.wait4(pid, 0)
    wall = time.perf_counter() - t0
    if os.waitstatus_to_exitcode(status) != 0:
        sys.exit("failed: %s" % " ".join(cmd))
    return b"".join(chunks).decode(), wall, ru.ru_maxrss / 1024.0


def generate(out_dir, name, gen_args, settings):
    data = os.path.join(out_dir, name + ".xml")
    stamp = data + ".args"
    want = json.dumps(gen_args)
    if os.path.exists(data) and os.path.exists(stamp) and open(stamp).read() == want:
        return data
    cmd = [sys.executable, os.path.join(HERE, "gen_data.py"), data] + gen_args + [
        "--settings", settings, "--setup-dir", os.path.join(out_dir, "setup")]
    subprocess.run(cmd, check=True)
    with open(stamp, "w") as f:
        f.write(want)
    return data


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--build", required=True)
    ap.add_argument("--out", default=os.path.join(ROOT, "out", "bench"))
    ap.add_argument("--reps", type=int, default=5)
    ap.add_argument("--only")
    a = ap.parse_args()
    out_dir = os.path.abspath(a.out)
    os.makedirs(out_dir, exist_ok=True)
    build = os.path.abspath(a.build)
    cli = os.path.join(build, "orv-export-excel")
    dump_tool = os.path.join(build, "bench", "orv-model-dump")
    baseline = os.path.join(build, "bench", "orv-baseline")
    # The log of the exports goes into the output folder, never into the user's own.
    appdata = os.path.join(out_dir, "appdata")
    os.makedirs(appdata, exist_ok=True)
    env = dict(os.environ, APPDATA=appdata, ALLUSERSPROFILE=appdata)
    settings = os.path.join(out_dir, "settings.xml")

    cases = [c for c in CASES if not a.only or a.only in c[0]]
    rows_out = []
    header = "%-20s %8s %9s %10s %6s %9s %9s %10s %7s" % (
        "case", "objects", "rows", "cells", "sheets", "export s", "peak MB", "baseline s", "ratio")
    print(header)
    print("-" * len(header))
    sys.stdout.flush()
    results = {}
    for name, setup, gen_args in cases:
        data = generate(out_dir, name, gen_args, settings)
        setup_file = os.path.join(out_dir, "setup", setup)
        dump = os.path.join(out_dir, name + ".dump")
        p = subprocess.run([dump_tool, data, settings, setup_file, dump], env=env,
                           capture_output=True, text=True, check=True)
        info = p.stderr.strip().splitlines()[-1].split()
        rows, cells, sheets = int(info[3]), int(info[5]), int(info[7])
        # The objects the export lists: each has its anchor name.
        with open(dump, "rb") as f:
            objects = sum(1 for line in f if line.startswith(b"D\t"))
        ours, base, rss = [], [], []
        base_xlsx = os.path.join(out_dir, name + ".baseline.xlsx")
        for _ in range(a.reps):
            _, wall, peak = run_rss([cli, "--quiet", data, settings, setup_file, ".xlsx"], env)
            ours.append(wall)
            rss.append(peak)
            out, _, _ = run_rss([baseline, dump, base_xlsx], env)
            base.append(float(out.split()[1]))
        t, b = statistics.median(ours), statistics.median(base)
        results[name] = dict(objects=objects, rows=rows, cells=cells, sheets=sheets, wall=t,
                             rss=max(rss), base=b, ratio=t / b)
        print("%-20s %8d %9d %10d %6d %9.2f %9.0f %10.2f %7.2f" % (
            name, objects, rows, cells, sheets, t, max(rss), b, t / b))
        sys.stdout.flush()
        rows_out.append(name)

    def paired_cases(cases, suffix, title, labels, key, args_a, args_b):
        """Cases that time one export (args_a) against the same export otherwise (args_b),
        interleaved; each list holds the tool's arguments before the data file and the
        extension after the setup."""
        cases = [c for c in cases if not a.only or a.only in c[0] + suffix]
        if cases:
            print()
            header = "%-20s %8s %9s %9s %9s %9s %7s" % (
                title, "objects", "rows", labels[0], "peak MB", labels[1], "ratio")
            print(header)
            print("-" * len(header))
            sys.stdout.flush()
        for name, setup, gen_args in cases:
            data = generate(out_dir, name, gen_args, settings)
            setup_file = os.path.join(out_dir, "setup", setup)
            dump = os.path.join(out_dir, name + suffix + ".dump")
            p = subprocess.run([dump_tool, data, settings, setup_file, dump, *args_a[0]],
                               env=env, capture_output=True, text=True, check=True)
            rows = int(p.stderr.strip().splitlines()[-1].split()[3])  # of all sheets
            with open(dump, "rb") as f:
                objects = sum(1 for line in f if line.startswith(b"D\t"))
            ta, tb, rss = [], [], []
            for _ in range(a.reps):
                _, wall, peak = run_rss([cli, "--quiet", *args_a[0], data, settings, setup_file,
                                         args_a[1]], env)
                ta.append(wall)
                rss.append(peak)
                _, wall, _ = run_rss([cli, "--quiet", *args_b[0], data, settings, setup_file,
                                      args_b[1]], env)
                tb.append(wall)
            t, b = statistics.median(ta), statistics.median(tb)
            results[name + suffix] = {"objects": objects, "rows": rows, "wall": t,
                                      "rss": max(rss), key: b, "ratio": t / b}
            print("%-20s %8d %9d %9.2f %9.0f %9.2f %7.2f" % (
                name, objects, rows, t, max(rss), b, t / b))
            sys.stdout.flush()

    # The .xls cases: the same export as .xls and as .xlsx.
    paired_cases(XLS_CASES, "-xls", "case (.xls)", ("xls s", "xlsx s"), "xlsx",
                 ([], ".xls"), ([], ".xlsx"))
    # The views case: the same export with every view and without.
    paired_cases(VIEW_CASES, "-views", "case (views)", ("views s", "plain s"), "plain",
                 (["--views", ALL_VIEWS], ".xlsx"), ([], ".xlsx"))
    if not a.only or a.only in BATCH_CASE[0]:
        name, setup, gen_args = BATCH_CASE
        data = generate(out_dir, name, gen_args, settings)
        setup_file = os.path.join(out_dir, "setup", setup)
        batch_dir = os.path.join(out_dir, name)
        shutil.rmtree(batch_dir, ignore_errors=True)
        os.makedirs(batch_dir)
        files = []
        for i in range(BATCH_FILES):
            files.append(os.path.join(batch_dir, "data-%02d.xml" % i))
            shutil.copy(data, files[-1])
        listing = os.path.join(batch_dir, "list.txt")
        with open(listing, "w") as f:
            f.write("\n".join(files) + "\n")
        walls = {1: [], 2: []}
        for _ in range(a.reps):
            for jobs in (1, 2):
                _, wall, _ = run_rss([cli, "--quiet", "--batch", listing, "-j", str(jobs),
                                      settings, setup_file, ".xlsx"], env)
                walls[jobs].append(wall)
        t1, t2 = statistics.median(walls[1]), statistics.median(walls[2])
        results[name] = dict(j1=t1, j2=t2, speedup=t1 / t2)
        print()
        print("%-20s %d files: -j 1 %.2f s, -j 2 %.2f s, speed-up %.2f (%d cores)" % (
            name, BATCH_FILES, t1, t2, t1 / t2, os.cpu_count() or 0))
        sys.stdout.flush()

    if not a.only or a.only in PARSE_CASE[0]:
        name, setup, gen_args = PARSE_CASE
        data = generate(out_dir, name, gen_args, os.path.join(out_dir, "settings-parse.xml"))
        setup_file = os.path.join(out_dir, "setup", setup)
        times, rss = [], []
        objects = 0
        for _ in range(a.reps):
            out, _, peak = run_rss([dump_tool, data, os.path.join(out_dir, "settings-parse.xml"),
                                    setup_file, "--parse-only"], env)
            _, secs, objects = out.split()
            times.append(float(secs))
            rss.append(peak)
        t = statistics.median(times)
        mb = os.path.getsize(data) / 1048576.0
        results[name] = dict(objects=int(objects), wall=t, rss=max(rss), mb=mb)
        print("%-20s %8d %9s %10s %6s %9.2f %9.0f %10s %7s   (%.0f MB file, load and walk)" % (
            name, int(objects), "-", "-", "-", t, max(rss), "-", "-", mb))

    # The goals.
    print()
    ok = True

    def goal(text, held):
        nonlocal ok
        ok = ok and held
        print("  %-4s %s" % ("ok" if held else "MISS", text))

    for name in rows_out:
        r = results[name]
        goal("%s: ratio to baseline %.2f <= 1.5" % (name, r["ratio"]), r["ratio"] <= 1.5)
    big, mid = results.get("item-structure-50k"), results.get("item-structure-10k")
    if big:
        goal("item-structure-50k: %.2f s <= 8 s" % big["wall"], big["wall"] <= 8)
        goal("item-structure-50k: %.0f MB <= 1024 MB peak" % big["rss"], big["rss"] <= 1024)
        goal("item-structure-50k: %d rows < 1,048,576" % big["rows"], big["rows"] < 1048576)
    if big and mid:
        g = (big["wall"] / big["objects"]) / (mid["wall"] / mid["objects"])
        goal("time per object at 50k / at 10k: %.2f <= 1.3" % g, g <= 1.3)
    huge = results.get("item-structure-100k")
    if huge:
        goal("item-structure-100k: %d rows on %d sheets, %.0f MB < 2048 MB peak"
             % (huge["rows"], huge["sheets"], huge["rss"]), huge["rss"] < 2048)
    if huge and mid:
        g = (huge["wall"] / huge["objects"]) / (mid["wall"] / mid["objects"])
        goal("time per object at 100k / at 10k: %.2f <= 1.3" % g, g <= 1.3)
    for name, _, _ in XLS_CASES:
        r = results.get(name + "-xls")
        if r:
            goal("%s .xls: %.2f s <= %.2f s of the .xlsx" % (name, r["wall"], r["xlsx"]),
                 r["wall"] <= r["xlsx"])
            goal("%s .xls: %d rows <= 65,536" % (name, r["rows"]), r["rows"] <= 65536)
    for name, _, _ in VIEW_CASES:
        r = results.get(name + "-views")
        if r:
            goal("%s with all views: %.2f s <= 1.5 x %.2f s without (%.2f)"
                 % (name, r["wall"], r["plain"], r["ratio"]), r["ratio"] <= 1.5)
    bt = results.get(BATCH_CASE[0])
    if bt:
        goal("%s: speed-up of -j 2 over -j 1 %.2f >= 1.6" % (BATCH_CASE[0], bt["speedup"]),
             bt["speedup"] >= 1.6)
    p = results.get(PARSE_CASE[0])
    if p:
        goal("parse and walk of %.0f MB: %.2f s <= 3 s" % (p["mb"], p["wall"]), p["wall"] <= 3)
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
