#!/usr/bin/env python3
"""Mutation score of the tests: how many small faults planted in core and the Linux
platform layer the tests notice.

    python3 scripts/mutants.py [--n 60] [--seed 1] [--rev HEAD] [--work build-mutants]

Works on a copy of the committed tree at REV (never on the checkout): builds it once with
coverage, runs each test executable alone to learn which lines it executes, then plants
N mutants chosen from a fixed seed among executed lines, one at a time. Each mutant is
rebuilt incrementally (Ninja) and only the tests that execute its line are run (the
whole-app snapshot test is skipped wherever another test covers the line). Prints
killed / survived / timed-out / did-not-compile and every survivor with its diff.
"""

import argparse
import gzip
import json
import os
import random
import re
import shutil
import subprocess
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
SLOW = {"tst_app"}  # the snapshot run: only when nothing else covers a line

# (name, pattern, replacement). Patterns need the spaces clang-format puts around binary
# operators, which keeps templates and stream operators out.
OPERATORS = [
    ("< to <=", r" < ", " <= "),
    ("<= to <", r" <= ", " < "),
    ("> to >=", r" > ", " >= "),
    (">= to >", r" >= ", " > "),
    ("== to !=", r" == ", " != "),
    ("!= to ==", r" != ", " == "),
    ("&& to ||", r" && ", " || "),
    ("|| to &&", r" \|\| ", " && "),
    ("+ 1 to - 1", r" \+ 1\b", " - 1"),
    ("- 1 to + 1", r" - 1\b", " + 1"),
    ("true to false", r"\btrue\b", "false"),
    ("false to true", r"\bfalse\b", "true"),
]


def run(cmd, cwd, timeout=None, quiet=True):
    return subprocess.run(cmd, cwd=cwd, timeout=timeout, text=True,
                          stdout=subprocess.PIPE if quiet else None,
                          stderr=subprocess.STDOUT if quiet else None)


def code_part(line):
    """The line without string literals and a trailing comment, so no mutant lands there."""
    line = re.sub(r'"(\\.|[^"\\])*"', lambda m: " " * len(m.group(0)), line)
    line = re.sub(r"'(\\.|[^'\\])*'", lambda m: " " * len(m.group(0)), line)
    cut = line.find("//")
    return line if cut < 0 else line[:cut]


def mutations(path, lines, covered):
    """Every (line number, name, new line) for the executed lines of one file."""
    found = []
    for number in sorted(covered):
        text = lines[number - 1]
        code = code_part(text)
        stripped = code.strip()
        if not stripped or stripped.startswith(("#", "*", "/*")) or "static_assert" in code:
            continue
        for name, pattern, replacement in OPERATORS:
            for match in re.finditer(pattern, code):
                new = text[:match.start()] + replacement + text[match.end():]
                found.append((number, name, new))
        ret = re.match(r"^(\s*)return (?!;)(.+);\s*$", code)
        if ret and not re.search(r"\b(true|false)\b", ret.group(2)):
            found.append((number, "return value replaced", ret.group(1) + "return {};\n"))
        # An if whose one statement sits on the next line: drop that statement.
        if re.match(r"^\s*(else )?if \(.*\)\s*$", code) and number < len(lines):
            body = lines[number]
            if body.strip().endswith(";") and not body.strip().startswith(("{", "}")):
                indent = body[: len(body) - len(body.lstrip())]
                found.append((number + 1, "statement after if dropped", indent + ";\n"))
    return [(path, n, name, new) for n, name, new in found]


def replayed(log, tree):
    """The mutants a previous run planted, from its "[i/N] verdict file:line name" lines. A
    line with the same operator twice yields both. Each line is found again by its text in
    the tree now (the nearest copy in the same file), so later edits that move lines keep
    the comparison; a line that is gone is reported and left out."""
    chosen = []
    rev = re.search(r"^mutants: (\S+) copied to", log, re.M)
    for match in re.finditer(r"^\[\d+/\d+\] +(?:killed|survived|timed out|did not compile) +"
                             r"(\S+):(\d+) (.+?) \(", log, re.M):
        rel, number, name = match.group(1), int(match.group(2)), match.group(3)
        path = tree / rel
        lines = path.read_text().splitlines(keepends=True) if path.exists() else []
        if rev:
            then = subprocess.run(["git", "show", f"{rev.group(1)}:{rel}"], cwd=ROOT,
                                  capture_output=True, text=True).stdout.splitlines(keepends=True)
            text = then[number - 1] if number <= len(then) else None
            same = [i + 1 for i, line in enumerate(lines) if line == text]
            if not same and text and text.strip():  # moved to another file: found once there
                elsewhere = [(f, i + 1) for f in sorted((tree / "src").rglob("*.cpp"))
                             for i, line in enumerate(f.read_text().splitlines(keepends=True))
                             if line == text]
                if len(elsewhere) == 1:
                    moved_to = str(elsewhere[0][0].relative_to(tree))
                    print(f"mutants: {rel}:{number} is now {moved_to}:{elsewhere[0][1]}",
                          flush=True)
                    rel, path = moved_to, elsewhere[0][0]
                    lines = path.read_text().splitlines(keepends=True)
                    same = [elsewhere[0][1]]
            if not same:
                print(f"mutants: {rel}:{number} ({name}) is gone from the tree", flush=True)
                continue
            moved = min(same, key=lambda i: abs(i - number))
            if moved != number:
                print(f"mutants: {rel}:{number} is now line {moved}", flush=True)
            number = moved
        probe = number - 1 if name == "statement after if dropped" else number
        chosen += [m for m in mutations(rel, lines, {probe}) if m[1] == number and m[2] == name]
    return chosen


def coverage(build, tree, tests):
    """Executed lines per source file, and per test the files and lines it executes."""
    objects = build / "src"
    gcov_dir = build / "gcov"
    per_test = {}
    for test, command in tests.items():
        for gcda in objects.rglob("*.gcda"):
            gcda.unlink()
        run(command, cwd=build, timeout=900)
        shutil.rmtree(gcov_dir, ignore_errors=True)
        gcov_dir.mkdir()
        gcdas = [str(p) for p in objects.rglob("*.gcda")]
        if gcdas:
            run(["gcov", "-j", "-b"] + gcdas, cwd=gcov_dir)
        lines = {}
        for report in gcov_dir.glob("*.gcov.json.gz"):
            with gzip.open(report, "rt") as stream:
                data = json.load(stream)
            for entry in data.get("files", []):
                source = Path(entry["file"])
                if not source.is_absolute():
                    source = (build / source).resolve()
                try:
                    rel = str(source.resolve().relative_to(tree))
                except ValueError:
                    continue
                if not (rel.startswith("src/core/") or rel.startswith("src/platform/linux/")
                        or rel.startswith("src/platform/posix/")):
                    continue
                hit = {l["line_number"] for l in entry["lines"] if l["count"] > 0}
                lines.setdefault(rel, set()).update(hit)
        per_test[test] = lines
        print(f"  coverage: {test}: {sum(len(v) for v in lines.values())} lines", flush=True)
    return per_test


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--n", type=int, default=60)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--rev", default="HEAD")
    parser.add_argument("--work", default=str(ROOT / "build-mutants"))
    parser.add_argument("--jobs", type=int, default=os.cpu_count() or 2)
    parser.add_argument("--replay", help="a previous run's output: plant exactly its mutants "
                        "(to compare the same faults before and after a change to the tests)")
    args = parser.parse_args()
    started = time.time()

    work = Path(args.work).resolve()
    tree = work / "tree"
    build = work / "build"
    shutil.rmtree(work, ignore_errors=True)
    tree.mkdir(parents=True)
    archive = subprocess.run(["git", "archive", args.rev], cwd=ROOT, stdout=subprocess.PIPE,
                             check=True).stdout
    subprocess.run(["tar", "-x", "-C", str(tree)], input=archive, check=True)
    print(f"mutants: {args.rev} copied to {tree}", flush=True)

    flags = "-O0 -g0 --coverage"
    if run(["cmake", "-S", str(tree), "-B", str(build), "-G", "Ninja",
            "-DCMAKE_BUILD_TYPE=Debug", f"-DCMAKE_CXX_FLAGS={flags}",
            "-DCMAKE_EXE_LINKER_FLAGS=--coverage"], cwd=tree).returncode != 0:
        sys.exit("mutants: configure failed")
    if run(["ninja", "-C", str(build), f"-j{args.jobs}"], cwd=tree, quiet=False).returncode:
        sys.exit("mutants: the unmutated tree does not build")

    listing = run(["ctest", "--show-only=json-v1"], cwd=build)
    tests = {}
    for test in json.loads(listing.stdout)["tests"]:
        if test["name"].startswith("tst_"):
            tests[test["name"]] = test["command"]
    env_note = "QT_QPA_PLATFORM=offscreen"
    os.environ["QT_QPA_PLATFORM"] = "offscreen"

    baseline = {}
    for test, command in tests.items():
        begin = time.time()
        result = run(command, cwd=build, timeout=900)
        baseline[test] = time.time() - begin
        if result.returncode != 0:
            sys.exit(f"mutants: {test} fails on the unmutated tree")
    print(f"mutants: baseline green ({env_note})", flush=True)

    per_test = coverage(build, tree, tests)
    covered = {}
    for lines in per_test.values():
        for rel, hit in lines.items():
            covered.setdefault(rel, set()).update(hit)

    candidates = []
    for rel in sorted(covered):
        if not rel.endswith(".cpp"):
            continue
        text = (tree / rel).read_text().splitlines(keepends=True)
        candidates += mutations(rel, text, covered[rel])
    print(f"mutants: {len(candidates)} candidates on {sum(len(v) for v in covered.values())}"
          " executed lines", flush=True)
    chosen = random.Random(args.seed).sample(candidates, min(args.n, len(candidates)))
    if args.replay:
        chosen = replayed(Path(args.replay).read_text(), tree)

    # Targets each test needs rebuilt: itself, and the CLI or app it starts.
    targets = {t: [t] for t in tests}
    for t in tests:
        if t.startswith("tst_cli"):
            targets[t].append("quorvel-cli")
        if t == "tst_app":
            targets[t].append("quorvel")

    tally = {"killed": 0, "survived": 0, "timed out": 0, "did not compile": 0}
    survivors = []
    for index, (rel, number, name, new) in enumerate(chosen, 1):
        path = tree / rel
        original = path.read_text().splitlines(keepends=True)
        line_tests = [t for t, lines in per_test.items() if number in lines.get(rel, set())]
        if name == "statement after if dropped":
            line_tests = [t for t, lines in per_test.items()
                          if (number - 1) in lines.get(rel, set())]
        fast = [t for t in line_tests if t not in SLOW]
        chosen_tests = sorted(fast or line_tests)
        mutated = original[:]
        mutated[number - 1] = new if new.endswith("\n") else new + "\n"
        path.write_text("".join(mutated))
        diff = f"{rel}:{number} ({name})\n  - {original[number - 1].strip()}\n  + {new.strip()}"
        verdict = "survived"
        try:
            need = sorted({x for t in chosen_tests for x in targets[t]})
            if run(["ninja", "-C", str(build), f"-j{args.jobs}"] + need, cwd=tree).returncode:
                verdict = "did not compile"
            else:
                for test in chosen_tests:
                    limit = max(20.0, baseline[test] * 3)
                    try:
                        if run(tests[test], cwd=build, timeout=limit).returncode != 0:
                            verdict = "killed"
                            break
                    except subprocess.TimeoutExpired:
                        verdict = "timed out"
                        break
        finally:
            path.write_text("".join(original))
        tally[verdict] += 1
        if verdict == "survived":
            survivors.append(diff)
        print(f"[{index}/{len(chosen)}] {verdict:15} {rel}:{number} {name} "
              f"({', '.join(chosen_tests) or 'no test'})", flush=True)
    # Leave the build matching the unmutated tree.
    run(["ninja", "-C", str(build), f"-j{args.jobs}"], cwd=tree)

    total = len(chosen) - tally["did not compile"]
    caught = tally["killed"] + tally["timed out"]
    print("\nmutants: seed %d, N %d, %.0f min" % (args.seed, len(chosen),
                                                 (time.time() - started) / 60))
    for key, value in tally.items():
        print(f"  {key}: {value}")
    if total:
        print(f"  score: {caught}/{total} = {100.0 * caught / total:.1f} % of those that built")
    if survivors:
        print("\nsurvivors:")
        for entry in survivors:
            print(entry)


if __name__ == "__main__":
    main()
