#!/usr/bin/env bash
# Runs an export of the bundled item-structure example and prints where the workbook is.
# Everything goes under out/demo/: the data file, the workbook, and the log (the per-user data
# folder of the demo is out/demo/appdata, so nothing outside the repository is touched).
set -euo pipefail
build_dir=${1:-build}
root=$(cd "$(dirname "$0")/.." && pwd)
cli="$root/$build_dir/orv-export-excel"
demo="$root/out/demo"
export_dir="$demo/appdata/Korvane/Addin Modules/Zenfold/Export"

rm -rf "$demo"
mkdir -p "$demo" "$export_dir"
cp "$root/examples/item-structure.xml" "$demo/"

echo "Exporting examples/item-structure.xml ..."
set +e
workbook=$(APPDATA="$demo/appdata" "$cli" "$demo/item-structure.xml" "$root/examples/settings.xml" \
    "$root/examples/setup/item-structure.xml" .xlsx)
status=$?
set -e
if [ $status -ne 0 ]; then
    echo "The export failed (exit status $status); the log is $export_dir/ExportExcel.log" >&2
    exit $status
fi
echo "Workbook written: $workbook"
