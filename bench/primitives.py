"""The goals of the primitives: ours beside libcrypto's in 64-bit code, in 32-bit code and as the cross-compiled
32-bit code under Wine, the last one beside the 32-bit libcrypto of the same run."""
import os
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tests" / "fixtures"))
import wine  # noqa: E402

# Row and form ("" is the first form, which is the one in use), goals in 64-bit and 32-bit code.
GOALS = {
    "crypto": [(f"aes-{bits}-gcm {way}", form, *goals) for form, goals in (("vaes-avx512", (1.5, 2.5)), ("aes-ni", (0.6, 0.9)))
               for bits in (128, 256) for way in ("seal", "open")]
    + [("chacha20-poly1305 seal", "", 0.8, 1.5), ("chacha20-poly1305 open", "", 0.8, 1.5),
       ("sha256", "sha-ni", 0.9, 0.9), ("sha1", "sha-ni", 0.9, 0.9)],
    "curves": [("x25519 derive", "", 0.7, 0.8), ("ECDH P-256", "", 0.8, 1.1), ("ECDSA verify P-256", "", 0.6, 0.9),
               ("ECDH P-384", "", 0.8, 1.0), ("ECDSA verify P-384", "", 0.8, 1.0),
               ("RSA-2048 verify, new key", "", 0.4, 0.8)],
}


def table_of(command, env=None):
    """{(what, form): (ours, libcrypto's or None)} of a program's table, with (what, "") for the first form."""
    done = subprocess.run(list(map(str, command)), env=env, stdout=subprocess.PIPE, text=True, check=True)
    rows = {}
    for line in done.stdout.splitlines():
        cells = [cell.strip() for cell in line.split("|")[1:-1]]
        if len(cells) >= 3 and cells[2].isdigit():
            rates = (float(cells[2]), float(cells[3]) if len(cells) > 4 and cells[3] else None)
            rows[cells[0], cells[1]] = rates
            rows.setdefault((cells[0], ""), (*rates, cells[1]))
    return rows, done.stdout


def build_win32(target):
    folder = pathlib.Path(os.environ.get("TV_BUILD_WIN32", ROOT / "build" / "win32")).resolve()
    if "TV_BUILD_WIN32" not in os.environ:
        subprocess.run(["cmake", "--preset", "win32"], cwd=ROOT, check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", folder, "--target", target], check=True, stdout=sys.stderr)
    return folder / "bench" / f"{target}.exe"


def run(name, folder, folder32):
    """Prints what each form does in 64-bit code, then the goals."""
    program = f"bench_{name}"
    windows = build_win32(program)
    native, text = table_of([folder / "bench" / program])
    print(text, flush=True)
    narrow, _ = table_of([folder32 / "bench" / program])
    with wine.WineSession() as session:
        under_wine, _ = table_of(session.command(windows), session.env)
    print("| what | form | goal 64 | 64-bit | goal 32 | 32-bit | 32-bit under Wine |\n|---|---|---|---|---|---|---|")
    for what, form, goal64, goal32 in GOALS[name]:
        forms, ratios = [], []
        for rows, peers in ((native, native), (narrow, narrow), (under_wine, narrow)):
            ours, peer = rows.get((what, form)), peers.get((what, form))
            ratios.append(f"{ours[0] / peer[1]:.2f}" if ours and peer else "absent")
            if ours and ours[-1] not in forms:
                forms.append(form or ours[2])
        print(f"| {what} | {', '.join(dict.fromkeys(forms))} | {goal64} | {ratios[0]} | {goal32} | {ratios[1]} | {ratios[2]} |",
              flush=True)
