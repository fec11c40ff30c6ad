#!/usr/bin/env python3
"""Proves that the contract suite notices a changed bridge: flips one thing at a time in javanew/ and runs the suite.

A mutant changes one argument, order, text, status, constant, comparison, width or call of the bridge's sources and headers.
Those that do not compile are discarded and others are drawn. A mutant is killed when the suite fails, crashes or hangs on it.
Survivors that no caller can tell from the original stand with a reason in mutants-equivalent.txt and do not count. Exits
with 1 when fewer than 98 % are killed.

The build's tests run 15 mutants; tests/contract/mutate.py runs 400, and --count 0 all that there are.
"""
import argparse
import concurrent.futures
import itertools
import os
import pathlib
import random
import re
import shlex
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
SOURCES = ROOT / "javanew"
EQUIVALENT = pathlib.Path(__file__).with_name("mutants-equivalent.txt")
REQUIRED = 0.98
RUN_LIMIT = 60  # seconds for one run of the suite

STATUSES = ["QUORL_OK", "QUORL_NO_MEMORY", "QUORL_TIMEOUT", "QUORL_NOT_FOUND", "QUORL_INVALID_ARG"]
# A library function and another one that takes the same arguments.
TWINS = [("_Add", "_Update"), ("SendSubject", "ReplySubject"), ("AddListener(", "RemoveListener("),
         ("AllowListener", "DisallowListener"), ("ConnectToRelayAgent", "DisconnectFromRelayAgent"),
         ("MarkReferences", "ClearReferences"), ("I32", "U32"), ("I16", "U16"), ("I64", "U64"), ("I8", "U8"),
         ("F32", "F64"), ("Opaque", "Xml"), ("GetPriority", "GetCount"), ("IPPort16", "U16")]
WIDTHS = {"quorl_u8": "bool", "quorl_u16": "quorl_u8", "quorl_u32": "quorl_u16", "quorl_u64": "quorl_u32",
          "jint": "jshort", "uintptr_t": "uint32_t"}
# Two frees in a row may change places, and so may a free and a throw: no caller sees when memory is given back.
FREES = re.compile(r"(std::free|freeText|freeCredential|freeParameter|leaveBehind|giveBackReferences)\(")
COMPARISONS = [("==", "!="), ("!=", "=="), (" < ", " <= "), (" > ", " >= "), ("&&", "||"), ("||", "&&")]


def blank_comments(text):
    """The text with comments turned to spaces, so that positions stay."""
    pattern = r'("(?:\\.|[^"\\\n])*")|(//[^\n]*|/\*.*?\*/)'
    return re.sub(pattern, lambda m: m.group(1) or re.sub(r"[^\n]", " ", m.group(2)), text, flags=re.S)


def candidates(path):
    """All (offset, old, new, kind) that one source file offers."""
    text = path.read_text(encoding="utf-8")
    code = blank_comments(text)
    found = []
    offset = 0
    lines = code.splitlines(keepends=True)
    for number, line in enumerate(lines):
        start, offset = offset, offset + len(line)
        bare = line.strip()
        if not bare or bare.startswith(("#", "static_assert", "using ", "namespace", "template", "extern ")):
            continue
        for match in re.finditer(r'"((?:\\.|[^"\\])+)"', line):
            old = match.group(0)
            found.append((start + match.start(), old, old[:-2] + ("X" if old[-2] != "X" else "Y") + '"', "text"))
        strings_out = re.sub(r'"(?:\\.|[^"\\])*"', lambda m: " " * len(m.group(0)), line)
        for match in re.finditer(r"(?<![\w.])(0x[0-9a-fA-F]+|\d+)(?![\w.])", strings_out):
            value = int(match.group(1), 0)
            found.append((start + match.start(), match.group(1), str(value + 1), "constant"))
        for status in STATUSES:
            for match in re.finditer(rf"\b{status}\b", strings_out):
                for other in STATUSES:
                    if other != status:
                        found.append((start + match.start(), status, other, "status"))
        for old, new in COMPARISONS:
            for match in re.finditer(re.escape(old), strings_out):
                found.append((start + match.start(), old, new, "comparison"))
        for match in re.finditer(r"\bquorl\w+", strings_out):
            for one, two in TWINS:
                for old, new in ((one, two), (two, one)):
                    if old in match.group(0) and new != match.group(0):
                        found.append((start + match.start(), match.group(0), match.group(0).replace(old, new, 1), "twin"))
        for match in re.finditer(r"static_cast<(\w+)>", strings_out):
            if match.group(1) in WIDTHS:
                found.append((start + match.start(1), match.group(1), WIDTHS[match.group(1)], "width"))
        for match in re.finditer(r"\b(true|false|QUORL_TRUE|QUORL_FALSE|nullptr)\b", strings_out):
            new = {"true": "false", "false": "true", "QUORL_TRUE": "QUORL_FALSE", "QUORL_FALSE": "QUORL_TRUE",
                   "nullptr": None}[match.group(1)]
            if new:
                found.append((start + match.start(), match.group(1), new, "constant"))
        # Two neighbouring simple arguments change places.
        for match in re.finditer(r"(?<=[(,])(\s*)(&?[\w.>-]+),(\s*)(&?[\w.>-]+)(?=[,)])", strings_out):
            if match.group(2) != match.group(4) and (bare.endswith(";") or "return" in bare):
                found.append((start + match.start(), match.group(0),
                              f"{match.group(1)}{match.group(4)},{match.group(3)}{match.group(2)}", "argument order"))
        # A statement that stands alone on its line goes away, or changes places with the next one.
        statement = re.fullmatch(r"\s*[\w>.-]+(?:->|\.|::)?\w*\(.*\);\n", line)
        if statement and line.count("(") == line.count(")"):
            found.append((start, text[start:offset], "\n", "call left out"))
            if number + 1 < len(lines):
                following = lines[number + 1]
                complete = following.strip().endswith(";") and following.count("(") == following.count(")")
                either = [bare, following.strip()]
                unseen = any(map(FREES.match, either)) and all(re.match(f"{FREES.pattern}|throw", one) for one in either)
                if complete and not unseen:
                    both = text[start:offset + len(following)]
                    swapped = text[offset:offset + len(following)] + text[start:offset]
                    found.append((start, both, swapped, "order"))
    return text, found


class Bench:
    """Compiles a mutated source with a plain command line and links the suite with it and objects that exist already."""

    def __init__(self, build):
        self.build = build
        listed = subprocess.run(["ninja", "-C", build, "-t", "commands", "contract"], capture_output=True, text=True,
                                check=True)
        commands = listed.stdout.splitlines()
        self.objects = {}  # of the unchanged sources, with the kit's heap and locks under them
        for command in commands:
            words = shlex.split(command)
            if words[-2:-1] == ["-c"] and pathlib.Path(words[-1]).parent.name == SOURCES.name:
                places = [f"-I{words[i + 1]}" for i, word in enumerate(words) if word == "-isystem"]
                # A launcher may stand before the compiler: both end where the options begin.
                self.compiler = list(itertools.takewhile(lambda word: not word.startswith("-"), words))
                self.compile = [*self.compiler, "-std=c++20", "-O0", "-g0", "-w", "-fPIC", *places,
                                *(word for word in words if word.startswith("-I"))]
            if "--redefine-sym" in words:
                self.rename, self.objects[pathlib.Path(words[-1]).stem] = words[words.index("&&") + 1:-2], words[-1]
        words = shlex.split(commands[-1])
        if "bin/contract" not in words or not self.objects:
            raise SystemExit("mutate: cannot find the commands that make the contract suite")
        kit = [word for word in words if word.endswith(".o") and "/bridge/" not in word]
        self.libraries = [word for word in words if word.startswith("-l") or re.search(r"\.(a|so)\b", word)]
        self.folder = tempfile.TemporaryDirectory(prefix="quorl-mutants-")
        # The kit and the rows in one object without debug information: the link is what takes the time.
        self.kit = f"{self.folder.name}/kit.o"
        subprocess.run(["ld", "-r", "-S", "-o", self.kit, *kit], cwd=build, check=True)
        includes = {path.name: re.findall(r'#include "(\w+\.h)"', path.read_text(encoding="utf-8")) for path in SOURCES.iterdir()
                    if path.suffix in (".h", ".cpp")}
        self.users = {}  # header -> the sources that see it
        for source in self.objects:
            seen, waiting = set(), [source]
            while waiting:
                name = waiting.pop()
                if name not in seen:
                    seen.add(name)
                    waiting += includes.get(name, [])
            for name in seen:
                self.users.setdefault(name, []).append(source)

    def make(self, scratch, changed, text, *options):
        """Links the suite with the changed file in place of the original. False when it does not compile. options: more of the
        compiler's, for the sources that see the file and for the link."""
        for path in SOURCES.iterdir():
            if path.name != changed:
                pathlib.Path(scratch, path.name).symlink_to(path)
        pathlib.Path(scratch, changed).write_text(text, encoding="utf-8")
        sources = self.users[changed]
        compiled = subprocess.run([*self.compile, *options, "-c", *(f"{scratch}/{source}" for source in sources)],
                                  cwd=scratch, capture_output=True, check=False)
        if compiled.returncode != 0:
            return False
        objects = dict(self.objects)
        for source in sources:
            objects[source] = f"{scratch}/{pathlib.Path(source).stem}.o"
            subprocess.run([*self.rename, objects[source]], check=True)
        linked = subprocess.run([*self.compiler, *options, "-o", f"{scratch}/contract", *objects.values(), self.kit,
                                 *self.libraries], cwd=self.build, capture_output=True, check=False)
        return linked.returncode == 0

    def try_mutant(self, mutant):
        """'killed', 'survived' or 'stillborn'."""
        path, text, (offset, old, new, _) = mutant
        with tempfile.TemporaryDirectory(dir=self.folder.name) as scratch:
            if not self.make(scratch, path.name, text[:offset] + new + text[offset + len(old):]):
                return "stillborn"
            try:
                run = subprocess.run([f"{scratch}/contract", "--gtest_fail_fast", "--gtest_brief=1"], cwd=scratch,
                                     capture_output=True, timeout=RUN_LIMIT, check=False)
            except subprocess.TimeoutExpired:
                return "killed"
            return "survived" if run.returncode == 0 else "killed"

    def check_original(self):
        with tempfile.TemporaryDirectory(dir=self.folder.name) as scratch:
            original = SOURCES / "native.h"
            if not self.make(scratch, original.name, original.read_text(encoding="utf-8")):
                raise SystemExit("mutate: the unchanged bridge does not compile")
            run = subprocess.run([f"{scratch}/contract", "--gtest_brief=1"], cwd=scratch, capture_output=True, check=False)
            if run.returncode != 0:
                raise SystemExit("mutate: the suite fails on the unchanged bridge")


def whole_lines(text, offset, length):
    begin = text.rfind("\n", 0, offset) + 1
    end = text.find("\n", offset + length)
    return begin, len(text) if end < 0 else end


def describe(mutant):
    path, text, (offset, old, new, _) = mutant
    begin, end = whole_lines(text, offset, len(old))
    before = " ".join(text[begin:end].split())
    after = " ".join((text[begin:offset] + new + text[offset + len(old):end]).split())
    return f"{path.name} | {before} | {after}"


def known_equivalent():
    if not EQUIVALENT.exists():
        return {}
    reasons = {}
    for line in EQUIVALENT.read_text(encoding="utf-8").splitlines():
        if line and not line.startswith("#"):
            mutant, reason = line.rsplit(" | ", 1)
            reasons[mutant] = reason
    return reasons


def draw(seed):
    """All mutants in the order in which they are tried."""
    chooser = random.Random(seed)
    by_kind = {}
    for path in sorted([*SOURCES.glob("*.cpp"), *SOURCES.glob("*.h")]):
        text, found = candidates(path)
        for change in found:
            by_kind.setdefault(change[3], []).append((path, text, change))
    for mutants in by_kind.values():
        chooser.shuffle(mutants)
    # In turn from each kind, so that the many constants do not crowd out the few orders.
    drawn = []
    while any(by_kind.values()):
        for kind in sorted(by_kind):
            if by_kind[kind]:
                drawn.append(by_kind[kind].pop())
    return drawn


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--count", type=int, default=400, help="how many mutants to try; 0 for all (400)")
    parser.add_argument("--seed", type=int, default=1, help="which ones, and in which order (1)")
    parser.add_argument("--build", metavar="DIR", help="a finished build to use; otherwise the release preset is built first")
    parser.add_argument("--jobs", type=int, default=min(2, os.cpu_count()), help="how many at a time (2)")
    parser.add_argument("--list-survivors", metavar="FILE", help="one line for each, in the format of the equivalents")
    options = parser.parse_args()

    os.nice(10)
    if not options.build:
        subprocess.run(["cmake", "--build", "--preset", "release", "--target", "contract"], cwd=ROOT, check=True,
                       stdout=subprocess.DEVNULL)
    bench = Bench(pathlib.Path(options.build or ROOT / "build" / "release").resolve())
    bench.check_original()
    drawn = draw(options.seed)
    wanted = options.count or len(drawn)

    reasons = known_equivalent()
    outcomes = {"killed": 0, "stillborn": 0}
    survivors, excused = [], []
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        position = 0
        while outcomes["killed"] + len(survivors) < wanted and position < len(drawn):
            step = drawn[position:position + min(options.jobs * 4, wanted - outcomes["killed"] - len(survivors))]
            position += len(step)
            for mutant, outcome in zip(step, pool.map(bench.try_mutant, step)):
                if outcome != "survived":
                    outcomes[outcome] += 1
                    continue
                name = describe(mutant)
                if name in reasons:
                    excused.append(name)
                else:
                    survivors.append(name)
                    print(f"survived ({mutant[2][3]}): {name}", flush=True)
            if sys.stderr.isatty():
                print(f"{outcomes['killed'] + len(survivors)} of {wanted}", end="\r", file=sys.stderr, flush=True)
    killed = outcomes["killed"]
    counted = killed + len(survivors)
    share = killed / counted if counted else 0.0
    print(f"seed {options.seed}: {counted} mutants, {killed} killed ({share:.1%}), {len(survivors)} survived; "
          f"{len(excused)} more cannot be told from the original, {outcomes['stillborn']} did not compile")
    if options.list_survivors:
        pathlib.Path(options.list_survivors).write_text("".join(f"{name}\n" for name in survivors), encoding="utf-8")
    return 0 if counted and share >= REQUIRED else 1


if __name__ == "__main__":
    sys.exit(main())
