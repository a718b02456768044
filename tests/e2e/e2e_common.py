"""Shared set-up of the end-to-end tests."""
import os
import shutil
import subprocess
import tempfile
import unittest

DATE = r"\d{1,2}/\d{1,2}/\d{4} \d{1,2}:\d{2}:\d{2} (AM|PM)"


class Config:
    cli = None     # path of orv-export-excel
    source = None  # repository root


class CliCase(unittest.TestCase):
    """Runs the tool with a private per-user data folder, so the log lands in a known place."""

    def setUp(self):
        self.tmp = tempfile.mkdtemp(prefix="orv-e2e-")
        self.export_dir = os.path.join(self.tmp, "Korvane", "Addin Modules", "Zenfold", "Export")
        os.makedirs(self.export_dir)
        self.examples = os.path.join(Config.source, "examples")
        self.settings = os.path.join(self.examples, "settings.xml")

    def tearDown(self):
        shutil.rmtree(self.tmp, ignore_errors=True)

    def run_cli(self, *args):
        env = dict(os.environ, APPDATA=self.tmp)
        return subprocess.run([Config.cli, *args], capture_output=True, text=True, env=env,
                              stdin=subprocess.DEVNULL, timeout=600)

    def log_lines(self):
        path = os.path.join(self.export_dir, "ExportExcel.log")
        if not os.path.exists(path):
            return []
        with open(path, "rb") as f:
            data = f.read().decode("utf-8")
        self.assertTrue(data.endswith("\r\n"))
        return data[:-2].split("\r\n")

    def copy_example(self, name):
        """Copies an example data file into a private folder and returns its path."""
        folder = os.path.join(self.tmp, "data")
        os.makedirs(folder, exist_ok=True)
        dst = os.path.join(folder, name)
        shutil.copy(os.path.join(self.examples, name), dst)
        return dst


