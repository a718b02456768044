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

    def run_on_terminal(self, *args, on_output=None):
        """Runs the tool with a pseudo-terminal as its standard error (and output). After each
        piece of output, on_output(all output so far, pid) may act on the running tool. Returns
        the exit code and the output."""
        import pty
        import select
        import time
        env = dict(os.environ, APPDATA=self.tmp)
        pid, fd = pty.fork()
        if pid == 0:
            os.execve(Config.cli, [Config.cli, *args], env)
        text = ""
        deadline = time.monotonic() + 600
        while time.monotonic() < deadline:
            ready, _, _ = select.select([fd], [], [], 1.0)
            if not ready:
                continue
            try:
                b = os.read(fd, 65536)
            except OSError:  # the other end is closed
                break
            if not b:
                break
            text += b.decode("utf-8", "replace")
            if on_output:
                on_output(text, pid)
        _, status = os.waitpid(pid, 0)
        os.close(fd)
        return os.waitstatus_to_exitcode(status), text

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


