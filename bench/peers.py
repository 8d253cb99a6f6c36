"""What the scripts share that set us beside programs of others: which of these are there, a network of one's
own, and how each sends a message."""
import json
import os
import pathlib
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tests" / "fixtures"))
BUILD = pathlib.Path(os.environ.get("TV_BUILD_NATIVE", ROOT / "build" / "native")).resolve()
EMAILSEND = BUILD / "emailsend"
NODEMAILER = ["node", str(ROOT / "bench" / "nodemailer.cjs")]
ALONE = "EMAILSENDING_BENCH_ALONE"


def versions(programs):
    """The first line of what each program says of itself; ends the script where one is not there."""
    told, missing = [], []
    for name, command in programs.items():
        try:
            done = subprocess.run(command, capture_output=True, text=True, timeout=60)
            lines = done.stdout.splitlines() if done.returncode == 0 else []
        except OSError:
            lines = []
        told += [line.partition("  ")[0] for line in lines[:1]]
        missing += [] if lines else [name]
    if missing:
        sys.exit(f"not found: {', '.join(missing)} (NODEMAILER names the folder with Nodemailer's node_modules)")
    return f"{time.strftime('%d %B %Y')}: " + ", ".join(told)


def ours():
    """Builds emailsend and its library where the environment names no build."""
    if "TV_BUILD_NATIVE" not in os.environ:
        subprocess.run(["cmake", "--preset", "native"], cwd=ROOT, check=True, stdout=subprocess.DEVNULL)
        subprocess.run(["cmake", "--build", str(BUILD), "--target", "emailsending", "emailsend"], cwd=ROOT, check=True,
                       stdout=sys.stderr)


def alone():
    """Starts the script again in a network that has nothing but loopback, where names and mounts are its own."""
    if ALONE not in os.environ:
        if os.geteuid():
            sys.exit("a network of one's own takes root")
        os.environ[ALONE] = "yes"
        os.execvp("unshare", ["unshare", "--net", "--uts", "--mount", "--propagation", "private", sys.executable,
                              *sys.argv])
    subprocess.run(["ip", "link", "set", "lo", "up"], check=True)


def lay(path, text, folder):
    """A file of the system is another one from now on, for this script alone."""
    file = folder / pathlib.Path(path).name
    new = not file.exists()
    file.write_text(text)
    file.chmod(0o644)
    if new:
        subprocess.run(["mount", "--bind", file, path], check=True)


def nodemailer_input(transport, mail):
    return json.dumps({"transport": transport, "mail": mail}).encode()
