#!/usr/bin/env python3
"""macho.py - looks into the macOS binaries that ./run macho has built

Installs the universal library into a temporary folder, and fails, saying why, unless
- the dylib and the plug-in for TLS have both slices, their install names and versions, export what
  lib/zelieml/exports.txt says and one function, are marked for the oldest system, load nothing but
  the system's own libraries, the plug-in only those it needs, have no path of this machine in them,
  and a signature that fits what it signs, also when stripped once more;
- the debug symbols beside them are their own;
- the archives for all three processors, and the objects of the plug-in, refer to nothing that
  neither they nor the .tbd files of sdk/ define (no linker here links i386), and the archives can be
  made into one;
- both headers are installed, and compile; so do the example hosts of macOS, and the program that
  PORTING.md has for a Mac;
- the compiler refuses what macOS 10.9 lacks, or all of the above would show nothing.
"""

import hashlib
import pathlib
import re
import struct
import subprocess
import sys
import tempfile

LLVM = "14"
HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
SDK = HERE / "sdk"

UNIVERSAL = ROOT / "build-macho"
I386 = ROOT / "build-macho-i386"

LINKED = {"x86_64": "10.9", "arm64": "11.0"}
ALL = {"x86_64": "10.9", "i386": "10.9", "arm64": "11.0"}
LIBRARY = "libzelieml.1.dylib"
PLUGIN = "libzelieml-tls.1.dylib"
PLUGIN_EXPORTS = {"_zelieml_tls_open_1"}
PLUGIN_LOADS = {"Security", "CoreFoundation", "libc++.1.dylib", "libSystem.B.dylib"}
HEADERS = {"zelieml", "zelieml.h", "zelieml_ext.h"}
INSTALLED = {"cmake", LIBRARY, f"{LIBRARY}.dSYM", PLUGIN, f"{PLUGIN}.dSYM", "libzelieml.a",
             "libzelieml.dylib", "pkgconfig"}

# What the linker of every binary provides.
FROM_LINKER = {"___dso_handle"}

# Each needs a newer system than 10.9: the diagnostic has to name it.
TOO_NEW = {
    "std::shared_mutex lock;": "#include <shared_mutex>",
    "int f(std::optional<int> o) { return o.value(); }": "#include <optional>",
}


def output(*command, **options):
    """The standard output of a program that has to succeed."""
    done = subprocess.run([str(word) for word in command], text=True, capture_output=True, **options)
    if done.returncode != 0:
        sys.exit(f"{' '.join(done.args)}\n{done.stdout}{done.stderr}")
    return done.stdout


def llvm(tool, *arguments):
    return output(f"llvm-{tool}-{LLVM}", *arguments)


def require(condition, message):
    if not condition:
        sys.exit(f"macho: {message}")


def symbols(binaries, *options):
    lines = llvm("nm", "-j", *options, *binaries).splitlines()
    return {line for line in lines if line and not line.endswith(":")}


def listed_symbols(architecture):
    """What the .tbd files say that the system has."""
    found = set()
    for tbd in SDK.rglob("*.tbd"):
        for targets, kind, names in re.findall(
                r"- targets:\s*\[(.*?)\]\s*([a-z-]+):\s*\[(.*?)\]", tbd.read_text(), re.DOTALL):
            if f"{architecture}-macos" not in targets:
                continue
            words = [name.strip(" '\n") for name in names.split(",")]
            if kind == "objc-classes":
                # The older runtime of i386 has names of its own for classes.
                prefix = ".objc_class_name_" if architecture == "i386" else "_OBJC_CLASS_$_"
                words = [prefix + word for word in words]
            found.update(words)
    return found


def slices(universal, work):
    """The slices of a universal file, as files of their own."""
    found = llvm("lipo", "-archs", universal).split()
    require(set(found) == set(LINKED), f"{universal}: has {found}")
    parts = {}
    for architecture in found:
        parts[architecture] = work / f"{architecture}-{universal.name}"
        llvm("lipo", universal, "-thin", architecture, "-output", parts[architecture])
    return parts


def check_signature(library):
    """The signature is nobody's, and each page of the file has the hash that it says."""
    file = library.read_bytes()
    commands = llvm("objdump", "--macho", "--private-headers", library)
    place = re.search(r"LC_CODE_SIGNATURE\n\s+cmdsize \d+\n\s+dataoff (\d+)", commands)
    require(place, f"{library}: not signed")
    blob = file[int(place.group(1)):]
    magic, _, count = struct.unpack_from(">3I", blob)
    require(magic == 0xFADE0CC0, f"{library}: its signature has the magic number {magic:x}")
    index = dict(struct.iter_unpack(">2I", blob[12:12 + 8 * count]))
    directory = blob[index[0]:]
    flags, hashes, _, _, pages, limit = struct.unpack_from(">6I", directory, 12)
    size, kind, _, page_bits = struct.unpack_from("4B", directory, 36)
    require(flags & 2 and kind == 2, f"{library}: a signature with flags {flags:x}, hash {kind}")
    require(limit == int(place.group(1)), f"{library}: {limit} bytes of it are signed")
    page_size = 1 << page_bits
    for page in range(pages):
        signed = file[page * page_size:min((page + 1) * page_size, limit)]
        start = hashes + page * size
        require(hashlib.sha256(signed).digest() == directory[start:start + size],
                f"{library}: page {page} is not what was signed")


def check_exports(library):
    if library.name.endswith(PLUGIN):
        found = symbols([library], "-gU")
        require(found == PLUGIN_EXPORTS, f"{library}: exports {sorted(found)}")
    else:
        output("cmake", f"-DNM=llvm-nm-{LLVM}", "-DNM_OPTIONS=-gU", f"-DLIBRARY={library}",
               "-DPREFIX=_", f"-DEXPORTS={ROOT}/lib/zelieml/exports.txt",
               "-P", ROOT / "tests/api/exports.cmake")


def check_loads(library, install_name):
    lines = llvm("objdump", "--macho", "--dylibs-used", library).splitlines()[1:]
    loads = [line.split()[0] for line in lines if line.split()[0] != install_name]
    for used in loads:
        require(used.startswith(("/usr/lib/", "/System/Library/Frameworks/")),
                f"{library}: loads {used}")
    if library.name.endswith(PLUGIN):
        found = {pathlib.Path(used).name for used in loads}
        require(found == PLUGIN_LOADS, f"{library}: loads {sorted(found)}")


def check_slice(library, install_name, oldest_system, version):
    check_exports(library)
    name = llvm("objdump", "--macho", "--dylib-id", library).split("\n")[1]
    require(name == install_name, f"{library}: install name {name}")

    commands = llvm("objdump", "--macho", "--private-headers", library)
    oldest = re.search(r"LC_VERSION_MIN_MACOSX\n.*\n\s+version (\S+)|minos (\S+)", commands)
    require(oldest and oldest_system in oldest.groups(), f"{library}: not for {oldest_system}")
    versions = re.search(r"LC_ID_DYLIB\n(?:.*\n){3}\s*current version (\S+)\n"
                         r"compatibility version (\S+)", commands)
    require(versions and versions.groups() == (version, "1.0.0"),
            f"{library}: has the versions {versions and versions.groups()}")
    require("LC_RPATH" not in commands, f"{library}: looks for libraries in a folder of its own")

    check_loads(library, install_name)
    require(bytes(ROOT) not in library.read_bytes(), f"{library}: has the path {ROOT} in it")
    check_signature(library)


def uuids(binary):
    return sorted(re.findall(r"UUID: (\S+ \(\w+\))", llvm("dwarfdump", "--uuid", binary)))


def check_installed(work, version):
    for options in ((), ("--strip",)):
        prefix = work / f"prefix{len(options)}"
        output("cmake", "--install", UNIVERSAL, "--prefix", prefix, *options)
        folder = prefix / "lib"
        found = {path.name for path in folder.iterdir()}
        require(found == INSTALLED, f"installed: {sorted(found)}")
        headers = {path.name for path in (prefix / "include").iterdir()}
        require(headers == HEADERS, f"installed headers: {sorted(headers)}")
        link = folder / "libzelieml.dylib"
        require(link.is_symlink() and str(link.readlink()) == LIBRARY,
                f"{link}: no link to {LIBRARY}")
        for library in (folder / LIBRARY, folder / PLUGIN):
            require(library.is_file() and not library.is_symlink(), f"{library}: no plain file")
            for architecture, path in slices(library, work).items():
                check_slice(path, f"@rpath/{library.name}", LINKED[architecture], version)
            require(len(uuids(library)) == len(LINKED), f"{library}: UUIDs {uuids(library)}")
            require(uuids(library) == uuids(f"{library}.dSYM"),
                    f"{library}: not its debug symbols")


def check_defined(what, binaries, architecture):
    missing = (symbols(binaries, "-u") - symbols(binaries, "-U") - listed_symbols(architecture)
               - FROM_LINKER)
    require(not missing, f"{what}: nobody defines {' '.join(sorted(missing))}")


def compiler(architecture, language):
    """The compiler as the toolchain file calls it, for one file of its own."""
    command = [f"{language}-{LLVM}", "-target", f"{architecture}-apple-macosx{ALL[architecture]}",
               "-isysroot", SDK, "-Wall", "-Wextra", "-Werror", "-fsyntax-only"]
    if language == "clang++":
        command += ["-std=c++17", "-nostdinc++", "-isystem", HERE / "libcxx",
                    "-isystem", f"/usr/lib/llvm-{LLVM}/include/c++/v1"]
    return command


def check_refusals(architecture, work):
    source = work / "too_new.cpp"
    for code, include in TOO_NEW.items():
        source.write_text(f"{include}\n{code}\n")
        done = subprocess.run([*compiler(architecture, "clang++"), source], text=True,
                              capture_output=True, check=False)
        require("is unavailable: introduced in macOS" in done.stderr,
                f"{architecture}: the compiler takes: {code}")


def main():
    version = re.search(r"project\(zelieml VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text())
    with tempfile.TemporaryDirectory() as name:
        work = pathlib.Path(name)
        check_installed(work, version.group(1))

        archives = slices(UNIVERSAL / "lib/libzelieml.a", work)
        archives["i386"] = I386 / "lib/libzelieml.a"
        for architecture, archive in archives.items():
            check_defined(archive, [archive], architecture)
        plugin = list((I386 / "plugins/tls").rglob("*.o"))
        require(len(plugin) > 5, f"the plug-in for i386 has {len(plugin)} objects")
        check_defined("the plug-in for i386", [*plugin, archives["i386"]], "i386")
        joined = work / "libzelieml.a"
        llvm("lipo", "-create", *archives.values(), "-output", joined)
        found = llvm("lipo", "-archs", joined).split()
        require(set(found) == set(ALL), f"{joined}: has {found}")

        for architecture in ("x86_64", "i386"):
            check_refusals(architecture, work)

    for architecture in ALL:
        for program in [*(ROOT / "examples").glob("wait_for_end_*.c"), HERE / "passwords.c",
                        *(ROOT / "tests/api").glob("header*.c")]:
            output(*compiler(architecture, "clang"), "-std=c99", f"-I{ROOT}/include", program)

    print("macho:", ", ".join(f"{a} for {v}" for a, v in ALL.items()), "as they should be")


main()
