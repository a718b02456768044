"""The settings check of the command-line tool: report, exit status and JSON form."""
import json
import os
import re

from e2e_common import CliCase

ALTERNATES = ("<LOCAL_ALTERNATIVE_ITEMS_OF_CHILD>Local Alternative Items of Child"
              "</LOCAL_ALTERNATIVE_ITEMS_OF_CHILD>")


def replace_once(text, old, new):
    assert text.count(old) == 1, old
    return text.replace(old, new)


class TestSettingsCheck(CliCase):
    def broken_settings(self):
        """The example settings with a misspelt label, the alternates heading beside the child
        label of the part-list section, a duplicate ORDER, a missing FIELD and a missing
        message."""
        with open(self.settings, encoding="utf-8") as f:
            s = f.read()
        s = replace_once(s, "<CAPTION_LBL>Manufacturers</CAPTION_LBL>",
                         "<CAPTON_LBL>Manufacturers</CAPTON_LBL>")
        s = replace_once(s, "        " + ALTERNATES + "\n", "")
        s = replace_once(s, "      <CHILD>Child</CHILD>\n      <CHILD_LIST_LBL>",
                         "      <CHILD>Child</CHILD>\n      " + ALTERNATES +
                         "\n      <CHILD_LIST_LBL>")
        s = replace_once(s, '<MATERIAL ORDER="5"', '<MATERIAL ORDER="4"')
        s = replace_once(s, '<ITEM_REV ORDER="2" FIELD="revision">', '<ITEM_REV ORDER="2">')
        s = replace_once(s, "<MSG_ON_LINE>on line</MSG_ON_LINE>", "")
        path = os.path.join(self.tmp, "broken-settings.xml")
        with open(path, "w", encoding="utf-8") as f:
            f.write(s)
        return path

    def test_the_example_settings_have_no_findings(self):
        r = self.run_cli("--check-settings", self.settings)
        self.assertEqual(r.returncode, 0, r.stdout + r.stderr)
        self.assertEqual(r.stderr, "")
        self.assertTrue(r.stdout.endswith("\nFindings: none\n"), r.stdout[-300:])
        self.assertIn("Exports checked: items/structure, items/collection, documents/structure, "
                      "documents/collection, folders/structure, folders/collection\n", r.stdout)
        self.assertIn('  items/structure, items/collection: '
                      'PROPERTY_LBL/PART_LIST_LBL/ALTERNATE_LIST_LBL/CHILD = "Child"\n', r.stdout)
        self.assertIn('  documents/collection: GLOBAL/DOC_COLLECTION/MAIN_PANEL = '
                      '"Main Panel: Document Collection"\n', r.stdout)
        # Nothing is written, not even a log line.
        self.assertEqual(os.listdir(self.export_dir), [])

    def test_each_fault_is_reported_with_its_path(self):
        broken = self.broken_settings()
        r = self.run_cli("--check-settings", broken)
        self.assertEqual(r.returncode, 1, r.stderr)
        attrs = "PROPERTY_LBL/ITEM_LBL/ITEM_ATTR_LBL/ATTRIBUTE_LIST_LBL"
        want = [
            "  message: //MSG_ON_LINE: not found: the log lines that use this message show "
            "nothing in its place (all exports)",
            "  fallback: PROPERTY_LBL/PART_LIST_LBL/CHILD_LIST_LBL/LOCAL_ALTERNATIVE_ITEMS_OF_CHILD:"
            " not found: the export shows the built-in text \"Local Alternative Items of Child\""
            " (items/structure, items/collection)",
            "  fallback: PROPERTY_LBL/MNF_LBL/CAPTION_LBL: not found: the export shows the "
            "built-in text \"Manufacturers\" (items/structure, items/collection)",
            "  field: PROPERTY_LBL/ITEM_LBL/ITEM_CAP_LBL/*[@ORDER = 2]/@FIELD: "
            "PROPERTY_LBL/ITEM_LBL/ITEM_CAP_LBL/ITEM_REV has no FIELD: the export cannot name "
            "the data attribute it reads here (all exports)",
            "  order: " + attrs + "/MATERIAL: ORDER 4 is also given to " + attrs + "/WEIGHT",
            "  unused: PROPERTY_LBL/PART_LIST_LBL/LOCAL_ALTERNATIVE_ITEMS_OF_CHILD: no export "
            "reads it; the export reads LOCAL_ALTERNATIVE_ITEMS_OF_CHILD at "
            "PROPERTY_LBL/PART_LIST_LBL/CHILD_LIST_LBL/LOCAL_ALTERNATIVE_ITEMS_OF_CHILD",
            "  unused: PROPERTY_LBL/MNF_LBL/CAPTON_LBL: no export reads it; did you mean "
            "CAPTION_LBL? The export reads PROPERTY_LBL/MNF_LBL/CAPTION_LBL",
        ]
        findings = r.stdout.split("\nFindings: 7\n")
        self.assertEqual(len(findings), 2, r.stdout[-2000:])
        self.assertEqual(findings[1].splitlines(), want)
        # The label that falls back is listed with the path it is looked up at.
        self.assertIn("  items/structure, items/collection: "
                      "PROPERTY_LBL/PART_LIST_LBL/CHILD_LIST_LBL/LOCAL_ALTERNATIVE_ITEMS_OF_CHILD"
                      " = default: \"Local Alternative Items of Child\"\n", r.stdout)

        j = self.run_cli("--check-settings", broken, "--format", "json")
        self.assertEqual(j.returncode, 1, j.stderr)
        report = json.loads(j.stdout)
        self.assertEqual(report["status"], 1)
        self.assertEqual(report["settings"], broken)
        all_exports = report["exports"]
        self.assertEqual(len(all_exports), 6)

        def as_text(f):
            line = "  " + f["kind"] + ": " + (f["path"] + ": " if f["path"] else "") + f["detail"]
            if f["exports"]:
                exports = ("all exports" if f["exports"] == all_exports
                           else ", ".join(f["exports"]))
                line += " (" + exports + ")"
            return line

        self.assertEqual([as_text(f) for f in report["findings"]], want)
        read = [o for o in report["reads"] if o["path"] ==
                "PROPERTY_LBL/PART_LIST_LBL/CHILD_LIST_LBL/LOCAL_ALTERNATIVE_ITEMS_OF_CHILD"]
        self.assertEqual(len(read), 1)
        self.assertEqual(read[0]["default"], "Local Alternative Items of Child")
        self.assertTrue(read[0]["falls_back"])
        self.assertIsNone(read[0]["found"])
        self.assertEqual(os.listdir(self.export_dir), [])

    def test_a_setup_names_the_export_checked(self):
        setup = os.path.join(self.examples, "setup", "folder-structure.xml")
        r = self.run_cli("--check-settings", self.settings, setup)
        self.assertEqual(r.returncode, 0, r.stdout + r.stderr)
        self.assertIn("\nExports checked: folders/structure\n", r.stdout)
        labels = [l for l in r.stdout.splitlines() if re.match(r"  [a-z/, ]+: ", l)]
        self.assertTrue(labels)
        for line in labels:
            self.assertTrue(line.startswith("  folders/structure: "), line)

    def test_settings_that_cannot_be_read_give_status_two(self):
        missing = os.path.join(self.tmp, "none.xml")
        r = self.run_cli("--check-settings", missing)
        self.assertEqual(r.returncode, 2)
        self.assertEqual(r.stdout, "")
        self.assertEqual(r.stderr,
                         "orv-export-excel: The settings file " + missing + " was not found.\n")
        r = self.run_cli("--check-settings", missing, "--format", "json")
        self.assertEqual(r.returncode, 2)
        self.assertEqual(json.loads(r.stdout),
                         {"status": 2, "settings": missing,
                          "error": "The settings file " + missing + " was not found."})
        r = self.run_cli("--check-settings", self.settings, "<SETUP><OBJECT_TYPE>Part"
                         "</OBJECT_TYPE><SPACE_TYPE>STRUCTURE</SPACE_TYPE></SETUP>")
        self.assertEqual(r.returncode, 2)
        self.assertIn("OBJECT_TYPE \"Part\" names no export of these settings", r.stderr)
        r = self.run_cli("--check-settings", self.settings, os.path.join(self.tmp, "no.xml"))
        self.assertEqual(r.returncode, 2)
        self.assertIn("cannot read setup file", r.stderr)

    def test_usage_errors(self):
        for args in (["--check-settings"],
                     ["--check-settings", self.settings, "<SETUP/>", "data.xml"],
                     ["--format", "json", "a.xml", self.settings, "<SETUP/>"],
                     ["--check-settings", self.settings, "--format", "yaml"]):
            r = self.run_cli(*args)
            self.assertEqual(r.returncode, 2, args)
            self.assertIn("Usage:", r.stderr)
            self.assertEqual(r.stdout, "")
        r = self.run_cli("data.xml", "--check-settings", self.settings)
        self.assertEqual(r.returncode, 2)
        self.assertIn("--check-settings takes no DATA_XML", r.stderr)
        r = self.run_cli("a.xml", self.settings)
        self.assertIn("SETUP is required", r.stderr)
