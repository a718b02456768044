#!/usr/bin/python3
"""What LibreOffice Calc makes of the rows of workbooks: the height each row has as the file is
opened, and the height that Calc's own fit (Format > Rows > Optimal Height) gives it.

One soffice process serves all the files given, with a private user profile, so several runs can
go on at once. Prints one JSON object: {path: {"stored": [...], "optimal": [...]}} with heights
in points for rows 1 to the last used row of the first sheet.

    lo_rows.py [--pdf-dir DIR] FILE.xlsx...

--pdf-dir also exports each workbook (as stored, before any fit) to DIR/NAME.pdf.

Needs soffice and Python's uno module (python3-uno); exits with status 3 when either is missing.
"""
import argparse
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time


def soffice_path():
    return shutil.which("soffice") or shutil.which("libreoffice")


def available():
    if not soffice_path():
        return False
    try:
        import uno  # noqa: F401
    except ImportError:
        return False
    return True


def connect(pipe_name, proc):
    import uno
    from com.sun.star.connection import NoConnectException

    local = uno.getComponentContext()
    resolver = local.ServiceManager.createInstanceWithContext(
        "com.sun.star.bridge.UnoUrlResolver", local)
    deadline = time.monotonic() + 120
    while True:
        try:
            return resolver.resolve(
                "uno:pipe,name=%s;urp;StarOffice.ComponentContext" % pipe_name)
        except NoConnectException:
            if proc.poll() is not None or time.monotonic() > deadline:
                raise RuntimeError("soffice did not start")
            time.sleep(0.25)


def prop(name, value):
    import uno
    p = uno.createUnoStruct("com.sun.star.beans.PropertyValue")
    p.Name = name
    p.Value = value
    return p


def measure(paths, pdf_dir=None):
    import uno

    profile = tempfile.mkdtemp(prefix="orv-lo-profile-")
    pipe_name = "orv_lo_%d_%d" % (os.getpid(), int(time.time() * 1000) % 1000000)
    proc = subprocess.Popen(
        [soffice_path(), "--headless", "--invisible", "--nologo", "--norestore",
         "--nodefault", "-env:UserInstallation=" + uno.systemPathToFileUrl(profile),
         "--accept=pipe,name=%s;urp;" % pipe_name],
        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    result = {}
    try:
        ctx = connect(pipe_name, proc)
        desktop = ctx.ServiceManager.createInstanceWithContext("com.sun.star.frame.Desktop", ctx)
        for path in paths:
            url = uno.systemPathToFileUrl(os.path.abspath(path))
            doc = desktop.loadComponentFromURL(url, "_blank", 0, (prop("Hidden", True),))
            try:
                if pdf_dir:
                    base = os.path.splitext(os.path.basename(path))[0]
                    out = uno.systemPathToFileUrl(
                        os.path.join(os.path.abspath(pdf_dir), base + ".pdf"))
                    doc.storeToURL(out, (prop("FilterName", "calc_pdf_Export"),))
                sheet = doc.Sheets.getByIndex(0)
                cursor = sheet.createCursor()
                cursor.gotoEndOfUsedArea(False)
                last = cursor.RangeAddress.EndRow
                rows = sheet.Rows
                stored = [rows.getByIndex(r).Height / 2540.0 * 72 for r in range(last + 1)]
                optimal = []
                for r in range(last + 1):
                    row = rows.getByIndex(r)
                    row.OptimalHeight = True
                    optimal.append(row.Height / 2540.0 * 72)
                result[path] = {"stored": stored, "optimal": optimal}
            finally:
                doc.close(True)
        try:
            desktop.terminate()
        except Exception:  # the bridge goes down with the process
            pass
    finally:
        try:
            proc.wait(timeout=60)
        except subprocess.TimeoutExpired:
            proc.kill()
            proc.wait()
        shutil.rmtree(profile, ignore_errors=True)
    return result


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--pdf-dir")
    parser.add_argument("files", nargs="+")
    args = parser.parse_args()
    if not available():
        print("soffice or python3-uno not installed", file=sys.stderr)
        return 3
    json.dump(measure(args.files, args.pdf_dir), sys.stdout)
    sys.stdout.write("\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
