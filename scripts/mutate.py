#!/usr/bin/env python3
"""Mutation testing for Varitap: how many small faults do the tests find?

Makes one small change at a time to a source file (a comparison or an
arithmetic operator flipped, a constant moved by one, a condition negated, a
statement or an early return removed), rebuilds the test programs of the
labels that cover that folder (CMake targets varitap_tests_<label>, in the
preset "mutate"), runs those tests with a time limit and calls the change
killed (a test failed), timed out, survived (every test passed) or invalid
(it does not compile; not counted). The sample is fixed by a seed, so two runs
on the same sources try the same changes; --replay tries the changes listed in
an earlier report, found again by their line's text where lines have moved.

Run through scripts/mutate.sh; see there for the options.
"""
import argparse
import os
import random
import re
import shutil
import subprocess
import sys
import time

# The folders whose code is mutated, and the test labels that guard each.
FOLDERS = {
    "engine": ["engine"],
    "modulation": ["engine", "base"],
    "host": ["host", "presets"],
    "persistence": ["presets", "base"],
    "editor": ["editor"],
    "gui": ["gui", "editor"],
}
MIN_PER_FOLDER = 15

RELATIONAL = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}
ARITHMETIC = {"+": "-", "-": "+", "*": "/", "/": "*"}
LOGICAL = {"&&": "||", "||": "&&"}


def mask(text):
    """The text with comments, strings and character literals blanked out
    (newlines kept), so that positions still match the original."""
    out = list(text)
    i, n = 0, len(text)
    while i < n:
        c = text[i]
        two = text[i:i + 2]
        if two == "//":
            j = text.find("\n", i)
            j = n if j < 0 else j
            for k in range(i, j):
                out[k] = " "
            i = j
        elif two == "/*":
            j = text.find("*/", i + 2)
            j = n if j < 0 else j + 2
            for k in range(i, j):
                if out[k] != "\n":
                    out[k] = " "
            i = j
        elif c == '"' and text[max(0, i - 1)] == "R" and text[i + 1:i + 2] == "(":
            j = text.find(')"', i)
            j = n if j < 0 else j + 2
            for k in range(i, j):
                if out[k] != "\n":
                    out[k] = " "
            i = j
        elif c in "\"'":
            j = i + 1
            while j < n and text[j] != c and text[j] != "\n":
                j += 2 if text[j] == "\\" else 1
            for k in range(i + 1, min(j, n)):
                out[k] = " "
            i = j + 1
        else:
            i += 1
    return "".join(out)


class Mutant:
    def __init__(self, path, line, col, orig, repl, kind):
        self.path, self.line, self.col = path, line, col
        self.orig, self.repl, self.kind = orig, repl, kind
        self.status, self.detail = "", ""

    def key(self):
        return (self.path, self.line, self.col, self.kind)


def matching_paren(s, open_at):
    depth = 0
    for k in range(open_at, len(s)):
        if s[k] == "(":
            depth += 1
        elif s[k] == ")":
            depth -= 1
            if depth == 0:
                return k
    return -1


STATEMENT = re.compile(r"^([\w:.\->\[\]*&]+?)(\(|\s*(=|\+=|-=|\*=|/=|\|=|&=)\s|\+\+|--)")
DECL_START = re.compile(r"^(alignas|if|for|while|switch|return|delete|throw|case|default|goto|using|typedef|else|do)\b")


def sites(path, text):
    """Every mutation this tool can make in one file."""
    masked = mask(text).split("\n")
    lines = text.split("\n")
    found = []
    prev_code = ""
    for no, (m, raw) in enumerate(zip(masked, lines), start=1):
        code = m.strip()
        if not code or code.startswith("#") or "static_assert" in code or "template" in code:
            if code:
                prev_code = code
            continue
        for match in re.finditer(r"(?<=\s)(<=|>=|==|!=|<|>)(?=\s)", m):
            op = match.group(1)
            found.append(Mutant(path, no, match.start(), op, RELATIONAL[op], "relational"))
        for match in re.finditer(r"(?<=\s)([+\-*/])(?=\s)", m):
            op = match.group(1)
            found.append(Mutant(path, no, match.start(), op, ARITHMETIC[op], "arithmetic"))
        for match in re.finditer(r"(?<=\s)(&&|\|\|)(?=\s)", m):
            op = match.group(1)
            found.append(Mutant(path, no, match.start(), op, LOGICAL[op], "logical"))
        for match in re.finditer(r"(?<![\w.])(\d+\.\d*|\.\d+|\d+)([fF]?)(?![\w.])", m):
            literal = match.group(1)
            if "." in literal:
                value = float(literal) + 1.0
                repl = repr(value)
            else:
                repl = str(int(literal) + 1)
            found.append(Mutant(path, no, match.start(1), literal, repl, "constant"))
        for match in re.finditer(r"\bif \(", m):
            open_at = match.end() - 1
            close_at = matching_paren(m, open_at)
            if close_at > 0:
                cond = raw[open_at + 1:close_at]
                found.append(Mutant(path, no, open_at + 1, cond, "!(" + cond + ")", "negate"))
                rest = m[close_at + 1:].strip()
                if rest.startswith("return") and rest.endswith(";"):
                    at = m.index("return", close_at)
                    end = m.rindex(";") + 1
                    found.append(Mutant(path, no, at, raw[at:end], "{}", "early-return"))
        if (code.endswith(";") and STATEMENT.match(code) and not DECL_START.match(code)
                and code.count("(") == code.count(")")
                and prev_code.endswith((";", "{", "}", ":")) and not prev_code.endswith("::")):
            start = len(m) - len(m.lstrip())
            found.append(Mutant(path, no, start, raw[start:], "", "statement"))
        if (code.startswith("return") and code.endswith(";") and code.count("(") == code.count(")")
                and prev_code.endswith(")") and prev_code.startswith("if")):
            start = len(m) - len(m.lstrip())
            found.append(Mutant(path, no, start, raw[start:], "{}", "early-return"))
        prev_code = code
    return found


def source_files(root):
    files = []
    for folder in FOLDERS:
        for base, dirs, names in os.walk(os.path.join(root, folder)):
            dirs.sort()
            for name in sorted(names):
                if name.endswith((".cpp", ".h")):
                    files.append(os.path.relpath(os.path.join(base, name), root))
    return files


def sample(root, seed, count):
    """A fixed, seeded sample: each folder's share follows its number of
    sites, with at least MIN_PER_FOLDER from every folder."""
    by_folder = {f: [] for f in FOLDERS}
    for path in source_files(root):
        with open(os.path.join(root, path), encoding="utf-8") as f:
            by_folder[path.split("/")[0]].extend(sites(path, f.read()))
    total = sum(len(v) for v in by_folder.values())
    rng = random.Random(seed)
    chosen = []
    for folder in FOLDERS:
        pool = by_folder[folder]
        share = max(MIN_PER_FOLDER, round(count * len(pool) / total))
        chosen.extend(rng.sample(pool, min(share, len(pool))))
    chosen.sort(key=lambda m: (m.path, m.line, m.col))
    return chosen, total


def apply(text, mutant):
    lines = text.split("\n")
    line = lines[mutant.line - 1]
    if line[mutant.col:mutant.col + len(mutant.orig)] != mutant.orig:
        return None
    lines[mutant.line - 1] = line[:mutant.col] + mutant.repl + line[mutant.col + len(mutant.orig):]
    return "\n".join(lines)


def relocate(text, mutant, line_text):
    """Finds a replayed mutant's line again after lines have moved."""
    lines = text.split("\n")
    if mutant.line <= len(lines) and lines[mutant.line - 1] == line_text:
        return True
    matches = [i for i, l in enumerate(lines, start=1) if l == line_text]
    if not matches:
        return False
    mutant.line = min(matches, key=lambda i: abs(i - mutant.line))
    return True


def run(cmd, root, timeout=None, env=None):
    try:
        p = subprocess.run(cmd, cwd=root, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                           text=True, timeout=timeout, env=env)
        return p.returncode, p.stdout
    except subprocess.TimeoutExpired as e:
        out = e.stdout.decode() if isinstance(e.stdout, bytes) else (e.stdout or "")
        return None, out


def test_mutant(root, build, mutant, jobs, test_timeout, env):
    labels = FOLDERS[mutant.path.split("/")[0]]
    targets = [f"varitap_tests_{label}" for label in labels]
    code, out = run(["cmake", "--build", build, "-j", str(jobs), "--target", *targets], root, env=env)
    if code != 0:
        return "invalid", ""
    regex = "^(" + "|".join(labels) + ")$"
    code, out = run(["ctest", "--test-dir", build, "-L", regex, "-LE", "^realhost$", "-j", str(jobs),
                     "--timeout", str(test_timeout), "--stop-on-failure"], root,
                    timeout=test_timeout * 2 + 30, env=env)
    if code is None:
        return "timeout", "whole run"
    failed = re.findall(r"\d+ - (\S+) \((Failed|Timeout|SEGFAULT|Subprocess aborted|Child aborted|"
                        r"Exception|[^)]*)\)", out)
    if code == 0:
        return "survived", ""
    names = [name for name, why in failed]
    if failed and all(why == "Timeout" for name, why in failed):
        return "timeout", " ".join(names)
    return "killed", " ".join(names)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--seed", type=int, default=13)
    parser.add_argument("--count", type=int, default=150)
    parser.add_argument("--jobs", type=int, default=os.cpu_count() or 2)
    parser.add_argument("--test-timeout", type=int, default=20)
    parser.add_argument("--report", default="build/mutate/mutants.tsv")
    parser.add_argument("--replay", help="a report of an earlier run: try the same mutants")
    parser.add_argument("--resume", help="a report of an interrupted run of the same sample: "
                        "its results are kept and the rest is tried")
    parser.add_argument("--rerun", help="with --replay: only the mutants whose earlier status is in this "
                        "comma-separated list run again (e.g. killed,timeout: after tests were only removed or "
                        "merged, a survivor still survives); the others keep their earlier status")
    parser.add_argument("--rerun-ids", help="with --rerun: these mutants (numbers of the replayed report, "
                        "comma-separated) run again too, e.g. survivors that new tests aim at")
    parser.add_argument("--list", action="store_true", help="list the sample, change nothing")
    parser.add_argument("--only", help="only mutants whose file starts with one of these paths (comma-separated)")
    args = parser.parse_args()

    root = os.path.abspath(os.path.join(os.path.dirname(__file__), ".."))
    build = os.path.join(root, "build", "mutate")
    lines_of = {}
    if args.replay:
        mutants = read_report(args.replay)
        for m in mutants:
            lines_of[m.key()] = m.line_text
        total = len(mutants)
    else:
        mutants, total = sample(root, args.seed, args.count)
    done = {}
    if args.resume:
        done = {(m.key(), m.orig, m.repl): m for m in read_report(args.resume)}
    if args.replay and args.rerun:
        again = set(args.rerun.split(","))
        ids = {int(i) for i in args.rerun_ids.split(",")} if args.rerun_ids else set()
        for number, m in enumerate(mutants, start=1):
            if m.status not in again and number not in ids:
                kept = Mutant(m.path, m.line, m.col, m.orig, m.repl, m.kind)
                kept.status, kept.detail, kept.line_text = m.status, "(kept from the replayed run)", m.line_text
                done[(m.key(), m.orig, m.repl)] = kept
    if args.only:
        mutants = [m for m in mutants if m.path.startswith(tuple(args.only.split(",")))]

    if args.list:
        for i, m in enumerate(mutants, start=1):
            print(f"{i}\t{m.path}:{m.line}:{m.col}\t{m.kind}\t{m.orig!r} -> {m.repl!r}")
        print(f"{len(mutants)} mutants sampled from {total} sites (seed {args.seed})")
        return 0

    # With ccache, restoring a file after its mutant costs a cache hit, not a compile.
    env = dict(os.environ)
    configure = ["cmake", "--preset", "mutate"]
    if shutil.which("ccache"):
        env.setdefault("CCACHE_BASEDIR", root)
        configure += ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache", "-DCMAKE_C_COMPILER_LAUNCHER=ccache"]
    code, out = run(configure, root, env=env)
    if code != 0:
        print(out)
        return 1
    all_targets = sorted({f"varitap_tests_{l}" for v in FOLDERS.values() for l in v})
    print("=== building the unchanged sources ===", flush=True)
    code, out = run(["cmake", "--build", build, "-j", str(args.jobs), "--target", *all_targets], root, env=env)
    if code != 0:
        print(out[-4000:])
        return 1
    code, out = run(["ctest", "--test-dir", build, "-L", "^(" + "|".join(sorted({l for v in FOLDERS.values()
                                                                                   for l in v})) + ")$",
                     "-LE", "^realhost$", "-j", str(args.jobs), "--timeout", str(args.test_timeout)],
                    root, env=env)
    if code != 0:
        print(out[-4000:])
        print("the unchanged sources fail their tests: no mutation run")
        return 1

    started = time.time()
    counts = {"killed": 0, "timeout": 0, "survived": 0, "invalid": 0, "gone": 0}
    os.makedirs(os.path.dirname(os.path.abspath(args.report)), exist_ok=True)
    with open(args.report, "w", encoding="utf-8") as report:
        report.write("# id\tfile\tline\tcol\tkind\toriginal\tmutant\tstatus\tkilled by\tline text\n")
        for i, m in enumerate(mutants, start=1):
            path = os.path.join(root, m.path)
            with open(path, encoding="utf-8") as f:
                original = f.read()
            line_text = lines_of.get(m.key())
            mutated = None
            earlier = done.get((m.key(), m.orig, m.repl))
            if earlier:
                m.status, m.detail, line_text = earlier.status, earlier.detail, earlier.line_text
            elif line_text is None or relocate(original, m, line_text):
                line_text = original.split("\n")[m.line - 1] if m.line <= original.count("\n") + 1 else ""
                mutated = apply(original, m)
            if earlier:
                pass
            elif mutated is None:
                m.status = "gone"
            else:
                try:
                    with open(path, "w", encoding="utf-8") as f:
                        f.write(mutated)
                    m.status, m.detail = test_mutant(root, build, m, args.jobs, args.test_timeout, env)
                finally:
                    with open(path, "w", encoding="utf-8") as f:
                        f.write(original)
            counts[m.status] += 1
            report.write("\t".join([str(i), m.path, str(m.line), str(m.col), m.kind, escape(m.orig),
                                    escape(m.repl), m.status, m.detail, escape(line_text or "")]) + "\n")
            report.flush()
            print(f"[{i}/{len(mutants)}] {m.status:8} {m.path}:{m.line} {m.kind} "
                  f"{m.orig!r} -> {m.repl!r} {m.detail}", flush=True)

    # Leave the build as the sources are.
    run(["cmake", "--build", build, "-j", str(args.jobs), "--target", *all_targets], root, env=env)
    found = counts["killed"] + counts["timeout"]
    judged = found + counts["survived"]
    minutes = (time.time() - started) / 60
    print(f"killed {counts['killed']}, timed out {counts['timeout']}, survived {counts['survived']}, "
          f"invalid {counts['invalid']}, gone {counts['gone']}")
    if judged:
        print(f"score {100.0 * found / judged:.1f} % ({found} of {judged}) in {minutes:.1f} min; "
              f"report: {args.report}")
    return 0


def read_report(path):
    mutants = []
    with open(path, encoding="utf-8") as f:
        for row in f:
            if row.startswith("#") or not row.strip():
                continue
            cells = row.rstrip("\n").split("\t")
            m = Mutant(cells[1], int(cells[2]), int(cells[3]), unescape(cells[5]), unescape(cells[6]),
                       cells[4])
            m.status, m.detail, m.line_text = cells[7], cells[8], unescape(cells[9])
            mutants.append(m)
    return mutants


def escape(s):
    return s.replace("\\", "\\\\").replace("\t", "\\t").replace("\n", "\\n")


def unescape(s):
    return re.sub(r"\\(.)", lambda m: {"t": "\t", "n": "\n"}.get(m.group(1), m.group(1)), s)


if __name__ == "__main__":
    sys.exit(main())
