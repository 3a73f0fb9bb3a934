#!/usr/bin/python3
"""Drives qv through a pseudo-terminal, as a person at the keyboard would: the REPL, and the
progress bar of a derive over a file.

usage: repl_test.py QV WORK_DIR

Each step sends a line and expects what the prompt shows before the next prompt. HOME is
WORK_DIR, so that the history file is the test's own; a second session recalls the first
session's entry with Ctrl-P. Exit status 0 when every step matched, 1 otherwise, 77 when
pexpect is missing.
"""
import os
import re
import shutil
import sys

try:
    import pexpect
except ImportError:
    print("skipped: python3-pexpect is not installed")
    sys.exit(77)

PROMPT = "qv> "
MORE = r"\.\.\.> "

# (line sent, the prompt it is answered by, a pattern the answer must hold)
SESSION = [
    ("1 + 2", PROMPT, r"INTEGER 3"),
    ("$x := 40", PROMPT, r"\$x = INTEGER 40"),
    ("$x + 2", PROMPT, r"INTEGER 42"),
    ("BEGIN", MORE, r""),
    ("  $y := $x * 2;", MORE, r""),
    ("  RETURN $y;", MORE, r""),
    ("END", PROMPT, r"INTEGER 80"),
    ("Concat(Upper('caf\u00e9'),", MORE, r""),
    ("  '!')", PROMPT, r"CHAR\(0\) 'CAF\u00c9!'"),
    ("FUNCTION Twice($n) BEGIN RETURN $n * 2; END", PROMPT, r"declared Twice"),
    ("Twice($y)", PROMPT, r"INTEGER 160"),
    (".help Substr", PROMPT, r"SubStr\( string, from \[, count\] \)\s+category String; "
                             r"arguments 2 to 3; result CHAR"),
    (".help", PROMPT, r"Commands: .*String\s+Char\( number \).*Conditional\s+Choose"),
    (".vars", PROMPT, r"\$x INTEGER 40\s+\$y INTEGER 80"),
    (".trace on Variable", PROMPT, r"tracing Variable"),
    ("$z := 5;", PROMPT, r"\[z\] = 5"),
    (".trace off", PROMPT, r"tracing off"),
    ("1 +", PROMPT, r"error 0xA1D71686: at position 3: An operand is missing.*\n.*1 \+>>>"),
    ("Foo(1)", PROMPT, r"error 0xA1D7164A: at position 0: There is no function named 'Foo'"),
    (".nonsense", PROMPT, r"unknown command .nonsense"),
]


def spawn(qv, home):
    env = dict(os.environ, HOME=home, TERM="dumb")
    child = pexpect.spawn(qv, ["repl"], env=env, encoding="utf-8", timeout=10,
                          dimensions=(40, 200))
    child.expect(PROMPT)
    return child


def step(child, line, prompt, pattern, problems):
    child.sendline(line)
    try:
        child.expect(prompt)
    except (pexpect.TIMEOUT, pexpect.EOF):
        problems.append("%r: no prompt %r after it; saw %r" % (line, prompt, child.before))
        return False
    if not re.search(pattern, child.before, re.S):
        problems.append("%r: expected /%s/, saw %r" % (line, pattern, child.before))
    return True


def quit(child, problems, status=0):
    child.sendline(".quit")
    child.expect(pexpect.EOF)
    child.close()
    if child.exitstatus != status:
        problems.append("exit status %r, expected %d" % (child.exitstatus, status))


def check_progress_bar(qv, work, problems):
    """A derive over a file with standard error at the terminal draws the bar (and clears it
    before the summary); with standard error elsewhere it stays silent."""
    data = os.path.join(work, "rows.csv")
    with open(data, "w") as f:
        f.write("x,y\n" + "1.5e0,2\n" * 1_500_000)
    command = "%s derive -e 'z := x * y + 1' %s > /dev/null" % (qv, data)
    output = pexpect.run("sh -c \"%s\"" % command, timeout=120, encoding="utf-8")
    if not re.search(r"\r\[[=> ]+\] +\d+%  .* of .*  .* rows/s  \d+:\d\d left", output):
        problems.append("no progress bar at a terminal: %r" % output[:300])
    if not re.search(r"\r\x1b\[Kqv: rows read 1500000, written 1500000", output):
        problems.append("the bar is not cleared before the summary: %r" % output[-300:])
    quiet = pexpect.run("sh -c \"%s 2>%s\"" % (command, os.path.join(work, "err.txt")),
                        timeout=120, encoding="utf-8")
    with open(os.path.join(work, "err.txt")) as f:
        if "rows/s  " in f.read() or quiet:
            problems.append("a progress bar where standard error is no terminal")
    os.remove(data)


def main():
    qv, work = sys.argv[1], os.path.abspath(sys.argv[2])
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(work)
    problems = []
    child = spawn(qv, work)
    for line, prompt, pattern in SESSION:
        if not step(child, line, prompt, pattern, problems):
            break
    # Tab completes a function name: the line is redrawn with it.
    child.send("Lengt\t")
    try:
        child.expect("Length")
        step(child, "('abc')", PROMPT, r"INTEGER 3", problems)
    except (pexpect.TIMEOUT, pexpect.EOF):
        problems.append("tab did not complete Lengt; saw %r" % child.before)
    quit(child, problems)
    history = os.path.join(work, ".qv_history")
    if not os.path.exists(history) or "Twice" not in open(history, errors="replace").read():
        problems.append("the history file %s does not hold the session's entries" % history)
    # A new session recalls the last entry of the one before (Ctrl-P, then Enter): .quit
    # was the last, so the recalled line ends the session.
    child = spawn(qv, work)
    child.sendline("\x10")
    child.expect(pexpect.EOF)
    child.close()
    if child.exitstatus != 0:
        problems.append("the recalled .quit did not end the session")
    # Exit( code ) leaves the REPL with that status.
    child = spawn(qv, work)
    child.sendline("Exit(4)")
    child.expect(pexpect.EOF)
    child.close()
    if child.exitstatus != 4:
        problems.append("Exit(4) left with status %r" % child.exitstatus)
    check_progress_bar(qv, work, problems)
    sys.stdout.write("\n".join(problems) + ("\n" if problems else ""))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
