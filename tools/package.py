#!/usr/bin/env python3
"""Packs what is delivered into dist/: a zip for Windows, a tar and a Debian package for Linux, the bill
of materials and SHA256SUMS.

    package.py             builds what is missing and packs it
    package.py --relink    the same, with every delivered file linked anew
    package.py --twice     for releases: builds everything in two fresh folders at different places, without
                           compiler cache, compares the two dist/ byte for byte and keeps the first

All times in the archives are SOURCE_DATE_EPOCH, by default the last commit's. Where EMAILSENDING_SIGN is
set, it is run for each Windows file, with the file as its argument, after the hashes of the unsigned
files were taken (dist/SHA256SUMS.unsigned): who builds anew compares with those.
"""
import argparse
import datetime
import filecmp
import gzip
import hashlib
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tarfile
import tempfile
import zipfile

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "tools"))
import relink  # noqa: E402
import sbom  # noqa: E402

DIST, STAGE = ROOT / "dist", ROOT / "build" / "stage"
PYTHON, SIGNER = "/usr/bin/python3", "EMAILSENDING_SIGN"
WINDOWS = {"x86": "win32", "x64": "win64"}  # folder: preset
PRESETS = {"native": "delivered", "win32": "delivered", "win64": "delivered", "native32": "emailsending"}
TEXTS = ("README.md", "LICENSE", "CHANGELOG.md", "CONTRIBUTING.md", "SECURITY.md")


def run(*command, cwd=ROOT, **environment):
    words = [str(word) for word in command]
    made = subprocess.run(words, cwd=cwd, env={**os.environ, **environment}, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if made.returncode:
        sys.exit(f"{made.stdout[-6000:]}\npackage: {' '.join(words)} ended with {made.returncode}")
    return made.stdout


def version():
    return re.search(r"^project\(\w+ VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text(), re.M)[1]


def source_date():
    """Seconds since 1970: what is told, or the last commit, or the newest release in the list of changes."""
    if told := os.environ.get("SOURCE_DATE_EPOCH"):
        return int(told)
    commit = subprocess.run(["git", "log", "-1", "--format=%ct"], cwd=ROOT, capture_output=True, text=True)
    if commit.returncode == 0:
        return int(commit.stdout)
    day = re.search(r"^## [\d.]+ \((.+)\)", (ROOT / "CHANGELOG.md").read_text(), re.M)[1]
    return int(datetime.datetime.fromisoformat(f"{day}T00:00:00+00:00").timestamp())


# ---- The trees.

def build(again):
    for preset, target in PRESETS.items():
        folder = ROOT / "build" / preset
        if again:
            for name in ("emailsending.dll", "libemailsending.dll.a", "emailsend.exe", "selftest.exe", "emailsend",
                         "selftest", f"libemailsending.so.{version()}"):
                (folder / name).unlink(missing_ok=True)
        run("cmake", "--preset", preset)
        run("cmake", "--build", "--preset", preset, "--target", target)


def fill_common(tree):
    """The folders that both archives have; of samples not what lies there since somebody tried them."""
    shutil.copytree(ROOT / "packaging" / "licenses", tree / "licenses")
    shutil.copytree(ROOT / "examples", tree / "examples")
    copy_sources(tree, "--cached", "samples")


def windows_files(tree):
    return sorted(path for folder in WINDOWS for path in (tree / folder).iterdir() if path.suffix in (".dll", ".exe"))


def windows_tree(tree):
    for folder, preset in WINDOWS.items():
        run("cmake", "--install", ROOT / "build" / preset, "--prefix", tree)
        (tree / folder / "symbols").mkdir()
    for path in windows_files(tree):
        functions = relink.function_map(ROOT / "build" / WINDOWS[path.parent.name], path.name)
        (path.parent / "symbols" / f"{path.name}.map").write_text(functions, newline="\n")
    run(PYTHON, "tools/bindings.py", tree)
    fill_common(tree)
    shutil.copytree(ROOT / "docs", tree / "docs")
    for name in TEXTS:
        shutil.copy(ROOT / name, tree)


def linux_tree(tree):
    run("cmake", "--install", ROOT / "build" / "native", "--prefix", tree, "--strip")
    shutil.copytree(ROOT / "build" / "native" / "debug", tree / "debug")
    other = STAGE / "native32"
    run("cmake", "--install", ROOT / "build" / "native32", "--prefix", other, "--strip", "--component", "library")
    shutil.copytree(other / "lib", tree / "lib32", symlinks=True)
    shutil.copytree(ROOT / "build" / "native32" / "debug", tree / "debug" / "lib32")
    with tempfile.TemporaryDirectory() as folder:
        run(PYTHON, "tools/bindings.py", folder)
        shutil.copytree(pathlib.Path(folder) / "bindings", tree / "bindings")
    fill_common(tree)
    documents = tree / "share" / "doc" / "emailsending"
    shutil.rmtree(documents / "examples")
    # The pages name each other, samples and examples from the top and from their own folder.
    for name in (*TEXTS, "docs"):
        (tree / name).symlink_to((documents / name).relative_to(tree))
    for name in ("bindings", "examples", "samples"):
        (documents / name).symlink_to(f"../../../{name}")


# ---- The signature, the bill and the archives.

def sha256(path):
    return hashlib.sha256(path.read_bytes()).hexdigest()


def sums(paths, base):
    return "".join(f"{sha256(path)}  {path.relative_to(base).as_posix()}\n" for path in sorted(paths))


def sign(tree):
    """{file: SHA-256 before}, where they are signed."""
    signer = os.environ.get(SIGNER)
    if not signer:
        return {}
    before = {path: sha256(path) for path in windows_files(tree)}
    (DIST / "SHA256SUMS.unsigned").write_text(sums(before, tree))
    for path, unsigned in before.items():
        run(signer, path)
        if sha256(path) == unsigned:
            sys.exit(f"package: {signer} left {path.name} as it was")
    return before


def bill(windows, linux, unsigned):
    made = sbom.Bill(version(), source_date())
    for path in windows_files(windows):
        made.deliver(f"windows/{path.relative_to(windows).as_posix()}", path,
                     ROOT / "build" / WINDOWS[path.parent.name], unsigned.get(path, ""))
    for folder, preset in (("lib", "native"), ("bin", "native"), ("lib32", "native32")):
        for path in sorted((linux / folder).glob("*")):
            if path.is_file() and not path.is_symlink():
                made.deliver(f"linux/{path.relative_to(linux).as_posix()}", path, ROOT / "build" / preset)
    return made.text()


def entries(tree):
    """All that is in the tree, in an order of its own, with its name in the archive."""
    return [(path, f"{tree.name}/{path.relative_to(tree).as_posix()}") for path in sorted(tree.rglob("*"))]


def write_zip(tree, target, epoch):
    date = datetime.datetime.fromtimestamp(epoch, datetime.timezone.utc).timetuple()[:6]
    with zipfile.ZipFile(target, "w", zipfile.ZIP_DEFLATED, compresslevel=9) as archive:
        for path, name in entries(tree):
            if path.is_file():
                entry = zipfile.ZipInfo(name, date)
                entry.compress_type, entry.create_system, entry.external_attr = zipfile.ZIP_DEFLATED, 3, 0o100644 << 16
                archive.writestr(entry, path.read_bytes())


def write_tar(tree, target, epoch):
    def plain(entry):
        entry.uid = entry.gid = 0
        entry.uname = entry.gname = "root"
        entry.mtime = epoch
        entry.mode = 0o777 if entry.issym() else 0o755 if entry.isdir() or entry.mode & 0o100 else 0o644
        return entry

    with open(target, "wb") as raw, gzip.GzipFile("", "wb", 9, raw, mtime=epoch) as packed, \
            tarfile.open(fileobj=packed, mode="w", format=tarfile.GNU_FORMAT) as archive:
        for path, name in entries(tree):
            archive.add(path, name, recursive=False, filter=plain)


def write_deb(epoch):
    folder = ROOT / "build" / "native" / "package"
    shutil.rmtree(folder, ignore_errors=True)
    run("cpack", "-G", "DEB", cwd=ROOT / "build" / "native", SOURCE_DATE_EPOCH=str(epoch))
    shutil.copy(*folder.glob("*.deb"), DIST)


def package(again):
    name, epoch = f"emailsending-{version()}", source_date()
    build(again)
    for folder in (DIST, STAGE):
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir(parents=True)
    windows, linux = STAGE / f"{name}-windows", STAGE / f"{name}-linux-amd64"
    windows_tree(windows)
    linux_tree(linux)
    materials = bill(windows, linux, sign(windows))
    for path in (DIST / f"{name}.cdx.json", windows / "sbom.cdx.json", linux / "sbom.cdx.json"):
        path.write_text(materials)
    write_zip(windows, DIST / f"{windows.name}.zip", epoch)
    write_tar(linux, DIST / f"{linux.name}.tar.gz", epoch)
    write_deb(epoch)
    (DIST / "SHA256SUMS").write_text(sums([path for path in DIST.iterdir() if "SUMS" not in path.name], DIST))


# ---- Twice.

def copy_sources(target, which="-co", folder="."):
    """What belongs to the sources: what git knows or, but for "--cached", would take."""
    listed = subprocess.run(["git", "ls-files", "-z", which, "--exclude-standard", folder], cwd=ROOT, capture_output=True)
    if listed.returncode == 0:
        names = [name for name in listed.stdout.decode().split("\0") if name and (ROOT / name).is_file()]
    else:
        names = [path.relative_to(ROOT) for path in (ROOT / folder).rglob("*")
                 if path.is_file() and path.relative_to(ROOT).parts[0] not in ("build", "dist", ".git")]
    for name in names:
        (target / name).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(ROOT / name, target / name)


def package_twice():
    environment = {"SOURCE_DATE_EPOCH": str(source_date()), "CCACHE_DISABLE": "1"}
    with tempfile.TemporaryDirectory(prefix="emailsending-") as folder:
        places = [pathlib.Path(folder) / name for name in ("one", "another/place")]
        for place in places:
            copy_sources(place)
            run(PYTHON, "tools/package.py", cwd=place, **{**environment, SIGNER: ""})
        made = [sorted(path.name for path in (place / "dist").iterdir()) for place in places]
        if made[0] != made[1]:
            sys.exit(f"package: {made[0]} once, {made[1]} then")
        differing = [name for name in made[0] if not filecmp.cmp(*(place / "dist" / name for place in places), False)]
        if differing:
            sys.exit(f"package: two builds differ in {', '.join(differing)}")
        if os.environ.get(SIGNER):  # a signature has a time: it comes after the comparison
            run(PYTHON, "tools/package.py", cwd=places[0], **environment)
        shutil.rmtree(DIST, ignore_errors=True)
        shutil.copytree(places[0] / "dist", DIST)
    print(f"two builds, {len(made[0])} files, no difference")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    how = parser.add_mutually_exclusive_group()
    how.add_argument("--relink", action="store_true")
    how.add_argument("--twice", action="store_true")
    chosen = parser.parse_args()
    os.umask(0o022)  # who unpacks reads the files, whoever packs them
    package_twice() if chosen.twice else package(chosen.relink)
    print((DIST / "SHA256SUMS").read_text(), end="")


if __name__ == "__main__":
    main()
