"""The link of a finished file done once more: unstripped, for the map of its functions, or traced, for
what of others is linked in. It is ninja's own last command for the file, with another output."""
import pathlib
import re
import shlex
import subprocess
import tempfile

import binaries


def output(*command, cwd=None):
    return subprocess.run([str(word) for word in command], check=True, capture_output=True, text=True,
                          cwd=cwd).stdout


def cache(build):
    """What CMake noted of the build folder: {name: value}."""
    return dict(re.findall(r"^([\w-]+):\w+=(.*)$", (build / "CMakeCache.txt").read_text(), re.M))


def link(build, name, out, *options, leave_out=()):
    """Links build/name anew as OUT; the linker's words."""
    commands = output("ninja", "-t", "commands", "-s", name, cwd=build).split("&&")
    words = next(shlex.split(command) for command in commands if f" -o {name} " in command)
    words[words.index("-o") + 1] = str(out)
    kept = [word for word in words if word not in leave_out and not word.startswith("-Wl,-Map")]
    return output(*kept, *options, cwd=build)


def linked_in(build, name):
    """The object files and archives of which something is in the file."""
    with tempfile.TemporaryDirectory() as folder:
        said = link(build, name, pathlib.Path(folder) / name, "-Wl,--trace,--trace")
    # A line is an object, an archive that was looked into, or (twice --trace) what was taken from one.
    taken = re.findall(r"^(?:\((\S+\.a)\).+|(\S+\.a)\(.+\)|(\S+\.o))$", said, re.M)
    return sorted({(build / "".join(names)).resolve() for names in taken})


def code_of(tool, path, folder):
    code = folder / (path.name + ".text")
    output(tool, "-O", "binary", "--only-section=.text", path, code)
    return code.read_bytes()


def function_map(build, name):
    """The functions of a stripped Windows file, one a line, by their offset in the module: what Windows
    tells as "fault offset" lies behind the last line that is not greater."""
    tools = cache(build)
    objcopy, nm = (tools[f"CMAKE_{tool}"] for tool in ("OBJCOPY", "NM"))
    delivered = build / name
    base = binaries.PeFile(delivered.read_bytes()).base
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        named = folder / f"named-{name}"
        link(build, name, named, f"-Wl,--image-base={base:#x}", leave_out=("-s",))
        assert code_of(objcopy, named, folder) == code_of(objcopy, delivered, folder), name
        symbols = re.findall(r"^([0-9a-f]+) [tTwW] (?!\.)(.+)$", output(nm, "-nC", named), re.M)
    return "".join(f"{int(address, 16) - base:08x} {symbol}\n" for address, symbol in symbols)
