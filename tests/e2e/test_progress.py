"""Progress of a long export: shown on standard error when it is a terminal, never otherwise."""
import os
import subprocess
import sys

from e2e_common import CliCase, Config


class TestProgress(CliCase):
    @classmethod
    def setUpClass(cls):
        # One generated item structure, long enough to take a noticeable time to export.
        import tempfile
        cls.data_dir = tempfile.mkdtemp(prefix="orv-e2e-progress-")
        cls.data = os.path.join(cls.data_dir, "big.xml")
        cls.gen_settings = os.path.join(cls.data_dir, "settings.xml")
        subprocess.run([sys.executable, os.path.join(Config.source, "bench", "gen_data.py"),
                        cls.data, "--objects", "10000", "--depth", "7", "--settings",
                        cls.gen_settings], check=True, capture_output=True)
        cls.setup_file = os.path.join(Config.source, "examples", "setup", "item-structure.xml")

    @classmethod
    def tearDownClass(cls):
        import shutil
        shutil.rmtree(cls.data_dir, ignore_errors=True)

    def test_terminal_shows_progress_and_clears_it(self):
        code, out = self.run_on_terminal(self.data, self.gen_settings, self.setup_file, ".xlsx")
        self.assertEqual(code, 0, out)
        # Objects read, then rows written with a percentage; a fast machine may skip the first.
        self.assertRegex(out, r"Reading the data file: \d+ objects|"
                              r"Writing the workbook: \d+ of \d+ rows \(\d+%\)")
        self.assertIn("\r\x1b[K", out)
        # The line is cleared before the workbook's path is printed.
        before_path = out[:out.index(self.data[:-4] + ".xlsx")]
        self.assertTrue(before_path.endswith("\r\x1b[K"), repr(before_path[-80:]))

    def test_quiet_terminal_shows_nothing(self):
        code, out = self.run_on_terminal("--quiet", self.data, self.gen_settings,
                                         self.setup_file, ".xlsx")
        self.assertEqual(code, 0, out)
        self.assertNotIn("Writing the workbook", out)
        self.assertNotIn("\x1b[K", out)

    def test_pipe_shows_nothing(self):
        r = self.run_cli(self.data, self.gen_settings, self.setup_file, ".xlsx")
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertEqual(r.stderr, "")
        self.assertEqual(r.stdout.strip(), self.data[:-4] + ".xlsx")
