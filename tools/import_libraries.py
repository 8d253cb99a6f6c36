"""Writes the .def and the import libraries of emailsending.dll, for MinGW and for Microsoft's linker."""
import pathlib
import shutil
import subprocess
import tempfile

# Folder: whether names are decorated, MinGW's program that makes import libraries, clang's target.
MACHINES = {
    "x86": (True, "i686-w64-mingw32-dlltool", "i686-pc-windows-msvc"),
    "x64": (False, "x86_64-w64-mingw32-dlltool", "x86_64-pc-windows-msvc"),
}
ABOUT = """\
; What {folder}/emailsending.dll exports{names}. Makes the import library of MinGW:
; {dlltool} --input-def emailsending.def --output-lib libemailsending.dll.a
LIBRARY emailsending.dll
EXPORTS
"""


def run(folder, *command):
    subprocess.run(command, cwd=folder, check=True)


def definition(folder, functions):
    """functions are (name, bytes of the arguments)."""
    decorated, dlltool, _ = MACHINES[folder]
    # The compiler's own name leaves the underscore out that the DLL's has.
    rows = [f'    "{name}@{size}" == "_{name}@{size}"\n' if decorated else f"    {name}\n"
            for name, size in functions]
    names = " (symbol == name in the DLL)" if decorated else ""
    return ABOUT.format(folder=folder, names=names, dlltool=dlltool) + "".join(rows)


def mingw_library(folder, dlltool):
    """Of the .def in the folder. The names of the output and of temporary files get into it."""
    run(folder, dlltool, "--input-def", "emailsending.def", "--output-lib", "libemailsending.dll.a",
        "--temp-prefix", "emailsending", "--deterministic-libraries")


def microsoft_library(folder, target, functions):
    """Of a DLL of stubs, as a compiler would export the functions: a .def does not make names with an
    underscore into symbols with the same one, and MinGW's objects are refused by /safeseh."""
    (folder / "stubs.c").write_text("".join(
        f"__declspec(dllexport) int __stdcall {name}({'int argument' if size else 'void'}) {{ return 0; }}\n"
        for name, size in functions))
    run(folder, "clang", f"--target={target}", "-O1", "-c", "stubs.c", "-o", "stubs.obj")
    run(folder, "lld-link", "/dll", "/noentry", "/nodefaultlib", "/Brepro", "/out:emailsending.dll",
        "/implib:emailsending.lib", "stubs.obj")


def write(out, functions):
    """Into out/x86 and out/x64."""
    for name, (_, dlltool, target) in MACHINES.items():
        with tempfile.TemporaryDirectory() as work:
            folder = pathlib.Path(work)
            (folder / "emailsending.def").write_bytes(definition(name, functions).encode())
            mingw_library(folder, dlltool)
            microsoft_library(folder, target, functions)
            (out / name).mkdir(parents=True, exist_ok=True)
            for file in ("emailsending.def", "emailsending.lib", "libemailsending.dll.a"):
                shutil.copyfile(folder / file, out / name / file)
