#!/usr/bin/env bash
# Renders the icon's PNG sizes from stashwell.svg with rsvg-convert (Debian librsvg2-bin).
# Run by hand after changing the drawing; the PNGs are committed so that the build and the
# package need no SVG renderer.
set -euo pipefail
cd "$(dirname "$0")"
for n in 16 24 32 48 64 128 256; do
    rsvg-convert -w "$n" -h "$n" stashwell.svg -o "stashwell-$n.png"
done
