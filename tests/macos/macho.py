#!/usr/bin/env python3
"""macho.py - looks into the macOS binaries that ./run macho has built

    tests/macos/macho.py [BUILD-FOLDERS-PREFIX]

Fails, and says why, unless
- the x86_64 and arm64 dylibs export what lib/zelieml/exports.txt says, have the right install name
  and oldest system, and load nothing but the system's own libraries;
- the archives for all three processors refer to nothing that neither they nor the .tbd files of
  sdk/ define (no linker here links i386);
- one library and one archive can be made of the slices;
- the example hosts of macOS compile;
- the compiler refuses what macOS 10.9 lacks, or all of the above would show nothing.
"""

import pathlib
import re
import subprocess
import sys
import tempfile

LLVM = "14"
HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
SDK = HERE / "sdk"

LINKED = {"x86_64": "10.9", "arm64": "11.0"}
ALL = {"x86_64": "10.9", "i386": "10.9", "arm64": "11.0"}
INSTALL_NAME = "@rpath/libzelieml.1.dylib"

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


def symbols(binary, *options):
    lines = llvm("nm", "-j", *options, binary).splitlines()
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


def check_dylib(library, version):
    output("cmake", f"-DNM=llvm-nm-{LLVM}", "-DNM_OPTIONS=-gU", f"-DLIBRARY={library}",
           "-DPREFIX=_", f"-DEXPORTS={ROOT}/lib/zelieml/exports.txt",
           "-P", ROOT / "tests/api/exports.cmake")
    name = llvm("objdump", "--macho", "--dylib-id", library).split("\n")[1]
    require(name == INSTALL_NAME, f"{library}: install name {name}")

    commands = llvm("objdump", "--macho", "--private-headers", library)
    oldest = re.search(r"LC_VERSION_MIN_MACOSX\n.*\n\s+version (\S+)|minos (\S+)", commands)
    require(oldest and version in oldest.groups(), f"{library}: not for macOS {version}")

    for line in llvm("objdump", "--macho", "--dylibs-used", library).splitlines()[1:]:
        used = line.split()[0]
        require(used.startswith(("/usr/lib/", "/System/Library/Frameworks/")) or
                used == INSTALL_NAME, f"{library}: loads {used}")


def check_archive(archive, architecture):
    missing = (symbols(archive, "-u") - symbols(archive, "-U") - listed_symbols(architecture)
               - FROM_LINKER)
    require(not missing, f"{archive}: nobody defines {' '.join(sorted(missing))}")


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
    prefix = sys.argv[1] if len(sys.argv) > 1 else str(ROOT / "build-macho-")
    folders = {a: pathlib.Path(prefix + a) / "lib" for a in ALL}
    for architecture, version in LINKED.items():
        check_dylib(folders[architecture] / "libzelieml.1.dylib", version)
    for architecture, folder in folders.items():
        check_archive(folder / "libzelieml.a", architecture)

    with tempfile.TemporaryDirectory() as name:
        work = pathlib.Path(name)
        for slices, file in ((LINKED, "libzelieml.1.dylib"), (ALL, "libzelieml.a")):
            llvm("lipo", "-create", *[folders[a] / file for a in slices], "-output", work / file)
            joined = llvm("lipo", "-archs", work / file).split()
            require(set(joined) == set(slices), f"{file}: has {joined}")
        for architecture in ("x86_64", "i386"):
            check_refusals(architecture, work)

    for architecture in ALL:
        for example in sorted((ROOT / "examples").glob("wait_for_end_*.c")):
            output(*compiler(architecture, "clang"), "-std=c99", example)

    print("macho:", ", ".join(f"{a} for {v}" for a, v in ALL.items()), "as they should be")


main()
