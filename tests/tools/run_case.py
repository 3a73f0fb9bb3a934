#!/usr/bin/python3
"""Runs one end-to-end case of the qv program and compares what it did with what was expected.

usage: run_case.py QV CASE_DIR WORK_DIR

A case is a folder holding:
  args        the arguments, split as a shell would; {tmp} is WORK_DIR (emptied first) and
              {case} the case folder
  stdin       bytes fed to standard input (none: standard input is empty)
  stdout      the bytes expected on standard output (none: nothing)
  stderr      the same for standard error, after normalising: WORK_DIR reads {tmp}, the case
              folder {case}, and the timing of the summary line "; <time>"
  status      the exit status expected (none: 0)
  setup/      files copied into WORK_DIR before the run
  files/      when present, WORK_DIR must hold exactly these files afterwards, byte for byte
              (so a failed run that leaves a temporary file behind fails the case)
  readonly    WORK_DIR is made read-only for the run (a root run drops to the user nobody;
              the case is skipped when that user cannot run the program)
  interrupt   standard input stays open after the stdin bytes; once a temporary output file
              shows up in WORK_DIR the program gets SIGINT, and must stop without more input

Exit status 0 when everything matches, 1 with a description of the differences, 77 skipped.
QV_UPDATE_CASES=1 writes what the program did into the case instead (review before use).
"""
import difflib
import os
import re
import shlex
import shutil
import signal
import subprocess
import sys
import time

NOBODY = 65534
SKIPPED = 77


def read(path, default=b""):
    try:
        with open(path, "rb") as f:
            return f.read()
    except FileNotFoundError:
        return default


def prepare_work(case, work):
    if os.path.exists(work):
        os.chmod(work, 0o755)
        shutil.rmtree(work)
    setup = os.path.join(case, "setup")
    if os.path.isdir(setup):
        shutil.copytree(setup, work)
    else:
        os.makedirs(work)


def drop_to_nobody():
    os.setgid(NOBODY)
    os.setuid(NOBODY)


def wait_for_temporary(work, process, limit=10.0):
    deadline = time.monotonic() + limit
    while time.monotonic() < deadline and process.poll() is None:
        if any(name.startswith(".") for name in os.listdir(work)):
            return
        time.sleep(0.02)


def run(qv, case, work):
    args = [a.replace("{tmp}", work).replace("{case}", case)
            for a in shlex.split(read(os.path.join(case, "args")).decode())]
    readonly = os.path.exists(os.path.join(case, "readonly"))
    interrupt = os.path.exists(os.path.join(case, "interrupt"))
    as_nobody = readonly and os.geteuid() == 0
    if readonly:
        os.chmod(work, 0o555)
    if as_nobody and subprocess.run([qv, "--version"], preexec_fn=drop_to_nobody,
                                    capture_output=True).returncode != 0:
        print("skipped: the user nobody cannot run", qv)
        sys.exit(SKIPPED)
    process = subprocess.Popen([qv] + args, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE, cwd=work,
                               preexec_fn=drop_to_nobody if as_nobody else None)
    stdin = read(os.path.join(case, "stdin"))
    if interrupt:
        process.stdin.write(stdin)
        process.stdin.flush()
        wait_for_temporary(work, process)
        time.sleep(0.2)
        process.send_signal(signal.SIGINT)
        try:  # standard input still open: the program must not wait for more of it
            process.wait(timeout=20)
        except subprocess.TimeoutExpired:
            process.kill()
        stdout, stderr = process.communicate(timeout=60)
    else:
        stdout, stderr = process.communicate(stdin, timeout=60)
    if readonly:
        os.chmod(work, 0o755)
    return stdout, stderr, process.returncode


def normalise(text, case, work):
    text = text.replace(work.encode(), b"{tmp}").replace(case.encode(), b"{case}")
    return re.sub(rb"; [0-9]+\.[0-9]{3} s, [0-9]+ rows/s", b"; <time>", text)


def listing(folder):
    found = {}
    for root, _, names in os.walk(folder):
        for name in names:
            path = os.path.join(root, name)
            found[os.path.relpath(path, folder)] = read(path)
    return found


def difference(what, expected, actual):
    if expected == actual:
        return []
    lines = difflib.unified_diff(expected.decode(errors="replace").splitlines(True),
                                 actual.decode(errors="replace").splitlines(True),
                                 "expected " + what, "actual " + what)
    return ["".join(lines) or "%s differs: expected %r, got %r\n" % (what, expected, actual)]


def update(case, work, stdout, stderr, status):
    for name, data in (("stdout", stdout), ("stderr", stderr)):
        path = os.path.join(case, name)
        if data:
            with open(path, "wb") as f:
                f.write(data)
        elif os.path.exists(path):
            os.remove(path)
    with open(os.path.join(case, "status"), "w") as f:
        f.write("%d\n" % status)
    files = os.path.join(case, "files")
    if os.path.isdir(files):
        shutil.rmtree(files)
        shutil.copytree(work, files)


def main():
    qv, case, work = (os.path.abspath(a) for a in sys.argv[1:4])
    prepare_work(case, work)
    stdout, stderr, status = run(qv, case, work)
    stdout, stderr = normalise(stdout, case, work), normalise(stderr, case, work)
    if os.environ.get("QV_UPDATE_CASES"):
        update(case, work, stdout, stderr, status)
        return 0
    problems = difference("stdout", read(os.path.join(case, "stdout")), stdout)
    problems += difference("stderr", read(os.path.join(case, "stderr")), stderr)
    expected_status = int(read(os.path.join(case, "status"), b"0"))
    if status != expected_status:
        problems.append("exit status %d, expected %d\n" % (status, expected_status))
    files = os.path.join(case, "files")
    if os.path.isdir(files):
        expected, actual = listing(files), listing(work)
        if sorted(expected) != sorted(actual):
            problems.append("files %s, expected %s\n" % (sorted(actual), sorted(expected)))
        for name in sorted(set(expected) & set(actual)):
            problems += difference(name, expected[name], actual[name])
    sys.stdout.write("".join(problems))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
