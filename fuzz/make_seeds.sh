#!/usr/bin/env bash
# Writes the seed corpus of the fuzz target from the examples: each example data file with its
# setup string, once with the example settings and once with the settings carried in the input.
set -euo pipefail
src="$1"; out="$2"
mkdir -p "$out"
sep=$'\n@@ORV@@\n'
pair() {  # data setup name
  printf '%s%s%s' "$(cat "$src/examples/$1")" "$sep" "$(cat "$src/examples/setup/$2")" > "$out/$3"
  printf '%s%s%s%s%s' "$(cat "$src/examples/$1")" "$sep" "$(cat "$src/examples/setup/$2")" "$sep" \
    "$(cat "$src/examples/settings.xml")" > "$out/$3-with-settings"
}
pair item-structure.xml item-structure.xml item-structure
pair item-collection.xml item-collection.xml item-collection
pair document-structure.xml doc-structure.xml document-structure
pair folder-structure.xml folder-structure.xml folder-structure
for f in "$src"/tests/data/e2e-*.xml; do cp "$f" "$out/data-$(basename "$f")"; done
for f in "$src"/tests/data/fuzz-regressions/*; do [ -f "$f" ] && [ "$(basename "$f")" != README.md ] && [ "$(basename "$f")" != EXPECTED ] && cp "$f" "$out/"; done
exit 0
