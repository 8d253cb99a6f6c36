#!/usr/bin/env python3
"""Measures that code takes the same way for every secret: consttime.cpp, in 64-bit and 32-bit code.

    run.py PROGRAM [PROGRAM32]

Each form is measured by one of two methods: "memcheck" (valgrind, secrets count as undefined) where
valgrind knows the instructions, else "steps" (Stepper.h). Fails if one differs, if one that this CPU
has was not measured, or if a method misses the leak that was put in for it.
"""
import concurrent.futures
import functools
import re
import subprocess
import sys

LEAK = "LEAK:portable"
FUNCTION = re.compile(r"^[0-9a-f]+ <([^.]\S*)>:$")  # no labels of jump tables
# An indirect jump or call, a repeated instruction, a conditional jump.
PLACE = re.compile(r"^ *([0-9a-f]+):\t(?:bnd |notrack )?(?:\w+ *\*|rep\w* (?!ret)|j(?!mp))")


def output(*command, **options):
    return subprocess.run(command, check=True, capture_output=True, text=True, timeout=800, **options).stdout


def results(text):
    return dict(line.split("\t") for line in text.splitlines() if "\t" in line)


def places(program):
    """Where instructions may continue elsewhere, as Stepper.h wants them."""
    start = int(re.search(r"^ +\d+: 0*([0-9a-f]+) .* __executable_start$", output("readelf", "-sW", program), re.M)[1], 16)
    function, lines = "", []
    for line in output("objdump", "-d", "-j", ".text", "--no-show-raw-insn", program).splitlines():
        if named := FUNCTION.match(line):
            function = named[1]
        elif (found := PLACE.match(line)) and "stepper" not in function:
            lines.append(f"{int(found[1], 16) - start:x}")
    return "\n".join(lines)


def steps(program, forms):
    """In two processes, for two processors."""
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        half = functools.partial(output, program, "steps", input=places(program))
        return results("".join(pool.map(lambda i: half(*forms[i::2]), range(2))))


def measure(program, bits):
    """Prints a row for each form and returns what is wrong."""
    listed = results(output(program))
    checked = results(output("valgrind", "--quiet", "--error-limit=no", program, "memcheck"))
    stepped = steps(program, [LEAK] + [form for form in listed if listed[form] == "usable" and form not in checked])
    failures = []
    for form, state in listed.items():
        found = [(method, rows[form]) for method, rows in (("memcheck", checked), ("steps", stepped)) if form in rows]
        for method, result in found or [("", state)]:
            print(f"| {form}, {bits}-bit | {method} | {result} |", flush=True)
        failures += [f"{bits}-bit {form}, {method}: {result}" for method, result in found
                     if result.startswith("same") == (form == LEAK)]
        if len(found) < (2 if form == LEAK else state == "usable"):
            failures.append(f"{bits}-bit {form}: a method was not tried")
    return failures


def main():
    print("| what:form | method | over all secrets |\n|---|---|---|")
    failures = [failure for program, bits in zip(sys.argv[1:], (64, 32)) for failure in measure(program, bits)]
    for failure in failures:
        print(f"failed: {failure}")
    return 1 if failures or len(sys.argv) < 2 else 0


if __name__ == "__main__":
    sys.exit(main())
