#!/usr/bin/env python3
"""What no Linux build exercises, read as a Mac build and CI get it: the bundle's property
list (after CMake filled it in), its localized strings, the entitlements and the workflow.
Usage: check_packaging.py INFO_PLIST PACKAGING_DIR WORKFLOW VERSION"""
import plistlib
import re
import sys
from pathlib import Path

try:
    import yaml
except ImportError:  # macOS's own Python has no YAML; the Linux job reads the workflow
    yaml = None
    if not sys.platform.startswith("darwin"):
        raise

info_path, packaging, workflow, version = sys.argv[1:5]
packaging = Path(packaging)
problems = []


def need(ok, what):
    if not ok:
        problems.append(what)


info = plistlib.loads(Path(info_path).read_bytes())
need(not re.search(r"\$\{|@\w+@", Path(info_path).read_text()), "a placeholder is left")
need(info.get("CFBundleShortVersionString") == version, "short version is not the project's")
need(info.get("CFBundleVersion") == version, "build version is not the project's")
need(info.get("LSUIElement") is True, "LSUIElement is not true")
schemes = [s for t in info.get("CFBundleURLTypes", []) for s in t.get("CFBundleURLSchemes", [])]
need("quorvel" in schemes, "no quorvel URL scheme")
need(str(info.get("NSAppleEventsUsageDescription", "")).strip(), "no Apple events text")
need((packaging / str(info.get("CFBundleIconFile"))).is_file(), "the icon file is missing")
need(info.get("CFBundleDevelopmentRegion") == "en", "development region is not en")
need(float(info.get("LSMinimumSystemVersion", "0")) >= 13, "the login item needs macOS 13")
localizations = info.get("CFBundleLocalizations", [])
need({"en", "zh-Hans"} <= set(localizations), "English and Simplified Chinese not declared")
for language in localizations:
    strings = packaging / f"{language}.lproj" / "InfoPlist.strings"
    text = strings.read_text(encoding="utf-8") if strings.is_file() else ""
    need(re.search(r'"NSAppleEventsUsageDescription"\s*=\s*"[^"]+";', text),
         f"{language}: no Apple events text")

rights = plistlib.loads((packaging / "Quorvel.entitlements").read_bytes())
need(rights.get("com.apple.security.automation.apple-events") is True, "no Apple events right")
need(not rights.get("com.apple.security.app-sandbox"), "the sandbox would stop the event tap")

flow = yaml.safe_load(Path(workflow).read_text()) if yaml else {"on": 1, "jobs": {}}
need(flow.get("on", flow.get(True)), "the workflow has no trigger")  # YAML 1.1 reads on: as true
jobs = flow.get("jobs", {}).values()
runs = {job.get("container") or job.get("runs-on"):
        " ; ".join(step.get("run", "") for step in job.get("steps", [])) for job in jobs}
if yaml:
    need(set(runs) == {"debian:12", "macos-14"}, f"jobs run on {sorted(runs)}")
    need(all("make test" in r for r in runs.values()), "a job does not run make test")
    need("make app" in runs.get("macos-14", ""), "the macOS job does not build the bundle")

for problem in problems:
    print("check_packaging:", problem, file=sys.stderr)
sys.exit(1 if problems else 0)
