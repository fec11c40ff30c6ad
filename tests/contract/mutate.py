#!/usr/bin/env python3
"""Proves that the contract suite notices a changed bridge: it flips one thing at a time in javanew/ and runs the suite.

Usage: tests/contract/mutate.py [--count N] [--seed S] [--preset release] [--jobs N] [--list-survivors FILE]

A mutant changes one argument, order, text, status, constant, comparison or call of the bridge's sources. Mutants that do
not compile are discarded and another is drawn. A mutant is killed when the suite fails, crashes or hangs on it. Survivors
that no caller can tell from the original stand with a reason in mutants-equivalent.txt and do not count. Exits with 1 when
fewer than 98 % are killed."""
import argparse
import concurrent.futures
import os
import pathlib
import random
import re
import shlex
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
EQUIVALENT = pathlib.Path(__file__).with_name("mutants-equivalent.txt")
REQUIRED = 0.98
RUN_LIMIT = 120  # seconds for one run of the suite

STATUSES = ["QUORL_OK", "QUORL_NO_MEMORY", "QUORL_TIMEOUT", "QUORL_NOT_FOUND", "QUORL_INVALID_ARG"]
# A library function and another one that takes the same arguments.
TWINS = [("_Add", "_Update"), ("SendSubject", "ReplySubject"), ("AddListener(", "RemoveListener("),
         ("AllowListener", "DisallowListener"), ("ConnectToRelayAgent", "DisconnectFromRelayAgent"),
         ("MarkReferences", "ClearReferences"), ("I32", "U32"), ("I16", "U16"), ("I64", "U64"), ("I8", "U8"),
         ("F32", "F64"), ("Opaque", "Xml"), ("GetPriority", "GetCount"), ("IPPort16", "U16")]
COMPARISONS = [("==", "!="), ("!=", "=="), (" < ", " <= "), (" > ", " >= "), ("&&", "||"), ("||", "&&")]


def blank_comments(text):
    """The text with comments turned to spaces, so that positions stay."""
    pattern = r'("(?:\\.|[^"\\\n])*")|(//[^\n]*|/\*.*?\*/)'
    return re.sub(pattern, lambda m: m.group(1) or re.sub(r"[^\n]", " ", m.group(2)), text, flags=re.S)


def candidates(path):
    """All (offset, old, new, kind) that one source file offers."""
    text = path.read_text()
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
        for match in re.finditer(r"\b(true|false|QUORL_TRUE|QUORL_FALSE|nullptr)\b", strings_out):
            new = {"true": "false", "false": "true", "QUORL_TRUE": "QUORL_FALSE", "QUORL_FALSE": "QUORL_TRUE",
                   "nullptr": None}[match.group(1)]
            if new:
                found.append((start + match.start(), match.group(1), new, "constant"))
        # Two neighbouring simple arguments change places.
        for match in re.finditer(r"(?<=[(,])(\s*)(&?[\w.>-]+),(\s*)(&?[\w.>-]+)(?=[,)])", strings_out):
            if bare.endswith(";") or "return" in bare:
                found.append((start + match.start(), match.group(0),
                              f"{match.group(1)}{match.group(4)},{match.group(3)}{match.group(2)}", "argument order"))
        # A statement that stands alone on its line goes away, or changes places with the next one.
        statement = re.fullmatch(r"\s*[\w>.-]+(?:->|\.|::)?\w*\(.*\);\n", line)
        if statement and line.count("(") == line.count(")"):
            found.append((start, text[start:offset], "\n", "call left out"))
            if number + 1 < len(lines):
                following = lines[number + 1]
                if following.strip().endswith(";") and following.count("(") == following.count(")"):
                    both = text[start:offset + len(following)]
                    swapped = text[offset:offset + len(following)] + text[start:offset]
                    found.append((start, both, swapped, "order"))
    return text, found


def commands_of(build, target):
    output = subprocess.run(["ninja", "-C", build, "-t", "commands", target], capture_output=True, text=True, check=True)
    return output.stdout.splitlines()


class Bench:
    """The commands that compile one bridge source and link the suite with it."""

    def __init__(self, build):
        self.build = build
        commands = commands_of(build, "contract")
        self.compile = {}
        self.rename = {}  # the step that puts the kit's heap and locks under an object
        for command in commands:
            match = re.search(r" -c (\S+/javanew/(\w+\.cpp))$", command.strip())
            if match:
                self.compile[match.group(2)] = command
            match = re.search(r"(\S*objcopy .*) (\S+) (\S+/bridge/(\w+\.cpp)\.o)$", command.strip())
            if match:
                self.rename[match.group(4)] = (match.group(1), match.group(3))
        self.link = commands[-1]
        if "bin/contract" not in self.link:
            raise SystemExit("mutate: cannot find the link command of the contract suite")

    def try_mutant(self, mutant):
        """'killed', 'survived' or 'stillborn'."""
        path, text, (offset, old, new, _) = mutant
        with tempfile.TemporaryDirectory(prefix="quorl-mutant-") as scratch:
            source = pathlib.Path(scratch, path.name)
            source.write_text(text[:offset] + new + text[offset + len(old):])
            compiled, program = f"{scratch}/mutant.o", f"{scratch}/contract"
            arguments = shlex.split(self.compile[path.name])
            rename, watched = self.rename[path.name]
            original = os.path.relpath(watched, self.build)
            arguments = [a for a in arguments if a != "-Werror"]
            arguments[arguments.index("-o") + 1] = compiled
            arguments[arguments.index("-c") + 1] = str(source)
            for flag, steps in (("-MF", 2), ("-MT", 2), ("-MD", 1)):
                if flag in arguments:
                    at = arguments.index(flag)
                    del arguments[at:at + steps]
            arguments[1:1] = ["-w", f"-I{path.parent}"]
            arguments += ["-O0", "-g0"]
            if subprocess.run(arguments, cwd=self.build, capture_output=True, check=False).returncode != 0:
                return "stillborn"
            subprocess.run(shlex.split(rename) + [compiled], check=True)
            link = self.link.replace(" " + original + " ", " " + compiled + " ")
            link = re.sub(r"-o bin/contract\b", f"-o {shlex.quote(program)}", link)
            if subprocess.run(["sh", "-c", link], cwd=self.build, capture_output=True, check=False).returncode != 0:
                return "stillborn"
            try:
                run = subprocess.run([program, "--gtest_fail_fast", "--gtest_brief=1"], cwd=scratch,
                                     capture_output=True, timeout=RUN_LIMIT, check=False)
            except subprocess.TimeoutExpired:
                return "killed"
            return "survived" if run.returncode == 0 else "killed"


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
    for line in EQUIVALENT.read_text().splitlines():
        if line and not line.startswith("#"):
            mutant, reason = line.rsplit(" | ", 1)
            reasons[mutant] = reason
    return reasons


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--count", type=int, default=200)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--preset", default="release")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--list-survivors", metavar="FILE")
    options = parser.parse_args()

    subprocess.run(["cmake", "--build", "--preset", options.preset, "--target", "contract"], cwd=ROOT, check=True,
                   stdout=subprocess.DEVNULL)
    bench = Bench(ROOT / "build" / options.preset)
    chooser = random.Random(options.seed)
    by_kind = {}
    for path in sorted((ROOT / "javanew").glob("*.cpp")):
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

    reasons = known_equivalent()
    killed, survivors, excused, tried = 0, [], [], 0
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        position = 0
        while killed + len(survivors) < options.count and position < len(drawn):
            step = drawn[position:position + options.jobs * 4]
            position += len(step)
            for mutant, outcome in zip(step, pool.map(bench.try_mutant, step)):
                if outcome == "stillborn":
                    continue
                tried += 1
                name = describe(mutant)
                if outcome == "killed":
                    killed += 1
                elif name in reasons:
                    excused.append(name)
                else:
                    survivors.append((mutant[2][3], name))
                    print(f"survived ({mutant[2][3]}): {name}", flush=True)
    counted = killed + len(survivors)
    share = killed / counted if counted else 0.0
    print(f"seed {options.seed}: {counted} mutants, {killed} killed ({share:.1%}), {len(survivors)} survived, "
          f"{len(excused)} more cannot be told from the original")
    if options.list_survivors:
        pathlib.Path(options.list_survivors).write_text("".join(f"{name}\n" for _, name in survivors))
    return 0 if counted and share >= REQUIRED else 1


sys.exit(main())
