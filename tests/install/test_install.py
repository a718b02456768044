#!/usr/bin/python3
"""The installed library as its users meet it.

- `cmake --install` into a temporary prefix, which is then moved (the pkg-config file and the
  CMake package find their prefix from their own place); two small hosts built against it, a C
  one through pkg-config and a C++ one through find_package(orvExportExcel CONFIG), each run on
  an example export; their workbooks hold the same cells as the installed tool's.
- `cpack -G DEB` in the build folder: the package's contents list and its dependencies.

Usage: test_install.py --build BUILD_DIR --source REPO_ROOT
"""
import argparse
import glob
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.dirname(HERE))
import testreport  # noqa: E402

BUILD = None
SOURCE = None


def run(cmd, **kwargs):
    return subprocess.run(cmd, capture_output=True, text=True, timeout=600, **kwargs)


DATE = re.compile(r"\d{1,2}/\d{1,2}/\d{4} \d{1,2}:\d{2}:\d{2} (AM|PM)")


def workbook_cells(path):
    """Every sheet's name and its rows of values, read back with openpyxl; the export's date
    and time (of the caption) read as "<date>"."""
    import openpyxl
    wb = openpyxl.load_workbook(path)
    out = [(ws.title, [tuple(DATE.sub("<date>", c.value) if isinstance(c.value, str) else c.value
                             for c in row) for row in ws.iter_rows()])
           for ws in wb.worksheets]
    wb.close()
    return out


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.tmp = tempfile.mkdtemp(prefix="orv-install-")
        stage = os.path.join(cls.tmp, "stage")
        r = run(["cmake", "--install", BUILD, "--prefix", stage])
        if r.returncode != 0:
            raise AssertionError("cmake --install failed:\n" + r.stdout + r.stderr)
        # A moved tree still works: nothing in it names the prefix it was installed to. (No
        # space in it: pkg-config's flags cannot carry one through a shell.)
        cls.prefix = os.path.join(cls.tmp, "moved-prefix")
        shutil.move(stage, cls.prefix)
        pcs = glob.glob(os.path.join(cls.prefix, "lib*", "**", "orvExportExcel.pc"),
                        recursive=True)
        if len(pcs) != 1:
            raise AssertionError("no single orvExportExcel.pc under the prefix: %r" % pcs)
        cls.pc_dir = os.path.dirname(pcs[0])
        cls.libdir = os.path.dirname(cls.pc_dir)
        # The example export, and the installed tool's workbook of it to compare with.
        cls.examples = os.path.join(SOURCE, "examples")
        cls.settings = os.path.join(cls.examples, "settings.xml")
        cls.setup = os.path.join(cls.examples, "setup", "item-structure.xml")
        cls.data_dir = os.path.join(cls.tmp, "data")
        os.makedirs(cls.data_dir)
        cls.data = os.path.join(cls.data_dir, "item-structure.xml")
        shutil.copy(os.path.join(cls.examples, "item-structure.xml"), cls.data)
        cls.appdata = os.path.join(cls.tmp, "appdata")
        os.makedirs(os.path.join(cls.appdata, "Korvane", "Addin Modules", "Zenfold", "Export"))
        cls.env = dict(os.environ, APPDATA=cls.appdata)
        cli_out = os.path.join(cls.tmp, "cli-out")
        os.makedirs(cli_out)
        r = run([os.path.join(cls.prefix, "bin", "orv-export-excel"), "-q", "-o", cli_out,
                 cls.data, cls.settings, cls.setup, ".xlsx"], env=cls.env)
        if r.returncode != 0:
            raise AssertionError("the installed tool failed: " + r.stderr)
        cls.cli_workbook = r.stdout.strip()
        cls.reference = workbook_cells(cls.cli_workbook)

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.tmp, ignore_errors=True)

    def assertExportsLikeTheTool(self, host, name):
        out = os.path.join(self.tmp, name + "-out")
        os.makedirs(out)
        r = run([host, self.data, self.settings, self.setup, ".xlsx", out], env=self.env)
        self.assertEqual(r.returncode, 0, r.stdout + r.stderr)
        workbook = os.path.join(out, os.path.basename(self.cli_workbook))
        self.assertEqual(os.listdir(out), [os.path.basename(workbook)])
        self.assertEqual(workbook_cells(workbook), self.reference)
        return r.stdout

    def test_installed_files(self):
        p = self.prefix
        lib = os.path.relpath(self.libdir, p)
        for rel in ["bin/orv-export-excel",
                    lib + "/liborvExportExcel.a",
                    lib + "/liborvExportExcel.so",
                    lib + "/liborvExportExcel.so.0",
                    lib + "/liborvExportExcel.so.0.1.0",
                    lib + "/pkgconfig/orvExportExcel.pc",
                    lib + "/cmake/orvExportExcel/orvExportExcelConfig.cmake",
                    lib + "/cmake/orvExportExcel/orvExportExcelConfigVersion.cmake",
                    lib + "/cmake/orvExportExcel/orvExportExcelTargets.cmake",
                    "include/orvExportExcel/iclsExportExcel.h",
                    "include/orvExportExcel/orvExportExcel.h",
                    "include/orvExportExcel/orvSettingsCheck.h",
                    "share/orvExportExcel/settings.xml",
                    "share/orvExportExcel/setup/item-structure.xml"]:
            with self.subTest(file=rel):
                self.assertTrue(os.path.lexists(os.path.join(p, rel)), rel)
        # The usual chain of names: the link-time name and the soname lead to the real file.
        self.assertEqual(os.readlink(os.path.join(self.libdir, "liborvExportExcel.so")),
                         "liborvExportExcel.so.0")
        self.assertEqual(os.readlink(os.path.join(self.libdir, "liborvExportExcel.so.0")),
                         "liborvExportExcel.so.0.1.0")
        r = run(["objdump", "-p", os.path.join(self.libdir, "liborvExportExcel.so.0.1.0")])
        if r.returncode == 0:
            self.assertRegex(r.stdout, r"SONAME\s+liborvExportExcel\.so\.0\n")

    def test_c_host_through_pkg_config(self):
        env = dict(os.environ, PKG_CONFIG_PATH=self.pc_dir)
        r = run(["pkg-config", "--cflags", "--libs", "orvExportExcel"], env=env)
        self.assertEqual(r.returncode, 0, r.stderr)
        flags = r.stdout.split()
        self.assertIn("-I" + os.path.join(self.prefix, "include", "orvExportExcel"),
                      ["-I" + os.path.normpath(f[2:]) for f in flags if f.startswith("-I")])
        host = os.path.join(self.tmp, "host-c")
        r = run(["cc", "-std=c99", "-Wall", "-Wextra", "-Werror", os.path.join(HERE, "host.c"),
                 "-o", host, *flags, "-Wl,-rpath," + self.libdir], env=env)
        self.assertEqual(r.returncode, 0, r.stderr)
        # It runs on the installed shared library, not on one of the build tree.
        r = run(["ldd", host])
        self.assertIn(os.path.join(self.libdir, "liborvExportExcel.so.0"), r.stdout)
        self.assertEqual(self.assertExportsLikeTheTool(host, "c").strip(), "-1")

    def test_cpp_host_through_find_package(self):
        src = os.path.join(self.tmp, "host-cpp")
        os.makedirs(src)
        shutil.copy(os.path.join(HERE, "host.cpp"), src)
        shutil.copy(os.path.join(HERE, "host-CMakeLists.txt"), os.path.join(src, "CMakeLists.txt"))
        build = os.path.join(src, "build")
        env = dict(os.environ)
        env.pop("CMAKE_CXX_COMPILER_LAUNCHER", None)
        r = run(["cmake", "-S", src, "-B", build, "-DCMAKE_PREFIX_PATH=" + self.prefix], env=env)
        self.assertEqual(r.returncode, 0, r.stdout + r.stderr)
        r = run(["cmake", "--build", build], env=env)
        self.assertEqual(r.returncode, 0, r.stdout + r.stderr)
        out = self.assertExportsLikeTheTool(os.path.join(build, "host"), "cpp")
        self.assertIn("library 0.1.0", out)


class DebianPackage(unittest.TestCase):
    def test_package_holds_the_tool_the_libraries_and_the_headers(self):
        for tool in ("dpkg-deb", "dpkg-shlibdeps"):
            if shutil.which(tool) is None:
                self.skipTest(tool + " is missing (package dpkg-dev): no Debian package is made")
        out = tempfile.mkdtemp(prefix="orv-cpack-")
        try:
            r = run(["cpack", "-G", "DEB", "-B", out], cwd=BUILD)
            self.assertEqual(r.returncode, 0, r.stdout + r.stderr)
            debs = glob.glob(os.path.join(out, "*.deb"))
            self.assertEqual(len(debs), 1, os.listdir(out))
            r = run(["dpkg-deb", "-c", debs[0]])
            self.assertEqual(r.returncode, 0, r.stderr)
            names = {line.split()[-1] if " -> " not in line else line.split()[-3]
                     for line in r.stdout.splitlines()}
            for name in ["./usr/bin/orv-export-excel",
                         "./usr/include/orvExportExcel/iclsExportExcel.h",
                         "./usr/include/orvExportExcel/orvExportExcel.h",
                         "./usr/share/orvExportExcel/settings.xml"]:
                self.assertIn(name, names)
            for suffix in ["/liborvExportExcel.a", "/liborvExportExcel.so.0.1.0",
                           "/liborvExportExcel.so.0", "/liborvExportExcel.so",
                           "/pkgconfig/orvExportExcel.pc",
                           "/cmake/orvExportExcel/orvExportExcelConfig.cmake"]:
                self.assertTrue(any(n.startswith("./usr/lib") and n.endswith(suffix)
                                    for n in names), suffix)
            r = run(["dpkg-deb", "-f", debs[0], "Package", "Version", "Depends"])
            self.assertEqual(r.returncode, 0, r.stderr)
            fields = dict(line.split(": ", 1) for line in r.stdout.splitlines())
            self.assertEqual(fields["Package"], "orv-export-excel")
            self.assertEqual(fields["Version"], "0.1.0")
            for dep in ("libc6", "libstdc++6", "libxlsxwriter", "libgsf-1"):
                self.assertIn(dep, fields.get("Depends", ""))
        finally:
            shutil.rmtree(out, ignore_errors=True)


def main():
    global BUILD, SOURCE
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    parser.add_argument("--source", required=True)
    args = parser.parse_args()
    BUILD = os.path.abspath(args.build)
    SOURCE = os.path.abspath(args.source)
    suite = unittest.TestLoader().loadTestsFromModule(sys.modules[__name__])
    return testreport.run(suite, "install")


if __name__ == "__main__":
    sys.exit(main())
