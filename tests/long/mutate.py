#!/usr/bin/env python3
"""Breaks src/ in small ways, one at a time, and counts how many of them the tests notice.

A mutant is one comparison, constant or operator of one line, changed; lines are drawn with a seed. Each mutant is
built in a copy of the tree, and tested until the first failure; with --sanitize what survives is tested once more under
AddressSanitizer. The working tree is not touched. Results are appended to mutants.jsonl in the build directory, where a
second run goes on; --again tries the survivors anew.
"""

import argparse
import collections
import json
import os
import random
import re
import resource
import shutil
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
EQUIVALENT = Path(__file__).with_name("equivalent_mutants.txt")
CPU_SECONDS = 120  # of one test program; more is an endless loop
WALL_SECONDS = 1200
MEMORY = 4 << 30
# Costly tests come last, as most mutants are noticed by others.
SLOW = "FastPaths.*:LinkGate.*:Recording.*:SecondLook.FindsNoMessageInNoise"

# clang-format puts spaces around binary operators and none around template brackets, pointers and references.
SWAPS = {" < ": " <= ", " <= ": " < ", " > ": " >= ", " >= ": " > ", " == ": " != ", " != ": " == ",
         " + ": " - ", " - ": " + ", " * ": " / ", " / ": " * ", " % ": " / ",
         " += ": " -= ", " -= ": " += ", " *= ": " /= ", " /= ": " *= ",
         " && ": " || ", " || ": " && ", " & ": " | ", " | ": " & ", " ^ ": " | ", " << ": " >> ", " >> ": " << ",
         " |= ": " &= ", " &= ": " |= ", " ^= ": " |= ", "++": "--", "true": "false", "false": "true"}
SITE = re.compile("|".join([r"(?<![\w.])\d[\w.]*(?:(?<=[eEpP])[+-]\d+)?", r"(?<=[( ])!(?=[\w(])", r"\btrue\b", r"\bfalse\b"]
                           + [re.escape(s) for s in sorted(SWAPS, key=len, reverse=True) if not s.isalpha()]))


def changed(token):
    """What a mutant writes for a token: the other operator, a number one up, a fraction twice as large."""
    if token in SWAPS:
        return SWAPS[token]
    if token == "!":
        return ""
    whole = re.fullmatch(r"(\d+|0[xX][0-9a-fA-F]+)([uUlL]*)", token)
    if whole:
        return str(int(whole[1], 0) + 1) + whole[2]
    value = float.fromhex(token) if token.startswith("0x") else float(token)
    return repr(2 * value if value else 1.0)


def blanked(text):
    """The text with comments, strings, preprocessor lines and compile-time checks turned into spaces."""
    hidden = r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])\'|^[ \t]*#[^\n]*|static_assert\([^;]*;'
    return re.sub(hidden, lambda m: re.sub(r"[^\n]", " ", m[0]), text, flags=re.S | re.M)


def all_lines():
    """(path, line number, [(column, token)]) of every line that can be changed."""
    lines = []
    for path in sorted(p for p in (ROOT / "src").rglob("*") if p.suffix in (".cpp", ".h")):
        for number, line in enumerate(blanked(path.read_text()).split("\n"), 1):
            sites = [(m.start(), m[0]) for m in SITE.finditer(line)
                     if not (m[0] == "++" and "for (" in line)]  # a loop that never ends, or never begins
            if sites:
                lines.append((str(path.relative_to(ROOT)), number, sites))
    return lines


def draw(count, seed):
    generator = random.Random(seed)
    mutants = []
    for path, number, sites in generator.sample(all_lines(), count):
        column, token = generator.choice(sites)
        line = (ROOT / path).read_text().split("\n")[number - 1]
        mutated = line[:column] + changed(token) + line[column + len(token):]
        mutants.append({"file": path, "line": number, "before": line.strip(), "after": mutated.strip(),
                        "text": mutated})
    return mutants


def find_again(mutant):
    """Where the mutant's line is now: its number and text, or False when it is gone."""
    lines = (ROOT / mutant["file"]).read_text().split("\n")
    places = [n for n, line in enumerate(lines, 1) if line.strip() == mutant["before"]]
    if not places:
        return False
    mutant["line"] = min(places, key=lambda n: abs(n - mutant["line"]))
    mutant["text"] = lines[mutant["line"] - 1].replace(mutant["before"], mutant["after"])
    return True


# The sanitizer maps more than the limit below for itself, and watches its own.
SANITIZER = {**os.environ, "ASAN_OPTIONS": f"allocator_may_return_null=1:hard_rss_limit_mb={MEMORY >> 20}"}


def limited(is_sanitized):
    resource.setrlimit(resource.RLIMIT_CPU, (CPU_SECONDS, CPU_SECONDS))
    if not is_sanitized:
        resource.setrlimit(resource.RLIMIT_DATA, (MEMORY, MEMORY))


def succeeds(command, is_sanitized=False, **options):
    try:
        return subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              preexec_fn=lambda: limited(is_sanitized), env=SANITIZER if is_sanitized else None,
                              timeout=WALL_SECONDS, **options).returncode == 0
    except subprocess.TimeoutExpired:
        return False


class Tree:
    """A copy of what git would commit; what did not change keeps its time."""

    def __init__(self, folder):
        self.folder = folder
        files = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=ROOT, check=True, text=True,
                               capture_output=True).stdout.split()
        for source, target in ((ROOT / name, folder / name) for name in files):
            if source.exists() and not (target.exists() and target.read_bytes() == source.read_bytes()):
                target.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(source, target)

    def put(self, mutant):
        """Writes a mutant into its file and returns the content of before."""
        source = self.folder / mutant["file"]
        original = source.read_text()
        lines = original.split("\n")
        lines[mutant["line"] - 1] = mutant["text"]
        source.write_text("\n".join(lines))
        return original


class Build:
    """The tests; make builds anew what a mutant is part of."""

    def __init__(self, tree, out, sanitizer, jobs):
        self.tree, self.out, self.sanitizer, self.jobs = tree.folder, out, sanitizer, jobs
        subprocess.run(["cmake", "-G", "Unix Makefiles", "-S", self.tree, "-B", self.out, "-DCMAKE_BUILD_TYPE=None",
                        "-DCMAKE_CXX_FLAGS=-O1 -w", "-DCMAKE_C_FLAGS=-O1", "-DKOSC_BUILD_TOOLS=OFF",
                        "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST", f"-DKOSC_SANITIZE={sanitizer}"],
                       check=True, stdout=subprocess.DEVNULL)
        if not self.make():
            sys.exit("the tests do not build")
        self.code = self.library().read_bytes()

    def make(self):
        return subprocess.run(["cmake", "--build", self.out, "--parallel", str(self.jobs), "--target", "kosc_tests",
                               "kosc_internal_tests", "kosc_fault_tests"],
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0

    def library(self):
        return self.out / "src/libkosc.so"

    def tests(self):
        kosc_tests = self.out / "tests/kosc_tests"
        yield [kosc_tests, "--gtest_fail_fast", "--gtest_filter=-" + SLOW]
        for name in ("tests/kosc_internal_tests", "tests/faults/kosc_fault_tests"):
            yield [self.out / name, "--gtest_fail_fast"]
        yield [kosc_tests, "--gtest_fail_fast", "--gtest_filter=" + SLOW]
        if not self.sanitizer:
            yield [sys.executable, "-B", self.tree / "tests/vectors/run_vectors.py", self.library()]

    def verdict(self):
        """What becomes of the mutant that is in the tree now."""
        if not self.make():
            return "does not compile"
        if self.library().read_bytes() == self.code:
            return "same code"
        return "survived" if self.passes() else "killed"

    def passes(self):
        return all(succeeds(test, self.sanitizer != "") for test in self.tests())


def known_equivalents():
    """{(file, mutated line): reason} of survivors that no test can tell from the original."""
    entries = [line.split(" | ") for line in EQUIVALENT.read_text().splitlines() if line and line[0] != "#"] \
        if EQUIVALENT.exists() else []
    return {(file, after): reason for file, after, reason in entries}


def report(results):
    equivalents = known_equivalents()
    counts = collections.Counter()
    for mutant in results:
        reason = equivalents.get((mutant["file"], mutant["after"]))
        verdict = "equivalent" if mutant["verdict"] == "survived" and reason else mutant["verdict"]
        counts[verdict] += 1
        if verdict in ("survived", "equivalent"):
            print(f"{verdict}: {mutant['file']}:{mutant['line']}\n    {mutant['before']}\n    {mutant['after']}")
            if reason:
                print(f"    ({reason})")
    judged = counts["killed"] + counts["survived"]
    print(", ".join(f"{count} {verdict}" for verdict, count in counts.most_common()))
    print(f"killed {counts['killed']} of {judged} mutants that can be told apart: "
          f"{100 * counts['killed'] / max(judged, 1):.1f} %")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--count", type=int, default=200)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--build", type=Path, default=ROOT / "build/mutate")
    parser.add_argument("--sanitize", action="store_true")
    parser.add_argument("--again", action="store_true", help="try the survivors of the last run anew")
    arguments = parser.parse_args()
    arguments.build.mkdir(parents=True, exist_ok=True)
    store = arguments.build / "mutants.jsonl"
    results = [json.loads(line) for line in store.read_text().splitlines()] if store.exists() else []
    if arguments.again:
        todo = [r for r in results if r["verdict"] == "survived" and find_again(r)]
        results = [r for r in results if r not in todo]
    else:
        done = {(r["file"], r["before"], r["after"]) for r in results}
        todo = [m for m in draw(arguments.count, arguments.seed) if (m["file"], m["before"], m["after"]) not in done]
    tree = Tree(arguments.build.resolve() / "tree")
    builds = [Build(tree, arguments.build.resolve() / name, sanitizer, arguments.jobs)
              for name, sanitizer in (("out", ""), ("sanitized", "address,undefined"))[:1 + arguments.sanitize]]
    if todo and not all(build.passes() for build in builds):
        sys.exit("the tests fail without a mutant")
    store.write_text("".join(json.dumps(r) + "\n" for r in results))
    for mutant in todo:
        original = tree.put(mutant)
        for build in builds:
            mutant["verdict"] = build.verdict()
            if mutant["verdict"] != "survived":
                break
        (tree.folder / mutant["file"]).write_text(original)
        results.append(mutant)
        with store.open("a") as out:
            out.write(json.dumps(mutant) + "\n")
    report(results)


if __name__ == "__main__":
    main()
