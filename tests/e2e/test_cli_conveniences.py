"""The command line's conveniences: where the setup comes from, the output folder, and an
extension without its dot."""
import os
import re
import subprocess

from e2e_common import CliCase, Config


class CliConveniencesCase(CliCase):
    def setUp(self):
        super().setUp()
        self.data = self.copy_example("item-structure.xml")
        self.setup_file = os.path.join(self.examples, "setup", "item-structure.xml")
        with open(self.setup_file, encoding="utf-8") as f:
            self.setup_text = f.read()

    def run_with_input(self, text, *args):
        env = dict(os.environ, APPDATA=self.tmp)
        return subprocess.run([Config.cli, *args], input=text, capture_output=True, text=True,
                              env=env, timeout=600)

    def data_folder(self):
        return sorted(os.listdir(os.path.dirname(self.data)))


class TestSetupSources(CliConveniencesCase):
    def test_setup_text_after_blank_lines_is_the_setup_itself(self):
        # As "$(cat setup.xml)" with a line break in front gives it.
        r = self.run_cli("-q", self.data, self.settings, "\n\n  \t" + self.setup_text, ".xlsx")
        self.assertEqual(r.returncode, 0, r.stderr)
        workbook = os.path.join(os.path.dirname(self.data), "item-structure.xlsx")
        self.assertEqual(r.stdout, workbook + "\n")
        self.assertEqual(self.data_folder(), ["item-structure.xlsx", "item-structure.xml"])
        self.assertEqual(self.log_lines(), [])

    def test_white_space_before_a_path_keeps_it_a_path(self):
        r = self.run_cli("-q", self.data, self.settings, " " + self.setup_file, ".xlsx")
        self.assertEqual(r.returncode, 2)
        self.assertIn("cannot read setup file ' " + self.setup_file + "'", r.stderr)

    def test_dash_reads_the_setup_from_standard_input(self):
        r = self.run_with_input("\n" + self.setup_text, "-q", self.data, self.settings, "-",
                                ".xlsx")
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertEqual(r.stdout.strip(),
                         os.path.join(os.path.dirname(self.data), "item-structure.xlsx"))
        self.assertEqual(self.log_lines(), [])

    def test_setup_from_standard_input_is_checked_like_any_setup(self):
        r = self.run_with_input("<SETUP><OBJECT_TYPE>Nothing</OBJECT_TYPE></SETUP>", "-q",
                                self.data, self.settings, "-", ".xlsx")
        self.assertEqual(r.returncode, 1)
        self.assertEqual(self.data_folder(), ["item-structure.xml"])
        self.assertEqual(len(self.log_lines()), 1)


class TestOutputFolder(CliConveniencesCase):
    def test_output_folder_takes_the_workbook(self):
        out = os.path.join(self.tmp, "elsewhere")
        os.makedirs(out)
        r = self.run_cli("-q", "-o", out, self.data, self.settings, self.setup_file, ".xlsx")
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertEqual(r.stdout, os.path.join(out, "item-structure.xlsx") + "\n")
        self.assertEqual(os.listdir(out), ["item-structure.xlsx"])
        self.assertEqual(self.data_folder(), ["item-structure.xml"])
        import openpyxl
        wb = openpyxl.load_workbook(os.path.join(out, "item-structure.xlsx"))
        caption = {c.value for row in wb.worksheets[0].iter_rows(max_row=10) for c in row}
        self.assertIn("Demo project", caption)

    def test_long_option_and_the_caption_name(self):
        out = os.path.join(self.tmp, "elsewhere")
        os.makedirs(out)
        setup = self.setup_text.replace("<WORKBOOK_NAME></WORKBOOK_NAME>",
                                        "<WORKBOOK_NAME>Pump BOM</WORKBOOK_NAME>")
        r = self.run_cli("-q", "--output-dir", out + "/", self.data, self.settings, setup, ".xls")
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertEqual(os.listdir(out), ["Pump BOM.xls"])
        self.assertEqual(self.data_folder(), ["item-structure.xml"])

    def test_missing_output_folder_is_a_usage_error(self):
        out = os.path.join(self.tmp, "missing")
        r = self.run_cli("-q", "-o", out, self.data, self.settings, self.setup_file, ".xlsx")
        self.assertEqual(r.returncode, 2)
        self.assertEqual(r.stderr, "orv-export-excel: the output folder '" + out +
                         "' is not an existing folder\n")
        self.assertFalse(os.path.exists(out))
        self.assertEqual(self.data_folder(), ["item-structure.xml"])
        self.assertEqual(self.log_lines(), [])


class TestExtensionWithoutDot(CliConveniencesCase):
    def test_used_as_given_with_a_note(self):
        r = self.run_cli("-q", self.data, self.settings, self.setup_file, "xlsx")
        self.assertEqual(r.returncode, 0, r.stderr)
        workbook = os.path.join(os.path.dirname(self.data), "item-structurexlsx")
        self.assertEqual(r.stdout, workbook + "\n")
        self.assertEqual(r.stderr, "orv-export-excel: note: the extension 'xlsx' has no leading "
                                   "dot and is used as given: the workbook is '" + workbook +
                                   "'\n")
        self.assertEqual(self.data_folder(), ["item-structure.xml", "item-structurexlsx"])
        with open(workbook, "rb") as f:
            self.assertEqual(f.read(2), b"PK")

    def test_no_note_with_the_dot(self):
        r = self.run_cli("-q", self.data, self.settings, self.setup_file, ".xlsx")
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertEqual(r.stderr, "")
        self.assertFalse(re.search("note", r.stderr))
