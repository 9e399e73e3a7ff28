#!/usr/bin/env python3
"""choices.py - what the build chooses on Macs that differ

Configures the library with SDKs and C++ libraries that differ from sdk/ and libcxx/ in one thing
each, and looks at the commands that would compile it. Then signing and ./run, with a Mac's tools
replaced by scripts that write down how they were called. Nothing is compiled but the checks of CMake.
"""

import concurrent.futures
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
SDK = HERE / "sdk"

# libc++'s own condition and words: so many zeros in a version as it has below 11 and from there on.
GIVEN_UP = """
#if defined(__ENVIRONMENT_MAC_OS_X_VERSION_MIN_REQUIRED__) && \\
    __ENVIRONMENT_MAC_OS_X_VERSION_MIN_REQUIRED__ < {}
#{} "The selected platform is no longer supported by libc++."
#endif
#include_next <__config_site>
"""

# What differs, the options of CMake, and what has to come of it: the system and the processors in
# the commands that compile, and words of a warning, if there is one; or words of the error.
CASES = [
    ("nothing", {}, [], ("10.9", "x86_64 arm64")),
    ("a C++ library that has given up what is before 10.13", {"given_up": 101300}, [],
     ("10.13", "x86_64 arm64")),
    ("a C++ library that has given up what is before 11.0", {"given_up": 110000}, [],
     ("11.0", "x86_64 arm64")),
    ("an SDK for 10.13 and later", {"oldest": "10.13"}, [], ("10.13", "x86_64 arm64")),
    ("an SDK for 12.0 and later", {"oldest": "12.0"}, [], ("12.0", "x86_64 arm64")),
    ("an SDK for Apple's processors only", {"archs": ["arm64", "arm64e"]}, [], ("11.0", "arm64")),
    ("an SDK for a processor that is not known", {"archs": ["arm64e"]}, [], ("10.9", "")),
    ("an SDK that says nothing of itself", {"says": False}, [], ("10.9", "x86_64 i386 arm64")),
    ("one processor asked for", {}, ["-DCMAKE_OSX_ARCHITECTURES=x86_64"], ("10.9", "x86_64")),
    ("a system asked for", {}, ["-DCMAKE_OSX_DEPLOYMENT_TARGET=10.15"], ("10.15", "x86_64 arm64")),
    ("a system asked for that has been given up, warnings being errors", {"given_up": 110000},
     ["-DCMAKE_OSX_DEPLOYMENT_TARGET=10.9", "-DZELIEML_WERROR=ON"],
     "macOS 10.9, which CMAKE_OSX_DEPLOYMENT_TARGET names. Name a newer one"),
    ("a system asked for that has been given up", {"given_up": 110000},
     ["-DCMAKE_OSX_DEPLOYMENT_TARGET=10.9"], ("10.9", "x86_64 arm64")),
    ("a system asked for that the SDK is not for", {"oldest": "10.13"},
     ["-DCMAKE_OSX_DEPLOYMENT_TARGET=10.9"],
     ("10.9", "x86_64 arm64", "the library may not run on macOS 10.9")),
    ("a C++ library that has given up everything", {"given_up": 990000}, [],
     ("11.0", "x86_64 arm64", "the compiler warns when it builds for macOS 11.0")),
    ("a C++ library that has given up everything, for an SDK for 12.0 and later",
     {"given_up": 990000, "oldest": "12.0"}, [],
     ("12.0", "x86_64 arm64", "the compiler warns when it builds for macOS 12.0")),
    ("a C++ library that refuses everything", {"given_up": 990000, "how": "error"}, [],
     "cannot build for macOS 11.0 or older. Set CMAKE_OSX_DEPLOYMENT_TARGET"),
    ("CXXFLAGS that warn", {"flags": "-Wof-another-compiler", "given_up": 101300}, [],
     ("10.13", "x86_64 arm64")),
    ("no SDK named", {"by_xcrun": True}, [], ("10.9", "x86_64 arm64")),
    ("TLS by Homebrew's GnuTLS", {"gnutls": True}, ["-DZELIEML_TLS=gnutls"],
     ("10.9", "x86_64 arm64")),
]


def require(condition, message):
    if not condition:
        sys.exit(f"choices: {message}")


def script(path, text):
    path.parent.mkdir(exist_ok=True)
    path.write_text(f"#!/bin/sh\n{text}\n")
    path.chmod(0o755)


def make_sdk(folder, oldest=None, archs=None, says=True):
    settings = json.loads((SDK / "SDKSettings.json").read_text())
    target = settings["SupportedTargets"]["macosx"]
    target["MinimumDeploymentTarget"] = oldest or target["MinimumDeploymentTarget"]
    target["Archs"] = archs or target["Archs"]
    folder.mkdir()
    if says:
        (folder / "SDKSettings.json").write_text(json.dumps(settings))
    for name in ("System", "usr"):
        (folder / name).symlink_to(SDK / name)
    return folder


def configure(work, options, given_up=0, how="warning", flags="", by_xcrun=False, gnutls=False,
              **sdk):
    """CMake's words, and the options of the command that compiles a file of the library."""
    environment = {name: value for name, value in os.environ.items()
                   if name not in ("SDKROOT", "MACOSX_DEPLOYMENT_TARGET")}
    sdk = make_sdk(work / "sdk", **sdk)
    (work / "libcxx").mkdir()
    (work / "libcxx/__config_site").write_text(GIVEN_UP.format(given_up, how))
    environment["CXXFLAGS"] = f"-isystem {work}/libcxx {flags}"
    # Homebrew's folder, with what the tests take from there, and more than one of the names that
    # the system's own libraries have.
    brew = work / "homebrew"
    for name in ("include/nettle/md5.h", "lib/libnettle.dylib", "lib/libobjc.dylib",
                 "include/objc/objc.h", "include/gnutls/gnutls.h", "lib/libgnutls.dylib"):
        (brew / name).parent.mkdir(parents=True, exist_ok=True)
        (brew / name).touch()
    environment["PATH"] = f"{work}/bin:{environment['PATH']}"
    script(work / "bin/xcrun", f'[ "$*" = "--sdk macosx --show-sdk-path" ] && echo {sdk}')
    done = subprocess.run(
        ["cmake", "-G", "Ninja", "-S", ROOT, "-B", work / "build",
         f"-DCMAKE_TOOLCHAIN_FILE={HERE}/macho.cmake",
         f"-DCMAKE_OSX_SYSROOT={'' if by_xcrun else sdk}", f"-DCMAKE_PREFIX_PATH={brew}",
         "-DZELIEML_TESTS=OFF", "-DZELIEML_TOOLS=OFF", "-DZELIEML_INSTALL=OFF", *options],
        env=environment, text=True, capture_output=True, check=False)
    words = " ".join((done.stdout + done.stderr).split())
    if done.returncode != 0:
        return words, None
    commands = json.loads((work / "build/compile_commands.json").read_text())
    for command in commands:
        require(f"-isysroot {sdk} " in command["command"], f"another SDK: {command['command']}")
        from_brew = str(brew) in command["command"]
        if gnutls and "/plugins/" in command["file"]:
            require(from_brew and "-arch" not in command["command"],
                    f"not Homebrew's, or for others: {command['command']}")
        else:
            require(not from_brew, f"Homebrew's: {command['command']}")
    rules = (work / "build/build.ninja").read_text()
    require((str(brew) in rules) == gnutls, "a file of Homebrew's is linked, or none")
    require(" -lobjc" in rules, "libobjc is not linked by its name")
    return words, commands[0]["command"]


def check_case(name, differs, options, wanted):
    with tempfile.TemporaryDirectory() as folder:
        words, command = configure(pathlib.Path(folder), options, **differs)
    if isinstance(wanted, str):
        require(command is None and wanted in words, f"with {name}: {words}")
        return
    require(command is not None, f"with {name}: {words}")
    chosen = (re.findall(r"-mmacosx-version-min=(\S+)", command)[-1],
              " ".join(re.findall(r"-arch (\S+)", command)))
    require(chosen == wanted[:2], f"with {name}: {chosen}, not {wanted}")
    processors = ", ".join(wanted[1].split()) or "this machine's processor"
    require(f"-- zelieml: for macOS {wanted[0]} and later: {processors} --" in words,
            f"with {name}: {words}")
    warning = wanted[2:]
    require(("CMake Warning" in words) == bool(warning) and all(word in words for word in warning),
            f"with {name}: {words}")


def check_signing():
    """The dylib is signed after it was stripped, and once more if it was stripped when installed."""
    with tempfile.TemporaryDirectory() as name:
        work = pathlib.Path(name)
        log = work / "signed"
        broken = work / "broken"
        script(work / "bin/codesign",
               f'echo "$*" >>{log}; [ "$1" != --verify ] || [ ! -e {broken} ]')
        words, command = configure(work, ["-DZELIEML_INSTALL=ON"])
        require(command is not None, words)
        build = work / "build"
        rules = (build / "build.ninja").read_text()
        dylibs = ["lib/libzelieml.1.dylib", "lib/libzelieml-tls.1.dylib"]
        for dylib in dylibs:
            built = build / dylib
            steps = [f"dsymutil {built} -o {built}.dSYM", f"llvm-strip-14 -x {built}",
                     f"codesign --force --sign - {built}"]
            require(re.search(" && \\S*".join(re.escape(step) for step in steps), rules),
                    f"not in build.ninja: {steps}")
            built.touch()
            (build / f"{dylib}.dSYM").mkdir(parents=True)
        (build / "lib/libzelieml.a").touch()
        (build / "lib/libzelieml.dylib").symlink_to("libzelieml.1.dylib")
        (build / "docs/man/man3").mkdir(parents=True)
        for state in ("whole", "broken"):
            wanted = []
            for installed in (f"{work}/staged/usr/local/{dylib}" for dylib in dylibs):
                wanted.append(f"--verify {installed}")
                wanted += [f"--force --sign - {installed}"] if state == "broken" else []
            (work / state).touch()
            done = subprocess.run(["cmake", "--install", build, "--prefix", "/usr/local"],
                                  env={**os.environ, "DESTDIR": f"{work}/staged"}, text=True,
                                  capture_output=True, check=False)
            require(done.returncode == 0, f"installing: {done.stderr}")
            require(log.read_text().splitlines() == wanted, f"{state}: {log.read_text()}")
            log.unlink()


def check_run():
    """./run names the SDK, and no folder of Homebrew's that would come before it. What is there from
    elsewhere is not installed."""
    with tempfile.TemporaryDirectory() as name:
        work = pathlib.Path(name)
        shutil.copy(ROOT / "run", work)
        shutil.copy(ROOT / "CMakeLists.txt", work)
        script(work / "bin/uname", "echo Darwin")
        script(work / "bin/brew", '[ "$1" = install ] && echo "$*" >>installed')
        script(work / "bin/xcrun", '[ "$*" = "--sdk macosx --show-sdk-path" ] && echo /the/sdk')
        for name in ("ninja", "python3"):
            script(work / f"bin/{name}", "")
        script(work / "bin/cmake",
               'case $1 in --version) echo cmake version 4.1.0;; '
               '*) echo "${SDKROOT-none} ${CPATH-none} ${LIBRARY_PATH-none}" >>seen; '
               "mkdir -p build;; esac")
        path = f"{work}/bin:{os.environ['PATH']}"
        for given, wanted in (({}, "/the/sdk none none"),
                              ({"SDKROOT": "/another", "CPATH": "/opt/homebrew/include",
                                "LIBRARY_PATH": "/opt/homebrew/lib"}, "/another none none")):
            environment = {key: value for key, value in os.environ.items()
                           if key not in ("SDKROOT", "CPATH", "LIBRARY_PATH")}
            done = subprocess.run([work / "run", "demo"], env={**environment, **given, "PATH": path},
                                  text=True, capture_output=True, check=False)
            require(done.returncode == 0, f"./run demo: {done.stdout}{done.stderr}")
            seen = (work / "seen").read_text().splitlines()
            require(seen == [wanted] * 2, f"./run demo calls cmake with {seen}")
            (work / "seen").unlink()
            installed = (work / "installed").read_text().splitlines()
            require(installed == ["install cli11 nettle nlohmann-json"], f"./run demo calls brew with {installed}")
            (work / "installed").unlink()
            shutil.rmtree(work / "build")
        script(work / "bin/xcrun", "exit 1")
        environment.pop("SDKROOT", None)
        done = subprocess.run([work / "run", "demo"], env={**environment, "PATH": path},
                              text=True, capture_output=True, check=False)
        require(done.returncode == 1 and "xcode-select --install" in done.stderr,
                f"./run demo without an SDK: {done.stderr}")


def main():
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as threads:
        checks = [threads.submit(check_case, *case) for case in CASES]
        checks += [threads.submit(check_signing), threads.submit(check_run)]
        for check in checks:
            check.result()
    print(f"choices: right for {len(CASES)} Macs")


main()
