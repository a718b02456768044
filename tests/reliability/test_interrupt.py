"""Interrupting the command-line tool with SIGINT or SIGTERM.

What the tool promises once it listens for the signals: a signal ends the export in exactly one
of two ways.
- Interrupted: exit status 128 + the signal's number, one "User interrupt occurred" log line,
  no workbook, no temporary file, the data folder as it was before the run.
- Already finished (the export had passed its last point of checking for a stop): exit status 0,
  the whole workbook on disk, nothing logged.
Anything else (killed by the signal, another exit status, debris) fails.

The signal is sent only once the process has installed its handlers (read from
/proc/PID/status), and then at fractions of an uninterrupted export's time, so that both endings
are reached, including the moments close to the end of the export.

Usage: test_interrupt.py --cli PATH --source DIR
"""
import argparse
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
import testreport  # noqa: E402
from processes import caught_signals  # noqa: E402

CLI = None
SOURCE = None
ITEMS = 20000

SETUP = ("<SETUP><PROJECT>p</PROJECT><WORKBOOK_NAME>big</WORKBOOK_NAME><EXPORTED_BY>x"
         "</EXPORTED_BY><EXPORT_DATE/><OBJECT_TYPE>Item</OBJECT_TYPE>"
         "<SPACE_TYPE>COLLECTION</SPACE_TYPE></SETUP>")

# Moments of the signal, as fractions of an uninterrupted export's duration; the signals
# alternate, so each is sent early (certain to interrupt) and late (close to the end).
FRACTIONS = (0.0, 0.05, 0.3, 0.6, 0.85, 0.95, 1.0, 1.05, 1.2)


def write_collection(path, n):
    with open(path, "w", encoding="utf-8") as f:
        f.write("<Root_Element>")
        for i in range(n):
            f.write('<Item id="I%d" revision="A" description="item %d" status="s"/>' % (i, i))
        f.write("</Root_Element>")


def read_main_panel_ids(path):
    """Column A of the main panel (the rows after its heading) read with openpyxl, and the
    number of rows of the sheet."""
    import openpyxl
    wb = openpyxl.load_workbook(path, read_only=True)
    ws = wb.worksheets[0]
    ids, rows = [], 0
    in_panel = False
    for row in ws.iter_rows(values_only=True, max_col=1):
        rows += 1
        value = row[0] if row else None
        if value == "Item ID" and rows < 10:
            in_panel = True
            continue
        if in_panel:
            if isinstance(value, str) and value.startswith("I") and value[1:].isdigit():
                ids.append(value)
            else:
                in_panel = False
    wb.close()
    return ids, rows


class Interrupt(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        if not os.path.isdir("/proc/self"):
            raise unittest.SkipTest("needs /proc to see when the tool listens for signals")
        cls.big = tempfile.mkdtemp(prefix="orv-int-")
        cls.data_src = os.path.join(cls.big, "big.xml")
        write_collection(cls.data_src, ITEMS)
        cls.reference_rows = None
        cls.duration = None

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.big, ignore_errors=True)

    def setUp(self):
        self.tmp = tempfile.mkdtemp(prefix="orv-int-")
        self.export_dir = os.path.join(self.tmp, "Korvane", "Addin Modules", "Zenfold", "Export")
        os.makedirs(self.export_dir)
        self.data_dir = os.path.join(self.tmp, "data")
        os.makedirs(self.data_dir)
        self.data = os.path.join(self.data_dir, "export.xml")
        shutil.copy(self.data_src, self.data)

    def tearDown(self):
        shutil.rmtree(self.tmp, ignore_errors=True)

    def reset(self):
        for name in os.listdir(self.data_dir):
            if name != "export.xml":
                os.remove(os.path.join(self.data_dir, name))
        if os.path.exists(self.log_path()):
            os.remove(self.log_path())

    def log_path(self):
        return os.path.join(self.export_dir, "ExportExcel.log")

    def log_lines(self):
        if not os.path.exists(self.log_path()):
            return []
        with open(self.log_path(), "rb") as f:
            return [l for l in f.read().decode("utf-8", "replace").split("\r\n") if l]

    def start(self):
        env = dict(os.environ, APPDATA=self.tmp)
        p = subprocess.Popen(
            [CLI, "-q", self.data, os.path.join(SOURCE, "examples", "settings.xml"), SETUP,
             ".xlsx"],
            env=env, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.wait_listening(p)
        return p

    def wait_listening(self, p):
        deadline = time.monotonic() + 120
        wanted = {signal.SIGINT, signal.SIGTERM}
        while time.monotonic() < deadline:
            caught = caught_signals(p.pid)
            if caught is None or p.poll() is not None:
                out, err = p.communicate()
                self.fail("the tool ended (status %s) before it listened for signals: %s"
                          % (p.returncode, err.decode()))
            if wanted <= caught:
                return
            time.sleep(0.002)
        p.kill()
        p.communicate()
        self.fail("the tool did not install its SIGINT and SIGTERM handlers within 120 s")

    def reference(self):
        """One uninterrupted export: its duration from the moment the tool listens, and the
        number of rows of its workbook."""
        cls = type(self)
        if cls.duration is None:
            self.reset()
            p = self.start()
            t0 = time.monotonic()
            out, err = p.communicate(timeout=600)
            cls.duration = time.monotonic() - t0
            self.assertEqual(p.returncode, 0, err.decode())
            ids, rows = read_main_panel_ids(os.path.join(self.data_dir, "big.xlsx"))
            self.assertEqual(ids, ["I%d" % i for i in range(ITEMS)])
            cls.reference_rows = rows
            self.reset()
        return cls.duration

    def check_interrupted(self, sig, out, err):
        self.assertEqual(sorted(os.listdir(self.data_dir)), ["export.xml"])
        lines = self.log_lines()
        self.assertEqual(len(lines), 1, lines[:5])
        self.assertIn("User interrupt occurred 18 ", lines[0])
        self.assertIn("interrupted, no workbook written", err)
        self.assertEqual(out, "")

    def check_finished(self, out, err):
        self.assertEqual(sorted(os.listdir(self.data_dir)), ["big.xlsx", "export.xml"])
        self.assertEqual(self.log_lines(), [])
        self.assertEqual(err, "")
        workbook = os.path.join(self.data_dir, "big.xlsx")
        self.assertEqual(out.strip(), workbook)
        ids, rows = read_main_panel_ids(workbook)
        self.assertEqual(ids, ["I%d" % i for i in range(ITEMS)])
        self.assertEqual(rows, type(self).reference_rows)

    def run_with_signal(self, delay, sig):
        """Starts an export, sends SIG after DELAY seconds and checks which of the two endings
        it had. Returns "interrupted" or "finished"."""
        self.reset()
        p = self.start()
        time.sleep(delay)
        p.send_signal(sig)
        out, err = p.communicate(timeout=600)
        out, err = out.decode(), err.decode()
        if p.returncode == 128 + sig:
            self.check_interrupted(sig, out, err)
            return "interrupted"
        if p.returncode == 0:
            self.check_finished(out, err)
            return "finished"
        if p.returncode < 0:
            self.fail("killed by %s instead of ending on its own; stderr: %s"
                      % (signal.Signals(-p.returncode).name, err))
        self.fail("exit status %d after %s; stderr: %s"
                  % (p.returncode, signal.Signals(sig).name, err))

    def test_a_signal_either_interrupts_or_comes_after_the_end(self):
        duration = self.reference()
        seen = {"interrupted": 0, "finished": 0}
        for i, fraction in enumerate(FRACTIONS):
            sig = (signal.SIGINT, signal.SIGTERM)[i % 2]
            with self.subTest(fraction=fraction, sig=signal.Signals(sig).name):
                seen[self.run_with_signal(duration * fraction, sig)] += 1
        # A signal right after the handlers are in place always finds the export running.
        self.assertGreater(seen["interrupted"], 0, seen)
        print("endings:", seen, "export time %.2f s" % duration, file=sys.stderr)

    def test_a_signal_while_the_tool_exits_changes_nothing(self):
        # The workbook's path on standard output is the tool's last act before it exits: a
        # signal from then on finds the export over, whatever the process is still doing.
        self.reference()
        for i, delay in enumerate((0.0, 0.0, 0.001, 0.003, 0.01, 0.03)):
            sig = (signal.SIGINT, signal.SIGTERM)[i % 2]
            with self.subTest(delay=delay, sig=signal.Signals(sig).name):
                self.reset()
                p = self.start()
                first = p.stdout.readline()
                time.sleep(delay)
                p.send_signal(sig)
                try:
                    out, err = p.communicate(timeout=120)
                except subprocess.TimeoutExpired:
                    p.kill()
                    p.communicate()
                    self.fail("the tool did not end within 120 s of a signal while exiting")
                self.assertEqual(p.returncode, 0, err.decode())
                self.check_finished((first + out).decode(), err.decode())

    def test_an_uninterrupted_export_writes_its_workbook(self):
        self.reference()
        self.reset()
        p = self.start()
        out, err = p.communicate(timeout=600)
        self.assertEqual(p.returncode, 0, err.decode())
        self.check_finished(out.decode(), err.decode())


def main():
    global CLI, SOURCE
    ap = argparse.ArgumentParser()
    ap.add_argument("--cli", required=True)
    ap.add_argument("--source", required=True)
    args = ap.parse_args()
    CLI, SOURCE = args.cli, args.source
    suite = unittest.TestLoader().loadTestsFromTestCase(Interrupt)
    if os.environ.get("ORV_INTERRUPT_ONLY"):
        suite = unittest.TestSuite([Interrupt(os.environ["ORV_INTERRUPT_ONLY"])])
    return testreport.run(suite, "interrupt")


if __name__ == "__main__":
    sys.exit(main())
