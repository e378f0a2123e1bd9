#!/usr/bin/env bash
# Renders packaging/Quorvel-icon.svg into packaging/Quorvel.icns, which is checked in so that
# no build needs these tools (Debian: apt-get install librsvg2-bin). The container holds PNG
# entries under the types Apple's iconutil writes for an .iconset.
set -euo pipefail
cd "$(dirname "$0")/.."
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for size in 16 32 64 128 256 512 1024; do
    rsvg-convert -w "$size" -h "$size" packaging/Quorvel-icon.svg -o "$work/$size.png"
done
python3 - "$work" packaging/Quorvel.icns <<'PY'
import struct, sys
work, out = sys.argv[1], sys.argv[2]
types = [("icp4", 16), ("ic11", 32), ("icp5", 32), ("ic12", 64), ("ic07", 128),
         ("ic13", 256), ("ic08", 256), ("ic14", 512), ("ic09", 512), ("ic10", 1024)]
body = b""
for kind, size in types:
    png = open(f"{work}/{size}.png", "rb").read()
    body += kind.encode() + struct.pack(">I", len(png) + 8) + png
open(out, "wb").write(b"icns" + struct.pack(">I", len(body) + 8) + body)
PY
