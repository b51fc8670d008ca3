#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Puts small faults into a throwaway copy of the tree, one at a time, builds
it and runs the tests expected to catch each; prints which did.

The faults are in faults.toml beside this file. A fault whose text is not
found exactly once in its file is refused, so the list is re-checked
against the code on every run (--check does only that). The caller's working
tree is never written: the tracked and new files are copied to a temporary
directory, which is removed at the end (--keep keeps it).

Usage (as root, the end-to-end tests need namespaces):
  bench/faults/run.py [ID...] [--all-tests] [--jobs N] [--timeout S] [--out FILE]
  bench/faults/run.py --check | --list
"""

import argparse
import collections
import concurrent.futures
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import tomllib

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
KINDS = ("boundary", "inverted", "constant", "dropped", "reordered")
BUILDS = ("normal", "asan")


def load_faults(path):
    with open(path, "rb") as f:
        data = tomllib.load(f)
    faults, problems, seen = data.get("fault", []), [], set()
    for i, f in enumerate(faults):
        name = f.get("id", "#%d" % (i + 1))
        missing = [k for k in ("id", "file", "find", "replace", "what", "kind") if k not in f]
        if missing:
            problems.append("%s: lacks %s" % (name, ", ".join(missing)))
            continue
        if name in seen:
            problems.append("%s: id used twice" % name)
        seen.add(name)
        if f["kind"] not in KINDS:
            problems.append("%s: kind %r is none of %s" % (name, f["kind"], ", ".join(KINDS)))
        if f.get("build", "normal") not in BUILDS:
            problems.append("%s: build %r is none of %s" % (name, f["build"], ", ".join(BUILDS)))
        if not (f.get("unit") or f.get("e2e") or f.get("ctest")):
            problems.append("%s: names no guarding test (unit, e2e or ctest)" % name)
        if f["find"] == f["replace"]:
            problems.append("%s: the replacement changes nothing" % name)
    return faults, problems


def apply_problem(tree, fault):
    """Why the fault cannot be applied to the tree, or None."""
    path = os.path.join(tree, fault["file"])
    try:
        with open(path, encoding="utf-8") as f:
            text = f.read()
    except OSError as e:
        return "%s: %s" % (fault["file"], e.strerror)
    n = text.count(fault["find"])
    if n != 1:
        return "%s: text found %d times, not once: %r" % (fault["file"], n, fault["find"])
    return None


def guard_problems(tree, fault):
    """Guards of the fault that name no test of the tree."""
    out = []
    unit_dir = os.path.join(tree, "tests", "unit")
    suites = set()
    for name in os.listdir(unit_dir):
        with open(os.path.join(unit_dir, name), encoding="utf-8") as f:
            suites.update(re.findall(r"^TEST(?:_F)?\((\w+), (\w+)\)", f.read(), re.M))
    for pattern in filter(None, fault.get("unit", "").split(":")):
        rx = re.compile(re.escape(pattern).replace(r"\*", ".*").replace(r"\?", ".") + "$")
        if not any(rx.match("%s.%s" % t) for t in suites):
            out.append("unit filter %s matches no test" % pattern)
    for node in fault.get("e2e", []):
        path, _, func = node.partition("::")
        try:
            with open(os.path.join(tree, "tests", "e2e", path), encoding="utf-8") as f:
                text = f.read()
        except OSError:
            out.append("no end-to-end file %s" % path)
            continue
        if func and not re.search(r"^def %s\(" % re.escape(func.split("[")[0]), text, re.M):
            out.append("no end-to-end test %s" % node)
    with open(os.path.join(tree, "tests", "CMakeLists.txt"), encoding="utf-8") as f:
        names = set(re.findall(r"add_test\(NAME (\w+)", f.read()))
    names.update("e2e_" + os.path.splitext(n)[0]
                 for n in os.listdir(os.path.join(tree, "tests", "e2e")) if n.startswith("test_"))
    for name in fault.get("ctest", []):
        if not any(re.fullmatch(name, n) for n in names):
            out.append("no ctest test %s" % name)
    return out


class Fault:
    """Applies a fault to a file of a copy; restores the file on leaving."""

    def __init__(self, tree, fault):
        self.path = os.path.join(tree, fault["file"])
        self.fault = fault

    def __enter__(self):
        with open(self.path, encoding="utf-8") as f:
            self.original = f.read()
        with open(self.path, "w", encoding="utf-8") as f:
            f.write(self.original.replace(self.fault["find"], self.fault["replace"], 1))
        return self

    def __exit__(self, *exc):
        # Written anew, so the next build sees a newer source than the
        # faulty object and compiles it again.
        with open(self.path, "w", encoding="utf-8") as f:
            f.write(self.original)


LIVE = set()  # process groups running now, ended if the runner is stopped
STOPPING = threading.Event()


def run(cmd, cwd, deadline, log):
    """Runs cmd in its own process group until the deadline; returns
    (exit status or None on time-out, output)."""
    left = deadline - time.monotonic()
    if left <= 0 or STOPPING.is_set():
        return None, ""
    log.write("$ %s\n" % " ".join(cmd))
    proc = subprocess.Popen(cmd, cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                            stdin=subprocess.DEVNULL, start_new_session=True, text=True,
                            errors="replace")
    LIVE.add(proc.pid)
    try:
        out, _ = proc.communicate(timeout=left)
        status = proc.returncode
    except subprocess.TimeoutExpired:
        os.killpg(proc.pid, signal.SIGKILL)
        out, _ = proc.communicate()
        status = None
    finally:
        LIVE.discard(proc.pid)
    log.write(out)
    log.flush()
    return status, out


class Copy:
    """A private copy of the tree with its own build directories."""

    def __init__(self, base, number, build_jobs, log):
        self.tree = os.path.join(base, "tree%d" % number)
        self.build_jobs = build_jobs
        self.log = log
        self.configured = set()
        files = subprocess.run(
            ["git", "-C", ROOT, "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
            check=True, capture_output=True).stdout.decode().split("\0")
        for rel in filter(None, files):
            src = os.path.join(ROOT, rel)
            if not os.path.lexists(src):
                continue  # deleted in the working tree
            dest = os.path.join(self.tree, rel)
            os.makedirs(os.path.dirname(dest), exist_ok=True)
            shutil.copy2(src, dest, follow_symlinks=False)

    def fetch_base_mibs(self, dest, deadline):
        """The MIB tests read the SMIv2 base modules from the build tree:
        taken from the caller's build or another copy, else unpacked."""
        if os.path.isdir(dest):
            return
        base = os.path.dirname(self.tree)
        have = [os.path.join(ROOT, "build", "mibs-base")] + [
            os.path.join(base, t, "build", "mibs-base")
            for t in sorted(os.listdir(base)) if t.startswith("tree")]
        have = [d for d in have if d != dest and os.path.isfile(os.path.join(d, "SNMPv2-SMI.txt"))]
        if have:
            shutil.copytree(have[0], dest)
        else:
            run(["sh", os.path.join(self.tree, "scripts", "base-mibs.sh"), dest], self.tree,
                deadline, self.log)

    def build_dir(self, build):
        return os.path.join(self.tree, "build" if build == "normal" else "build-asan")

    def build(self, build, everything, deadline):
        """Builds what the tests need; returns an error text or None."""
        bdir = self.build_dir(build)
        if build not in self.configured:
            cmd = ["cmake", "-S", self.tree, "-B", bdir, "-DTEMHOSTD_WERROR=ON"]
            if build == "asan":
                cmd.append("-DTEMHOSTD_SANITIZE=ON")
            status, _ = run(cmd, self.tree, deadline, self.log)
            if status != 0:
                return "configure failed"
            self.configured.add(build)
            if build == "normal":
                self.fetch_base_mibs(os.path.join(bdir, "mibs-base"), deadline)
        cmd = ["cmake", "--build", bdir, "-j%d" % self.build_jobs]
        if not everything:
            cmd += ["--target", "temhostd", "unit_tests"]
            cmd += ["standin_" + os.path.splitext(c)[0]
                    for c in sorted(os.listdir(os.path.join(self.tree, "platform", "cmd")))
                    if c.endswith(".cpp")]
        status, _ = run(cmd, self.tree, deadline, self.log)
        if status is None:
            return "build timed out"
        return None if status == 0 else "build failed"


def guards(fault, all_tests):
    """The test commands for a fault: (kind, build, spec)."""
    build = fault.get("build", "normal")
    if all_tests:
        out = [("ctest", "normal", None)]
        if build == "asan":
            out.append(("unit", "asan", "*"))
        return out
    out = []
    if fault.get("unit"):
        out.append(("unit", build, fault["unit"]))
    if fault.get("e2e"):
        out.append(("e2e", build, tuple(fault["e2e"])))
    if fault.get("ctest"):
        out.append(("ctest", "normal", tuple(fault["ctest"])))
    return out


def run_guard(copy, guard, deadline):
    """Runs one guard; returns (set of failing test names, timed out)."""
    kind, build, spec = guard
    bdir = copy.build_dir(build)
    if kind == "unit":
        cmd = [os.path.join(bdir, "bin", "unit_tests"), "--gtest_filter=" + spec]
        status, out = run(cmd, copy.tree, deadline, copy.log)
        failed = set(re.findall(r"^\[  FAILED  \] (\w+\.\w+)", out, re.M))
        started = re.findall(r"^\[ RUN      \] (\w+\.\w+)", out, re.M)
        ended = re.findall(r"^\[ +(?:OK|FAILED) +\] (\w+\.\w+) \(", out, re.M)
        if status not in (None, 0) and started and started[-1] not in ended:
            failed.add("%s (aborted, exit %s)" % (started[-1], status))  # a sanitizer, say
        if status == 0 and not re.search(r"^\[  PASSED  \] [1-9]", out, re.M):
            failed.add("unit %s (matches no test)" % spec)
    elif kind == "e2e":
        cmd = [os.path.join(copy.tree, "tests", "e2e", "run.sh"), bdir]
        cmd += list(spec)
        status, out = run(cmd, copy.tree, deadline, copy.log)
        failed = set(re.findall(r"^(?:FAILED|ERROR) (\S+\.py::[^\s\]]+\]?)", out, re.M))
        if status in (4, 5):
            failed.add("e2e %s (no such test)" % " ".join(spec))
    else:
        cmd = ["ctest", "--test-dir", bdir, "--output-on-failure"]
        if spec:
            cmd += ["-R", "^(%s)$" % "|".join(spec)]
        status, out = run(cmd, copy.tree, deadline, copy.log)
        failed = set(re.findall(r"^\s*\d+ - (\S+) \(", out.split("tests FAILED:")[-1], re.M)
                     if "tests FAILED:" in out else [])
        if "No tests were found" in out:
            failed.add("ctest %s (no such test)" % " ".join(spec or ()))
    if status not in (None, 0) and not failed:
        failed.add("%s %s (exit %s)" % (kind, build, status))
    return failed, status is None


def test_fault(copy, fault, all_tests, limit, baseline):
    started = time.monotonic()
    deadline = started + limit
    result = {"id": fault["id"], "kind": fault["kind"], "file": fault["file"],
              "what": fault["what"], "caught_by": [], "status": "missed"}
    problem = apply_problem(copy.tree, fault)
    if problem:
        result.update(status="not applied", note=problem)
        return result
    with Fault(copy.tree, fault):
        plan = guards(fault, all_tests)
        for build in sorted({g[1] for g in plan}):
            error = copy.build(build, all_tests, deadline)
            if error:
                result.update(status="no build", note="%s (%s)" % (error, build))
                break
        else:
            for guard in plan:
                failed, timed_out = run_guard(copy, guard, deadline)
                result["caught_by"] += sorted(failed - baseline.get(guard[1], set()))
                if timed_out:
                    result["caught_by"].append("%s: time limit" % guard[0])
                    break
            if result["caught_by"]:
                result["status"] = "caught"
    result["seconds"] = round(time.monotonic() - started, 1)
    return result


def run_baseline(copy, faults, all_tests, limit):
    """Runs the guards of the chosen faults once on the unchanged tree;
    returns the names failing there, by build."""
    merged = collections.OrderedDict()
    for f in faults:
        for kind, build, spec in guards(f, all_tests):
            key = (kind, build)
            if kind == "unit":
                merged.setdefault(key, []).extend(spec.split(":"))
            else:
                merged.setdefault(key, []).extend(spec or [None])
    deadline = time.monotonic() + limit * max(1, len(merged))
    failing = {}
    for build in sorted({b for _, b in merged}):
        error = copy.build(build, all_tests, deadline)
        if error:
            sys.exit("faults: the unchanged tree does not build (%s): see %s" %
                     (error, copy.log.name))
    for (kind, build), specs in merged.items():
        uniq = list(dict.fromkeys(specs))
        if kind == "unit":
            spec = ":".join(uniq)
        elif None in uniq:
            spec = None
        else:  # a node of a file that runs whole anyway would run twice
            spec = tuple(u for u in uniq if u.split("::")[0] == u or u.split("::")[0] not in uniq)
        failed, timed_out = run_guard(copy, (kind, build, spec), deadline)
        if timed_out:
            sys.exit("faults: the unchanged tree's tests ran out of time: see %s" % copy.log.name)
        failing.setdefault(build, set()).update(failed)
    return failing


def print_table(results, out=sys.stdout):
    rows = [("id", "kind", "file", "result", "s", "caught by / note")]
    for r in results:
        rows.append((r["id"], r["kind"], r["file"], r["status"], "%.0f" % r.get("seconds", 0),
                     ", ".join(r["caught_by"]) or r.get("note", "")))
    widths = [max(len(row[i]) for row in rows) for i in range(5)]
    for row in rows:
        print("  ".join(c.ljust(w) for c, w in zip(row, widths)) + "  " + row[5], file=out)
    caught = sum(r["status"] == "caught" for r in results)
    broken = [r["id"] for r in results if r["status"] in ("no build", "not applied")]
    print("caught %d of %d" % (caught, len(results)), file=out)
    if broken:
        print("faults to fix in the list (counted as missed): %s" % " ".join(broken), file=out)


def print_coverage(faults):
    modules = collections.OrderedDict()
    for f in faults:
        name = os.path.splitext(os.path.basename(f["file"]))[0]
        modules.setdefault(name, collections.Counter())[f["kind"]] += 1
    width = max(len(m) for m in modules)
    print("module".ljust(width) + "".join(k.rjust(10) for k in KINDS) + "     total")
    for m, c in modules.items():
        print(m.ljust(width) + "".join(str(c[k] or "").rjust(10) for k in KINDS) +
              str(sum(c.values())).rjust(10))
    total = collections.Counter(f["kind"] for f in faults)
    print("all".ljust(width) + "".join(str(total[k]).rjust(10) for k in KINDS) +
          str(len(faults)).rjust(10))


def main():
    p = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    p.add_argument("ids", nargs="*", metavar="ID", help="faults to run (default: all)")
    p.add_argument("--faults", default=os.path.join(HERE, "faults.toml"), help="the fault list")
    p.add_argument("--all-tests", action="store_true",
                   help="run every ctest test per fault instead of the mapped ones (slow)")
    p.add_argument("--jobs", type=int, default=1, help="faults tested at once (default 1)")
    p.add_argument("--timeout", type=int, default=900,
                   help="seconds per fault, build included (default 900)")
    p.add_argument("--no-baseline", action="store_true",
                   help="skip running the guards once on the unchanged tree")
    p.add_argument("--out", help="also write the results as JSON to this file")
    p.add_argument("--keep", action="store_true", help="keep the temporary copy and its logs")
    p.add_argument("--check", action="store_true",
                   help="only check that every fault applies to the current tree and its "
                   "guards name existing tests")
    p.add_argument("--list", action="store_true", help="print the faults and their coverage")
    args = p.parse_args()

    faults, problems = load_faults(args.faults)
    if args.ids:
        unknown = sorted(set(args.ids) - {f["id"] for f in faults})
        if unknown:
            sys.exit("faults: no such fault: %s" % " ".join(unknown))
        faults = [f for f in faults if f["id"] in args.ids]
    for f in faults:
        for problem in [apply_problem(ROOT, f)] + guard_problems(ROOT, f):
            if problem:
                problems.append("%s: %s" % (f["id"], problem))
    if problems:
        sys.exit("faults: the list does not fit the tree:\n  " + "\n  ".join(problems))
    if args.list:
        for f in faults:
            print("%-4s %-9s %-45s %s" % (f["id"], f["kind"], f["file"], f["what"]))
        print()
        print_coverage(faults)
        return
    if args.check:
        print("faults: all %d apply exactly once and name existing tests" % len(faults))
        return
    if os.geteuid() != 0:
        sys.exit("faults: run as root (the end-to-end tests use namespaces)")

    jobs = max(1, min(args.jobs, len(faults)))
    build_jobs = max(1, (os.cpu_count() or 2) // jobs)
    base = tempfile.mkdtemp(prefix="temhostd-faults-")
    os.environ["CCACHE_BASEDIR"] = base  # copies share the compiler cache
    print("faults: %d, copies and logs in %s" % (len(faults), base), flush=True)
    try:
        logs = [open(os.path.join(base, "log%d.txt" % i), "w") for i in range(jobs)]
        copies = [Copy(base, 0, build_jobs, logs[0])]
        baseline = {}
        if not args.no_baseline:
            t = time.monotonic()
            baseline = run_baseline(copies[0], faults, args.all_tests, args.timeout)
            bad = sorted(set().union(*baseline.values())) if baseline else []
            print("baseline: %.0f s%s" % (time.monotonic() - t,
                                         ", failing already (not counted): " + ", ".join(bad)
                                         if bad else ", all guards pass"), flush=True)
        copies += [Copy(base, i, build_jobs, logs[i]) for i in range(1, jobs)]
        # Every copy built before the first fault, so that no fault's time
        # holds a first build (copy 0 is built already unless --no-baseline).
        needed = sorted({g[1] for f in faults for g in guards(f, args.all_tests)})
        for copy in copies:
            for build in needed:
                if copy.build(build, args.all_tests, time.monotonic() + args.timeout):
                    sys.exit("faults: a copy of the unchanged tree does not build: see %s" %
                             copy.log.name)
        free = list(copies)
        lock = threading.Lock()

        def one(fault):
            with lock:
                copy = free.pop()
            try:
                r = test_fault(copy, fault, args.all_tests, args.timeout, baseline)
            finally:
                with lock:
                    free.append(copy)
            print("%-4s %-8s %5.0f s  %s" % (r["id"], r["status"], r.get("seconds", 0),
                                             ", ".join(r["caught_by"]) or r.get("note", "")),
                  flush=True)
            return r

        pool = concurrent.futures.ThreadPoolExecutor(jobs)
        try:
            results = list(pool.map(one, faults))
        finally:
            pool.shutdown(wait=False, cancel_futures=True)
        print()
        print_table(results)
        timed = [r["seconds"] for r in results if "seconds" in r]
        if timed:
            print("%.0f s per fault on average" % (sum(timed) / len(timed)))
        if args.out:
            with open(args.out, "w") as f:
                json.dump(results, f, indent=1)
    except SystemExit:
        args.keep = True  # the logs it points to
        raise
    finally:
        STOPPING.set()
        for pgid in list(LIVE):
            try:
                os.killpg(pgid, signal.SIGKILL)
            except ProcessLookupError:
                pass
        if args.keep:
            print("kept %s" % base)
        else:
            shutil.rmtree(base, ignore_errors=True)


if __name__ == "__main__":
    main()
