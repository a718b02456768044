"""Interrupting the command-line tool: SIGINT or SIGTERM while an export runs leaves neither a
temporary file nor a workbook under the final name, logs one line and exits with 128 + the
signal's number.

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

CLI = None
SOURCE = None
ITEMS = 60000


def write_collection(path, n):
    with open(path, "w", encoding="utf-8") as f:
        f.write("<Root_Element>")
        for i in range(n):
            f.write('<Item id="I%d" revision="A" description="item %d" status="s"/>' % (i, i))
        f.write("</Root_Element>")


class Interrupt(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.big = tempfile.mkdtemp(prefix="orv-int-")
        cls.data_src = os.path.join(cls.big, "big.xml")
        write_collection(cls.data_src, ITEMS)

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

    def start(self):
        setup = ("<SETUP><PROJECT>p</PROJECT><WORKBOOK_NAME>big</WORKBOOK_NAME><EXPORTED_BY>x"
                 "</EXPORTED_BY><EXPORT_DATE/><OBJECT_TYPE>Item</OBJECT_TYPE>"
                 "<SPACE_TYPE>COLLECTION</SPACE_TYPE></SETUP>")
        env = dict(os.environ, APPDATA=self.tmp)
        return subprocess.Popen(
            [CLI, "-q", self.data, os.path.join(SOURCE, "examples", "settings.xml"), setup,
             ".xlsx"],
            env=env, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def log_lines(self):
        path = os.path.join(self.export_dir, "ExportExcel.log")
        if not os.path.exists(path):
            return []
        with open(path, "rb") as f:
            return [l for l in f.read().decode("utf-8", "replace").split("\r\n") if l]

    def interrupt_after(self, seconds, sig):
        p = self.start()
        time.sleep(seconds)
        if p.poll() is not None:
            p.communicate()
            return None  # finished before the signal
        p.send_signal(sig)
        out, err = p.communicate(timeout=600)
        return p.returncode, out.decode(), err.decode()

    def check_interrupted(self, result, sig):
        rc, out, err = result
        self.assertEqual(rc, 128 + sig, err)
        self.assertEqual(sorted(os.listdir(self.data_dir)), ["export.xml"])
        lines = self.log_lines()
        self.assertEqual(sum("User interrupt occurred 18 " in l for l in lines), 1, lines[:5])
        self.assertEqual(len(lines), 1, lines[:5])
        self.assertIn("interrupted", err)

    def test_sigint_and_sigterm_at_several_moments(self):
        interrupted = 0
        for delay in (0.2, 0.8, 1.5, 2.5, 4.0):
            for sig in (signal.SIGINT, signal.SIGTERM):
                with self.subTest(delay=delay, sig=sig):
                    for name in os.listdir(self.data_dir):
                        if name != "export.xml":
                            os.remove(os.path.join(self.data_dir, name))
                    log = os.path.join(self.export_dir, "ExportExcel.log")
                    if os.path.exists(log):
                        os.remove(log)
                    result = self.interrupt_after(delay, sig)
                    if result is None:
                        continue
                    interrupted += 1
                    self.check_interrupted(result, sig)
        self.assertGreater(interrupted, 0, "the export always ended before the signal")

    def test_an_uninterrupted_export_writes_its_workbook(self):
        p = self.start()
        out, err = p.communicate(timeout=600)
        self.assertEqual(p.returncode, 0, err.decode())
        self.assertEqual(sorted(os.listdir(self.data_dir)), ["big.xlsx", "export.xml"])


def main():
    global CLI, SOURCE
    ap = argparse.ArgumentParser()
    ap.add_argument("--cli", required=True)
    ap.add_argument("--source", required=True)
    args, rest = ap.parse_known_args()
    CLI, SOURCE = args.cli, args.source
    unittest.main(argv=[sys.argv[0]] + rest, verbosity=2)


if __name__ == "__main__":
    main()
