#!/usr/bin/env python3
"""Measures that code takes the same way for every secret: consttime.cpp, in 64-bit and 32-bit code.

    run.py PROGRAM [PROGRAM32]

Each form of each primitive is measured by one of two methods: "memcheck" (valgrind, secrets count as
undefined) where valgrind knows the instructions, else "steps" (Stepper.h). Prints form x method and
fails if one differs, if one that this CPU has was not measured, or if a method misses the leak that
was put in for it.
"""
import concurrent.futures
import re
import subprocess
import sys

LEAK = "LEAK:portable"
FUNCTION = re.compile(r"^[0-9a-f]+ <([^.]\S*)>:$")  # no labels of jump tables
PLACE = re.compile(r"^ *([0-9a-f]+):\t(?:bnd |notrack )?((?:rep\w* )?\w+) *(\*?)")


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
            address, name, star = found.groups()
            kind = "r" if name.startswith("rep") and not name.endswith("ret") else "s" if star else \
                "c" if name.startswith("j") and name != "jmp" else ""
            if kind:
                lines.append(f"{kind} {int(address, 16) - start:x}")
    return "\n".join(lines)


def steps(program, forms):
    """In two processes, for two processors."""
    text = places(program)
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        jobs = [pool.submit(output, program, "steps", *forms[i::2], input=text) for i in range(2)]
        return {form: result for job in jobs for form, result in results(job.result()).items()}


def measure(program, bits):
    """Prints a row for each form and returns what is wrong."""
    listed = results(output(program, "list"))
    checked = results(output("valgrind", "--quiet", "--error-limit=no", program, "memcheck"))
    usable = [form for form, state in listed.items() if state == "usable"]
    stepped = steps(program, [LEAK] + [form for form in usable if form not in checked])
    failures = [f"{bits}-bit {form}: not measured" for form in usable if form not in {**checked, **stepped}]
    for form, state in listed.items():
        primitive, name = form.rsplit(":", 1)
        found = [(m, rows[form]) for m, rows in (("memcheck", checked), ("steps", stepped)) if form in rows]
        missing = "not measured" if state == "usable" else "this CPU has not the instructions"
        for method, result in found or [("", missing)]:
            print(f"| {primitive} | {name}, {bits}-bit | {method} | {result} |", flush=True)
        failures += [f"{bits}-bit {form}, {method}: {result}" for method, result in found
                     if result.startswith("same") == (form == LEAK)]
        if form == LEAK and len(found) != 2:
            failures.append(f"{bits}-bit: a method was not tried on the leak")
    return failures


def main():
    print("| what | form | method | over all secrets |\n|---|---|---|---|")
    failures = [failure for program, bits in zip(sys.argv[1:], (64, 32)) for failure in measure(program, bits)]
    for failure in failures:
        print(f"failed: {failure}")
    return 1 if failures or len(sys.argv) < 2 else 0


if __name__ == "__main__":
    sys.exit(main())
