"""The bill of materials of what is delivered, as CycloneDX JSON (1.5).

Of each file it says what is linked in (read from its link, done once more with --trace), what it loads
(read from the file), and its SHA-256; of each part the Debian package and version it comes from, and its
licence. The texts of these licences lie in packaging/licenses, named by their SPDX names.
"""
import datetime
import functools
import hashlib
import json
import pathlib
import re
import subprocess
import uuid

import relink

ROOT = pathlib.Path(__file__).resolve().parents[1]
GCC = "GPL-3.0-or-later WITH GCC-exception-3.1"
MINGW = "ZPL-2.1 AND LicenseRef-mingw-w64-notices"
# What a file of the tool chain belongs to: (pattern of its path, name, what it is, licence).
PARTS = [(re.compile(pattern), *rest) for pattern, *rest in (
    (r"/lib(std|sup)c\+\+\.(a|so.*)$", "libstdc++", "GNU Standard C++ Library", GCC),
    (r"/gcc/.*/(libgcc\w*\.a|crt\w+\.o)$|/libgcc_s\.so", "libgcc", "run time of GCC", GCC),
    (r"/gcc/.*/libssp\w*\.a$", "libssp", "stack protector of GCC", GCC),
    (r"-w64-mingw32/lib/lib(win)?pthread\.a$", "winpthreads", "POSIX threads on Windows", "MIT AND BSD-3-Clause"),
    (r"-w64-mingw32/lib/[\w.]+$", "mingw-w64", "C run time and import libraries of mingw-w64", MINGW),
    (r"^/usr/src/googletest/", "googletest", "test frame, in selftest.exe alone", "BSD-3-Clause"),
    (r"/lib\w*/(.*/)?(S?crt[1in]\.o|libc_nonshared\.a)$", "glibc", "start of a file, GNU C Library",
     "LGPL-2.1-or-later WITH GCC-exception-2.0"),
    (r"/lib\w*/(.*/)?(lib(c|m|dl|pthread)|ld-linux[\w-]*)\.so\.\d$", "glibc", "GNU C Library", "LGPL-2.1-or-later"))]
# Archives that are built here from sources of others: by a file of these.
FROM_SOURCE = {"libtv_gtest.a": pathlib.Path("/usr/src/googletest/googletest/src/gtest-all.cc")}
# Tables in the sources that were taken from what others published: (file, name, from where, licence).
TABLES = (
    ("src/base/CodePageTables.cpp", "code pages", "made by tools/gen_codepages.py from the codecs of Python",
     "PSF-2.0"),
    ("src/mime/HtmlEntities.cpp", "character names of HTML", "names of HTML 4 and a few of HTML 5 (W3C, WHATWG)", None),
    ("src/mime/CharsetNames.cpp", "names of charsets", "IANA's registry, numbers of Windows code pages", None),
    ("src/base/crypto/EcParams.cpp", "numbers of curves", "FIPS 186-4 (NIST), RFC 5639 and RFC 7748", None),
    ("src/net/tls/CipherSuites.cpp", "cipher suites", "IANA's registry and the RFCs named in it", None),
)


@functools.cache
def debian_package(path):
    """(package, version, architecture) of a file, as dpkg knows them."""
    # Since /usr was merged, dpkg knows some files by their old place.
    for known in (str(path), str(path).removeprefix("/usr")):
        found = subprocess.run(["dpkg-query", "-S", known], capture_output=True, text=True)
        if found.returncode == 0:
            owner = found.stdout.split(": ")[0].split(",")[0]
            form = "${Package} ${Version} ${Architecture}"
            return tuple(relink.output("dpkg-query", "-W", "-f", form, owner).split())
    raise SystemExit(f"sbom: no package has {path}")


def part_of(path):
    """The component a file of the tool chain belongs to."""
    for pattern, name, what, licence in PARTS:
        if pattern.search(str(path)):
            package, version, architecture = debian_package(path)
            return {"type": "library", "bom-ref": f"{name}/{package}:{architecture}", "name": name, "version": version,
                    "description": what, "licenses": [{"expression": licence}],
                    "purl": f"pkg:deb/debian/{package.replace('+', '%2B')}@{version.replace('+', '%2B')}"
                            f"?arch={architecture}&distro=debian-12"}
    raise SystemExit(f"sbom: under which licence is {path}?")


def loaded(path, options):
    """Names of the libraries that the file loads, and where those that Debian has lie."""
    names = sorted(re.findall(r"^\s+(?:NEEDED|DLL Name:) +(\S+)$", relink.output("objdump", "-p", path), re.M))
    return names, [pathlib.Path(relink.output("gcc", *options, f"-print-file-name={name}").strip()).resolve()
                   for name in names if ".so" in name]


def properties(**values):
    return [{"name": f"emailsending:{name}", "value": value} for name, value in values.items() if value]


class Bill:
    """The bill while it is filled."""

    def __init__(self, version, epoch):
        self._own = {"type": "library", "bom-ref": "emailsending", "name": "emailsending", "version": version,
                     "description": "e-mail sending plug-in", "licenses": [{"license": {"id": "MIT"}}]}
        self._epoch, self._parts, self._files, self._depends = epoch, {}, [], {}

    def _part(self, path, linkage):
        part = part_of(path)
        part["bom-ref"] += f"/{linkage}"
        part["properties"] = properties(linkage=linkage)
        return self._parts.setdefault(part["bom-ref"], part)["bom-ref"]

    def deliver(self, name, path, build, unsigned=""):
        """A binary: its name in what goes out, the file, the build folder that made it, and, where it was
        signed, its SHA-256 before."""
        names, found = loaded(path, relink.cache(build).get("CMAKE_CXX_FLAGS", "").split())
        self._files.append({
            "type": "file", "bom-ref": name, "name": name, "version": self._own["version"],
            "hashes": [{"alg": "SHA-256", "content": hashlib.sha256(path.read_bytes()).hexdigest()}],
            "properties": properties(loads=" ".join(names), **{"unsigned-sha256": unsigned})})
        static = [FROM_SOURCE.get(file.name, file) for file in relink.linked_in(build, path.name)]
        self._depends[name] = sorted({*(self._part(file, "static") for file in static if build not in file.parents),
                                      *(self._part(file, "dynamic") for file in found)})

    def _tables(self):
        for file, name, source, licence in TABLES:
            if not (ROOT / file).exists():
                raise SystemExit(f"sbom: there is no {file}")
            table = {"type": "data", "bom-ref": file, "name": name, "description": f"{file}: {source}"}
            yield {**table, "licenses": [{"license": {"id": licence}}]} if licence else table

    def text(self):
        tables = [*self._tables()]
        depends = {"emailsending": sorted(self._depends), **self._depends}
        for file in self._depends:
            depends[file] = sorted({*depends[file], *(table["bom-ref"] for table in tables)})
        moment = datetime.datetime.fromtimestamp(self._epoch, datetime.timezone.utc)
        bill = {
            "bomFormat": "CycloneDX", "specVersion": "1.5", "version": 1,
            "metadata": {"timestamp": moment.strftime("%Y-%m-%dT%H:%M:%SZ"), "component": self._own},
            "components": [*self._files, *(self._parts[name] for name in sorted(self._parts)), *tables],
            "dependencies": [{"ref": name, "dependsOn": on} for name, on in sorted(depends.items())],
        }
        # The number of the bill comes from what it says: the same files, the same bill.
        number = uuid.uuid5(uuid.NAMESPACE_URL, json.dumps(bill, sort_keys=True))
        return json.dumps({**bill, "serialNumber": f"urn:uuid:{number}"}, indent=1) + "\n"
