#!/usr/bin/python3
"""Measures exports against their baselines: the time the file writer alone needs for the same cells.

    bench/run_bench.py --build BUILD_DIR [--out out/bench] [--reps 5] [--only NAME]

The output starts with the machine (CPU model and cores, memory, load at the start). For each
case: generates its data file (once; kept while the arguments stay the same), runs
orv-model-dump once, which builds the export as the library does, writes its dump and saves it,
timing each phase (load, walk, build, save); then runs the export (orv-export-excel) and its
baseline in turn, export, baseline, export, baseline, ... (--reps pairs). The ratio of a case is
the median of the ratios of its pairs.

  .xlsx cases   the baseline is orv-baseline: the dump replayed through plain libxlsxwriter
                calls (the writing alone is timed, and the most memory the writer took over
                what the dump holds is given beside the export's peak).
  .xls cases    the baseline is orv-baseline-xls: the dump of the .xls export laid out in the
                model without the builder and saved by the project's .xls saver (the save alone
                is timed).
  views         the largest item structure with every view (--views level,flat,where-used,
                outline) against the same export without views.
  linearity     the item structures of 10,000 to 100,000 parts (from the .xlsx cases): time
                per cell of the export and of the writer, peak memory against the data file's
                size; a plot of time and memory against parts (bench.png).
  batch         50 data files of 1,000 objects in one --batch run, on one thread and on two.
  parse         a data file of about 100 MB loaded and walked, nothing built.

Ends with the goals and whether each one holds; the exit status is 1 when one does not. All
figures also go to results.json in the output folder, the plot to bench.png beside it.
"""

import argparse
import datetime
import json
import os
import re
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


def item_structure(parts, depth=7):
    return ("item-structure.xml",
            ["--kind", "item", "--objects", str(parts), "--depth", str(depth), "--fanout", "4"]
            + ITEM_MIX)


CASES = [
    # name, (setup, generator arguments)
    ("item-structure-1k", item_structure(1000, depth=6)),
    ("item-structure-10k", item_structure(10000)),
    ("item-structure-20k", item_structure(20000)),
    ("item-structure-50k", item_structure(50000)),
    # Past one sheet's 1,048,576 rows: the property panel continues on further sheets.
    ("item-structure-100k", item_structure(100000)),
    # A collection lists its top-level objects; each one here has a part list of one child.
    ("item-collection-50k", ("item-collection.xml",
                             ["--kind", "item", "--mode", "collection", "--objects", "50000",
                              "--depth", "2", "--fanout", "1"] + ITEM_MIX)),
    ("doc-structure-20k", ("doc-structure.xml",
                           ["--kind", "document", "--objects", "20000", "--depth", "7",
                            "--fanout", "4"] + DOC_MIX)),
]
# The item structures whose time per cell must stay the same (the .xlsx cases of these names).
LINEAR_CASES = ["item-structure-10k", "item-structure-20k", "item-structure-50k",
                "item-structure-100k"]
# Excel 97-2003 exports: the smallest item structure, the largest that fits one sheet of the
# format's 65,536 rows (about 60,000 rows), and one that continues on three more sheets.
XLS_CASES = [
    ("item-structure-1k", item_structure(1000, depth=6)),
    ("item-structure-4800", item_structure(4800)),
    ("item-structure-20k", item_structure(20000)),
]
# The largest item structure with all views, against the same export without them.
VIEW_CASES = [("item-structure-50k", item_structure(50000))]
ALL_VIEWS = "level,flat,where-used,outline"
# One --batch run over BATCH_FILES copies of a data file of this case, -j 1 against -j 2.
BATCH_CASE = ("batch-50x1k", item_structure(1000, depth=6))
BATCH_FILES = 50
PARSE_CASE = ("parse-100mb", ("item-structure.xml",
                              ["--kind", "item", "--mb", "100", "--depth", "5", "--fanout", "4",
                               "--attrs", "6"]))

# The goals.
MAX_RATIO = 1.2         # export over its baseline, every case
MAX_VIEWS_RATIO = 1.5   # with all views over without
MAX_SPREAD = 1.15       # largest over smallest export time per cell of the linearity cases
PEAK_PER_DATA_MB = 3    # peak memory of an export: at most 3 x the data file's MB ...
PEAK_EXTRA_MB = 50      # ... plus 50 MB
MAX_50K_SECONDS = 8
MIN_BATCH_SPEEDUP = 1.6
MAX_PARSE_SECONDS = 3

PHASES = re.compile(r"^objects (\d+) rows (\d+) cells (\d+) sheets (\d+) \| load ([\d.]+) s, "
                    r"walk ([\d.]+) s, build ([\d.]+) s, dump ([\d.]+) s, save ([\d.]+) s$")


def run_rss(cmd, env=None):
    """Runs cmd; returns (stdout, wall seconds, peak resident memory in MB)."""
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


def machine():
    """The CPU's model name and cores, the memory, and the load when the run starts."""
    cpu = "unknown"
    try:
        with open("/proc/cpuinfo") as f:
            for line in f:
                if line.startswith("model name"):
                    cpu = line.split(":", 1)[1].strip()
                    break
    except OSError:
        pass
    mem_gb = 0.0
    try:
        with open("/proc/meminfo") as f:
            for line in f:
                if line.startswith("MemTotal:"):
                    mem_gb = int(line.split()[1]) / 1048576.0
                    break
    except OSError:
        pass
    commit = subprocess.run(["git", "-C", ROOT, "rev-parse", "--short", "HEAD"],
                            capture_output=True, text=True).stdout.strip()
    return {"cpu": cpu, "cores": os.cpu_count() or 0, "memory_gb": round(mem_gb, 1),
            "load_at_start": [round(x, 2) for x in os.getloadavg()], "commit": commit or None,
            "date": datetime.datetime.now().isoformat(timespec="seconds")}


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


class Bench:
    def __init__(self, a):
        self.a = a
        self.out_dir = os.path.abspath(a.out)
        os.makedirs(self.out_dir, exist_ok=True)
        build = os.path.abspath(a.build)
        self.cli = os.path.join(build, "orv-export-excel")
        self.dump_tool = os.path.join(build, "bench", "orv-model-dump")
        self.baseline = os.path.join(build, "bench", "orv-baseline")
        self.baseline_xls = os.path.join(build, "bench", "orv-baseline-xls")
        # The log of the exports goes into the output folder, never into the user's own.
        appdata = os.path.join(self.out_dir, "appdata")
        os.makedirs(appdata, exist_ok=True)
        self.env = dict(os.environ, APPDATA=appdata, ALLUSERSPROFILE=appdata)
        self.settings = os.path.join(self.out_dir, "settings.xml")
        self.results = {"machine": machine(), "reps": a.reps, "cases": {}, "xls": {},
                        "views": {}, "linearity": None, "batch": None, "parse": None,
                        "goals": [], "plot": None}

    def wanted(self, name):
        return not self.a.only or self.a.only in name

    @staticmethod
    def flush():
        sys.stdout.flush()

    def prepare(self, name, inputs, suffix, dump_args, saved_ext):
        """Generates the case's data; runs orv-model-dump once (dump, save, phases). Returns the
        data file, the setup file, the dump and the facts of the export."""
        setup, gen_args = inputs
        data = generate(self.out_dir, name, gen_args, self.settings)
        setup_file = os.path.join(self.out_dir, "setup", setup)
        dump = os.path.join(self.out_dir, name + suffix + ".dump")
        saved = os.path.join(self.out_dir, name + suffix + ".model" + saved_ext)
        p = subprocess.run([self.dump_tool, data, self.settings, setup_file, dump, *dump_args,
                            "--save", saved], env=self.env, capture_output=True, text=True)
        if p.returncode != 0:
            sys.exit("failed: orv-model-dump on %s:\n%s" % (name, p.stderr))
        m = PHASES.match(p.stderr.strip().splitlines()[-1])
        if not m:
            sys.exit("orv-model-dump wrote no phases for %s:\n%s" % (name, p.stderr))
        os.remove(saved)
        in_file, rows, cells, sheets = (int(x) for x in m.group(1, 2, 3, 4))
        load, walk, build, _, save = (float(x) for x in m.group(5, 6, 7, 8, 9))
        # The objects the export lists (of a collection, the top level): each has its anchor name.
        with open(dump, "rb") as f:
            listed = sum(1 for line in f if line.startswith(b"D\t"))
        facts = {"objects": listed, "objects_in_file": in_file, "rows": rows, "cells": cells,
                 "sheets": sheets,
                 "data_mb": os.path.getsize(data) / 1048576.0,
                 "phases": {"load": load, "walk": walk, "build": build, "save": save}}
        return data, setup_file, dump, facts

    def paired(self, export_cmd, baseline_cmd, baseline_times_itself):
        """export, baseline, export, baseline, ...: the medians of both and of their ratios.
        A baseline that times itself prints "write SECONDS"; else its wall time counts."""
        ex, ba, ratios, ex_rss, ba_rss, writer_mb = [], [], [], [], [], []
        for _ in range(self.a.reps):
            _, wall, peak = run_rss(export_cmd, self.env)
            ex.append(wall)
            ex_rss.append(peak)
            out, wall, peak = run_rss(baseline_cmd, self.env)
            ba.append(float(out.split()[1]) if baseline_times_itself else wall)
            ba_rss.append(peak)
            # The writer's own peak memory, where the baseline reports it.
            m = re.search(r"^writer_mb ([\d.]+)$", out, re.M)
            if m:
                writer_mb.append(float(m.group(1)))
            ratios.append(ex[-1] / ba[-1])
        return {"export_s": statistics.median(ex), "baseline_s": statistics.median(ba),
                "ratio": statistics.median(ratios), "peak_mb": max(ex_rss),
                "baseline_peak_mb": max(ba_rss),
                "writer_peak_mb": max(writer_mb) if writer_mb else None,
                "export_runs": ex, "baseline_runs": ba, "ratios": ratios}

    # --------------------------------------------------------------------------------------------
    # The tables

    ROW = ("%-20s %7s %9s %9s %6s %7s %8s %7s %8s %6s   %5s %5s %5s %5s")

    def table_head(self, title, baseline):
        print()
        head = self.ROW % (title, "objects", "rows", "cells", "sheets", "data MB", "export s",
                           "peak MB", baseline, "ratio", "load", "walk", "build", "save")
        print(head)
        print("-" * len(head))
        self.flush()

    def table_row(self, name, r):
        ph = r["phases"]
        print(self.ROW % (name, r["objects"], r["rows"], r["cells"], r["sheets"],
                          "%.1f" % r["data_mb"], "%.2f" % r["export_s"], "%.0f" % r["peak_mb"],
                          "%.2f" % r["baseline_s"], "%.2f" % r["ratio"], "%.2f" % ph["load"],
                          "%.2f" % ph["walk"], "%.2f" % ph["build"], "%.2f" % ph["save"]))
        self.flush()

    def run_xlsx_cases(self):
        cases = [c for c in CASES if self.wanted(c[0])]
        if not cases:
            return
        self.table_head("case (.xlsx)", "writer s")
        for name, inputs in cases:
            data, setup, dump, r = self.prepare(name, inputs, "", [], ".xlsx")
            out = os.path.join(self.out_dir, name + ".baseline.xlsx")
            r.update(self.paired([self.cli, "--quiet", data, self.settings, setup, ".xlsx"],
                                 [self.baseline, dump, out], True))
            self.results["cases"][name] = r
            self.table_row(name, r)

    def run_xls_cases(self):
        cases = [c for c in XLS_CASES if self.wanted(c[0] + "-xls")]
        if not cases:
            return
        self.table_head("case (.xls)", "saver s")
        for name, inputs in cases:
            data, setup, dump, r = self.prepare(name, inputs, "-xls", ["--xls"], ".xls")
            out = os.path.join(self.out_dir, name + ".baseline.xls")
            r.update(self.paired([self.cli, "--quiet", data, self.settings, setup, ".xls"],
                                 [self.baseline_xls, dump, out], True))
            self.results["xls"][name] = r
            self.table_row(name, r)

    def run_view_cases(self):
        cases = [c for c in VIEW_CASES if self.wanted(c[0] + "-views")]
        if not cases:
            return
        self.table_head("case (views)", "plain s")
        for name, inputs in cases:
            data, setup, _, r = self.prepare(name, inputs, "-views", ["--views", ALL_VIEWS],
                                             ".xlsx")
            r.update(self.paired(
                [self.cli, "--quiet", "--views", ALL_VIEWS, data, self.settings, setup, ".xlsx"],
                [self.cli, "--quiet", data, self.settings, setup, ".xlsx"], False))
            self.results["views"][name] = r
            self.table_row(name, r)

    def run_linearity(self):
        rows = []
        for name in LINEAR_CASES:
            r = self.results["cases"].get(name)
            if not r:
                continue
            rows.append({"case": name, "parts": r["objects"], "cells": r["cells"],
                         "export_s": r["export_s"], "writer_s": r["baseline_s"],
                         "export_us_per_cell": r["export_s"] / r["cells"] * 1e6,
                         "writer_us_per_cell": r["baseline_s"] / r["cells"] * 1e6,
                         "peak_mb": r["peak_mb"], "writer_peak_mb": r["baseline_peak_mb"],
                         "data_mb": r["data_mb"]})
        if len(rows) < 2:
            return
        print()
        row = "%-20s %7s %9s %9s %9s %9s %9s %8s %8s %10s"
        head = row % ("linearity", "parts", "cells", "export s", "writer s", "export us",
                      "writer us", "peak MB", "data MB", "peak goal")
        print(head)
        print(row % ("", "", "", "", "", "per cell", "per cell", "", "", "MB"))
        print("-" * len(head))
        for x in rows:
            print(row % (x["case"], x["parts"], x["cells"], "%.2f" % x["export_s"],
                         "%.2f" % x["writer_s"], "%.3f" % x["export_us_per_cell"],
                         "%.3f" % x["writer_us_per_cell"], "%.0f" % x["peak_mb"],
                         "%.1f" % x["data_mb"], "%.0f" % peak_limit(x["data_mb"])))
        ex = [x["export_us_per_cell"] for x in rows]
        wr = [x["writer_us_per_cell"] for x in rows]
        spread = max(ex) / min(ex)
        print("time per cell, largest over smallest: export %.3f, writer %.3f"
              % (spread, max(wr) / min(wr)))
        self.results["linearity"] = {"rows": rows, "export_spread": spread,
                                     "writer_spread": max(wr) / min(wr)}
        self.flush()
        self.plot(rows)

    def plot(self, rows):
        """Time and peak memory against parts, of the export and of the writer (bench.png)."""
        try:
            import matplotlib
            matplotlib.use("Agg")
            import matplotlib.pyplot as plt
            import matplotlib.ticker
        except ImportError:
            print("no plot: matplotlib is missing (Debian package python3-matplotlib; "
                  "make bench installs it)")
            return
        parts = [x["parts"] for x in rows]
        fig, (ax_t, ax_m) = plt.subplots(1, 2, figsize=(11, 4.5))
        ax_t.plot(parts, [x["export_s"] for x in rows], "o-", label="export")
        ax_t.plot(parts, [x["writer_s"] for x in rows], "s-", label="writer alone")
        ax_t.set_xlabel("parts")
        ax_t.set_ylabel("seconds (median)")
        ax_t.set_title("Time")
        ax_m.plot(parts, [x["peak_mb"] for x in rows], "o-", label="export")
        ax_m.plot(parts, [x["writer_peak_mb"] for x in rows], "s-",
                  label="writer alone (dump in memory)")
        ax_m.plot(parts, [peak_limit(x["data_mb"]) for x in rows], "k--",
                  label="goal: 3 x data + 50 MB")
        ax_m.set_xlabel("parts")
        ax_m.set_ylabel("peak resident MB")
        ax_m.set_title("Memory")
        for ax in (ax_t, ax_m):
            ax.xaxis.set_major_formatter(matplotlib.ticker.StrMethodFormatter("{x:,.0f}"))
            ax.set_xlim(left=0)
            ax.set_ylim(bottom=0)
            ax.grid(True, alpha=0.3)
            ax.legend()
        mc = self.results["machine"]
        fig.suptitle("Item structures, .xlsx: %s, %d cores" % (mc["cpu"], mc["cores"]))
        fig.tight_layout()
        path = os.path.join(self.out_dir, "bench.png")
        fig.savefig(path, dpi=100)
        plt.close(fig)
        self.results["plot"] = path
        print("plot: %s" % path)

    def run_batch(self):
        if not self.wanted(BATCH_CASE[0]):
            return
        name, (setup, gen_args) = BATCH_CASE
        data = generate(self.out_dir, name, gen_args, self.settings)
        setup_file = os.path.join(self.out_dir, "setup", setup)
        batch_dir = os.path.join(self.out_dir, name)
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
        for _ in range(self.a.reps):
            for jobs in (1, 2):
                _, wall, _ = run_rss([self.cli, "--quiet", "--batch", listing, "-j", str(jobs),
                                      self.settings, setup_file, ".xlsx"], self.env)
                walls[jobs].append(wall)
        t1, t2 = statistics.median(walls[1]), statistics.median(walls[2])
        self.results["batch"] = {"files": BATCH_FILES, "j1_s": t1, "j2_s": t2, "speedup": t1 / t2}
        print()
        print("%-20s %d files: -j 1 %.2f s, -j 2 %.2f s, speed-up %.2f (%d cores)" % (
            name, BATCH_FILES, t1, t2, t1 / t2, os.cpu_count() or 0))
        self.flush()

    def run_parse(self):
        if not self.wanted(PARSE_CASE[0]):
            return
        name, (setup, gen_args) = PARSE_CASE
        settings = os.path.join(self.out_dir, "settings-parse.xml")
        data = generate(self.out_dir, name, gen_args, settings)
        setup_file = os.path.join(self.out_dir, "setup", setup)
        times, rss = [], []
        objects = 0
        for _ in range(self.a.reps):
            out, _, peak = run_rss([self.dump_tool, data, settings, setup_file, "--parse-only"],
                                   self.env)
            _, secs, objects = out.split()
            times.append(float(secs))
            rss.append(peak)
        t = statistics.median(times)
        mb = os.path.getsize(data) / 1048576.0
        self.results["parse"] = {"objects": int(objects), "seconds": t, "peak_mb": max(rss),
                                 "data_mb": mb}
        print()
        print("%-20s %d objects, %.0f MB file loaded and walked: %.2f s, peak %.0f MB" % (
            name, int(objects), mb, t, max(rss)))
        self.flush()

    # --------------------------------------------------------------------------------------------
    # The goals

    def goals(self):
        print()
        print("goals")
        ok = True

        def goal(text, held):
            nonlocal ok
            ok = ok and held
            self.results["goals"].append({"goal": text, "held": held})
            print("  %-4s %s" % ("ok" if held else "MISS", text))

        def memory(label, r):
            limit = peak_limit(r["data_mb"])
            # What libxlsxwriter alone takes for the same calls, beside the export's peak.
            alone = ("" if r.get("writer_peak_mb") is None
                     else " (the writer alone: %.0f MB)" % r["writer_peak_mb"])
            goal("%s: peak %.0f MB <= 3 x %.1f MB + 50 = %.0f MB%s"
                 % (label, r["peak_mb"], r["data_mb"], limit, alone), r["peak_mb"] <= limit)

        for name, r in self.results["cases"].items():
            goal("%s: %.2f s, %.2f x the writer's %.2f s (median of %d pairs) <= %.1f"
                 % (name, r["export_s"], r["ratio"], r["baseline_s"], len(r["ratios"]),
                    MAX_RATIO), r["ratio"] <= MAX_RATIO)
            memory(name, r)
        big = self.results["cases"].get("item-structure-50k")
        if big:
            goal("item-structure-50k: %.2f s <= %d s" % (big["export_s"], MAX_50K_SECONDS),
                 big["export_s"] <= MAX_50K_SECONDS)
            goal("item-structure-50k: %d rows < 1,048,576" % big["rows"], big["rows"] < 1048576)
        lin = self.results["linearity"]
        if lin:
            goal("time per cell at %s parts: largest %.2f x the smallest <= %.2f"
                 % (", ".join("{:,}".format(x["parts"]) for x in lin["rows"]),
                    lin["export_spread"], MAX_SPREAD), lin["export_spread"] <= MAX_SPREAD)
        for name, r in self.results["xls"].items():
            goal("%s .xls: %.2f s, %.2f x the .xls saver's %.2f s (median of %d pairs) <= %.1f"
                 % (name, r["export_s"], r["ratio"], r["baseline_s"], len(r["ratios"]),
                    MAX_RATIO), r["ratio"] <= MAX_RATIO)
            memory(name + " .xls", r)
        for name, r in self.results["views"].items():
            goal("%s with all views: %.2f s, %.2f x the %.2f s without <= %.1f"
                 % (name, r["export_s"], r["ratio"], r["baseline_s"], MAX_VIEWS_RATIO),
                 r["ratio"] <= MAX_VIEWS_RATIO)
            memory(name + " with all views", r)
        bt = self.results["batch"]
        if bt:
            goal("%s: speed-up of -j 2 over -j 1 %.2f >= %.1f"
                 % (BATCH_CASE[0], bt["speedup"], MIN_BATCH_SPEEDUP),
                 bt["speedup"] >= MIN_BATCH_SPEEDUP)
        p = self.results["parse"]
        if p:
            goal("parse and walk of %.0f MB: %.2f s <= %d s"
                 % (p["data_mb"], p["seconds"], MAX_PARSE_SECONDS),
                 p["seconds"] <= MAX_PARSE_SECONDS)
        return ok

    def main(self):
        mc = self.results["machine"]
        print("orvExportExcel bench, %s, commit %s" % (mc["date"], mc["commit"] or "unknown"))
        print("CPU: %s, %d cores; %.1f GB memory; load at start %.2f %.2f %.2f"
              % (mc["cpu"], mc["cores"], mc["memory_gb"], *mc["load_at_start"]))
        print("%d paired runs a case (export, baseline, ...): medians; ratio: median of the "
              "pairs' ratios; phases: one run of orv-model-dump" % self.a.reps)
        self.flush()
        self.run_xlsx_cases()
        self.run_xls_cases()
        self.run_view_cases()
        self.run_linearity()
        self.run_batch()
        self.run_parse()
        ok = self.goals()
        path = os.path.join(self.out_dir, "results.json")
        with open(path, "w") as f:
            json.dump(self.results, f, indent=1)
        print()
        print("figures: %s" % path)
        return 0 if ok else 1


def peak_limit(data_mb):
    return PEAK_PER_DATA_MB * data_mb + PEAK_EXTRA_MB


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--build", required=True)
    ap.add_argument("--out", default=os.path.join(ROOT, "out", "bench"))
    ap.add_argument("--reps", type=int, default=5)
    ap.add_argument("--only", help="only the cases whose name holds this text (the .xls cases "
                                   "end in -xls, the views case in -views)")
    return Bench(ap.parse_args()).main()


if __name__ == "__main__":
    sys.exit(main())
