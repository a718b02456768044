"""Batch exports: one list of data files, one settings file and setup, several threads."""
import os
import re
import shutil
import signal
import subprocess
import sys
import time

from e2e_common import DATE, CliCase, Config
from processes import caught_signals

SETUP = ("<SETUP><PROJECT>Batch</PROJECT><WORKBOOK_NAME></WORKBOOK_NAME><EXPORTED_BY>me"
         "</EXPORTED_BY><EXPORT_DATE></EXPORT_DATE><OBJECT_TYPE>Item</OBJECT_TYPE>"
         "<SPACE_TYPE>COLLECTION</SPACE_TYPE></SETUP>")


def write_collection(path, n, prefix):
    with open(path, "w", encoding="utf-8") as f:
        f.write("<Root_Element>")
        for i in range(n):
            f.write('<Item id="%s%d" revision="A" description="item %d of %s" status="s"/>'
                    % (prefix, i, i, prefix))
        f.write("</Root_Element>")


def workbook_cells(path):
    """Every sheet's name and rows of values (openpyxl read-only, or xlrd for an .xls); the
    export's date read as "<date>"."""
    def masked(v):
        return re.sub(DATE, "<date>", v) if isinstance(v, str) else v
    if path.endswith(".xls"):
        import xlrd
        book = xlrd.open_workbook(path)
        return [(sh.name, [tuple(masked(v) for v in sh.row_values(r)) for r in range(sh.nrows)])
                for sh in book.sheets()]
    import openpyxl
    wb = openpyxl.load_workbook(path, read_only=True)
    out = [(ws.title, [tuple(masked(v) for v in row) for row in ws.iter_rows(values_only=True)])
           for ws in wb.worksheets]
    wb.close()
    return out


class BatchCase(CliCase):
    def setUp(self):
        super().setUp()
        self.data_dir = os.path.join(self.tmp, "data")
        os.makedirs(self.data_dir)

    def run_batch(self, *args, input_text=None):
        env = dict(os.environ, APPDATA=self.tmp)
        return subprocess.run([Config.cli, "-q", "--batch", *args], input=input_text,
                              capture_output=True, text=True, env=env, timeout=600,
                              stdin=None if input_text is not None else subprocess.DEVNULL)

    def masked_log(self):
        return sorted(re.sub(DATE, "<date>", line) for line in self.log_lines())


class TestBatch(BatchCase):
    def make_files(self):
        """Ten data files: eight good ones of different sizes, a malformed one and one whose
        root holds the wrong kind of object."""
        good, broken = [], []
        for i in range(8):
            path = os.path.join(self.data_dir, "good-%d.xml" % i)
            write_collection(path, 3 + 7 * i, "G%d-" % i)
            good.append(path)
        bad = os.path.join(self.data_dir, "broken-malformed.xml")
        with open(bad, "w") as f:
            f.write('<Root_Element><Item id="x" revision="A"</Root_Element>')
        broken.append(bad)
        bad = os.path.join(self.data_dir, "broken-kind.xml")
        with open(bad, "w") as f:
            f.write('<Root_Element><Folder id="F1" name="f"/></Root_Element>')
        broken.append(bad)
        files = good[:4] + broken[:1] + good[4:] + broken[1:]
        return good, broken, files

    def test_ten_files_two_broken_on_four_threads(self):
        good, broken, files = self.make_files()
        listing = os.path.join(self.tmp, "list.txt")
        with open(listing, "w") as f:
            f.write("# tonight's exports\n\n" + "\n".join(files) + "\n")
        r = self.run_batch(listing, "-j", "4", self.settings, SETUP, ".xlsx")
        self.assertEqual(r.returncode, 1, r.stderr)
        lines = r.stdout.splitlines()
        self.assertEqual(len(lines), 11, r.stdout)
        self.assertEqual(lines[-1], "8 of 10 exported, 2 failed")
        workbooks = [p[:-4] + ".xlsx" for p in good]
        self.assertEqual(sorted(l for l in lines[:-1] if not l.startswith("FAILED ")),
                         sorted(workbooks))
        failed = sorted(l for l in lines[:-1] if l.startswith("FAILED "))
        self.assertEqual(len(failed), 2)
        for line, path in zip(failed, sorted(broken)):
            self.assertTrue(line.startswith("FAILED " + path + ": "), line)
        # The log of the batch: the lines of the two broken files, each one whole.
        batch_log = self.masked_log()
        self.assertGreaterEqual(len(batch_log), 2)
        for line in self.log_lines():
            self.assertRegex(line, "^[^\r\n]+ " + DATE + r"( in \S.*)?$")
        os.remove(os.path.join(self.export_dir, "ExportExcel.log"))
        # Each good file exported alone gives the same workbook; each broken one the same
        # log lines.
        single_dir = os.path.join(self.tmp, "single")
        os.makedirs(single_dir)
        for path, workbook in zip(good, workbooks):
            s = self.run_cli("-q", "-o", single_dir, path, self.settings, SETUP, ".xlsx")
            self.assertEqual(s.returncode, 0, s.stderr)
            alone = os.path.join(single_dir, os.path.basename(workbook))
            self.assertEqual(s.stdout.strip(), alone)
            self.assertEqual(workbook_cells(workbook), workbook_cells(alone))
        for path in broken:
            s = self.run_cli("-q", path, self.settings, SETUP, ".xlsx")
            self.assertEqual(s.returncode, 1)
        self.assertEqual(batch_log, self.masked_log())
        self.assertEqual(sorted(os.listdir(self.data_dir)),
                         sorted([os.path.basename(p) for p in files + workbooks]))

    def test_terminal_shows_the_batch_progress_and_clears_it_before_each_result(self):
        good, _, _ = self.make_files()
        listing = os.path.join(self.tmp, "list.txt")
        with open(listing, "w") as f:
            f.write("\n".join(good) + "\n")
        code, out = self.run_on_terminal("--batch", listing, "-j", "1", self.settings, SETUP,
                                         ".xlsx")
        self.assertEqual(code, 0, out)
        self.assertRegex(out, r"Batch: \d of 8 done; exporting \S+\.xml")
        # Every result line starts on a cleared line, never behind the progress text.
        for path in good:
            workbook = path[:-4] + ".xlsx"
            self.assertIn(workbook, out)
            before = out[:out.index(workbook)]
            self.assertTrue(before.endswith("\r\x1b[K") or before.endswith("\n"),
                            repr(before[-80:]))
        self.assertTrue(out.rstrip().endswith("8 of 8 exported, 0 failed"), repr(out[-120:]))
        summary = out[:out.rindex("8 of 8 exported")]
        self.assertTrue(summary.endswith("\r\x1b[K") or summary.endswith("\n"),
                        repr(summary[-80:]))

    def test_list_from_standard_input(self):
        good, broken, files = self.make_files()
        text = "\n".join(["", "  " + good[0] + "  ", "# " + good[1], good[2], ""])
        r = self.run_batch("-", "-j", "2", self.settings, SETUP, ".xlsx", input_text=text)
        self.assertEqual(r.returncode, 0, r.stderr)
        lines = r.stdout.splitlines()
        self.assertEqual(sorted(lines[:-1]), sorted([good[0][:-4] + ".xlsx",
                                                     good[2][:-4] + ".xlsx"]))
        self.assertEqual(lines[-1], "2 of 2 exported, 0 failed")
        self.assertFalse(os.path.exists(good[1][:-4] + ".xlsx"))
        self.assertEqual(self.log_lines(), [])

    def test_output_folder_and_extension_without_dot(self):
        good, broken, files = self.make_files()
        out = os.path.join(self.tmp, "out")
        os.makedirs(out)
        r = self.run_batch("-", "-o", out, self.settings, SETUP, "xlsx",
                           input_text="\n".join(good[:3]))
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertEqual(sorted(os.listdir(out)), ["good-0xlsx", "good-1xlsx", "good-2xlsx"])
        notes = [l for l in r.stderr.splitlines() if "note:" in l]
        self.assertEqual(len(notes), 1, r.stderr)
        self.assertRegex(notes[0], "^orv-export-excel: note: the extension 'xlsx' has no leading "
                                   "dot and is used as given: the workbook is '" +
                                   re.escape(out) + "/good-[012]xlsx'$")

    def test_usage_errors(self):
        good, broken, files = self.make_files()
        for args in [("-", self.settings, "-"),                       # two readers of stdin
                     ("-", "-j", "0", self.settings, SETUP),          # no thread
                     ("-", self.settings),                            # no setup
                     ("-", good[0], self.settings, SETUP, ".xlsx"),   # a data file too
                     (os.path.join(self.tmp, "no-list.txt"), self.settings, SETUP)]:
            with self.subTest(args=args):
                r = self.run_batch(*args, input_text="")
                self.assertEqual(r.returncode, 2, r.stderr)
                self.assertEqual(r.stdout, "")
        self.assertEqual(sorted(os.listdir(self.data_dir)),
                         sorted(os.path.basename(p) for p in files))

    def test_empty_list_exports_nothing(self):
        r = self.run_batch("-", self.settings, SETUP, ".xlsx", input_text="# nothing\n\n")
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertEqual(r.stdout, "0 of 0 exported, 0 failed\n")


class TestBatchReusesMemory(BatchCase):
    def test_a_structure_past_4096_records_twice_in_one_batch_is_the_same_as_alone(self):
        # The exports of a batch keep the memory they free for the ones after them; the
        # detail blocks of this structure pass the point where an export alone gives its freed
        # memory back (every 4,096 records).
        data = os.path.join(self.data_dir, "structure-a.xml")
        settings = os.path.join(self.data_dir, "settings.xml")
        setup_dir = os.path.join(self.data_dir, "setup")
        subprocess.run([sys.executable, os.path.join(Config.source, "bench", "gen_data.py"),
                        data, "--objects", "5000", "--depth", "6", "--settings", settings,
                        "--setup-dir", setup_dir], check=True, capture_output=True)
        setup = os.path.join(setup_dir, "item-structure.xml")
        second = os.path.join(self.data_dir, "structure-b.xml")
        shutil.copy(data, second)
        listing = os.path.join(self.tmp, "list.txt")
        with open(listing, "w") as f:
            f.write(data + "\n" + second + "\n")
        single_dir = os.path.join(self.tmp, "single")
        os.makedirs(single_dir)
        for ext in (".xlsx", ".xls"):
            with self.subTest(ext=ext):
                r = self.run_batch(listing, "-j", "1", settings, setup, ext)
                self.assertEqual(r.returncode, 0, r.stderr)
                self.assertEqual(r.stdout.splitlines()[-1], "2 of 2 exported, 0 failed")
                s = self.run_cli("-q", "-o", single_dir, data, settings, setup, ext)
                self.assertEqual(s.returncode, 0, s.stderr)
                alone = workbook_cells(os.path.join(single_dir, "structure-a" + ext))
                self.assertGreater(sum(len(rows) for _, rows in alone), 50000)
                self.assertEqual(workbook_cells(data[:-4] + ext), alone)
                self.assertEqual(workbook_cells(second[:-4] + ext), alone)


class TestBatchInterrupted(BatchCase):
    def test_interrupt_starts_no_new_export_and_leaves_no_temporary_file(self):
        if not os.path.isdir("/proc/self"):
            self.skipTest("needs /proc to see when the tool listens for signals")
        files = []
        for i in range(6):
            path = os.path.join(self.data_dir, "big-%d.xml" % i)
            write_collection(path, 20000, "B%d-" % i)
            files.append(path)
        env = dict(os.environ, APPDATA=self.tmp)
        p = subprocess.Popen([Config.cli, "-q", "--batch", "-", "-j", "2", self.settings, SETUP,
                              ".xlsx"], env=env, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE, text=True)
        # The list is written once the tool listens for the signals; the signal follows at once,
        # long before the first two exports of 20,000 objects can end.
        deadline = time.monotonic() + 120
        while not {signal.SIGINT, signal.SIGTERM} <= (caught_signals(p.pid) or set()):
            self.assertIsNone(p.poll(), "the tool ended before it listened for signals")
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.002)
        p.stdin.write("\n".join(files) + "\n")
        p.stdin.close()
        p.stdin = None
        time.sleep(0.2)
        p.send_signal(signal.SIGINT)
        out, err = p.communicate(timeout=600)
        self.assertEqual(p.returncode, 128 + signal.SIGINT, err)
        self.assertIn("orv-export-excel: interrupted, no further export started", err)
        lines = out.splitlines()
        written = [l for l in lines[:-1] if not l.startswith("INTERRUPTED ")]
        self.assertRegex(lines[-1], r"^\d of 6 exported, 0 failed, \d not exported$")
        # At most the two running exports were reached; none of the others started.
        self.assertLessEqual(len(lines) - 1, 2, out)
        self.assertEqual(int(lines[-1].split()[0]), len(written))
        # Nothing but the data files and the workbooks that were finished before the signal.
        self.assertEqual(sorted(os.listdir(self.data_dir)),
                         sorted([os.path.basename(f) for f in files] +
                                [os.path.basename(w) for w in written]))
        log = self.log_lines()
        self.assertLessEqual(len(log), 2, log)
        for line in log:
            self.assertRegex(line, "User interrupt occurred 18 " + DATE + " in ")
