#!/usr/bin/env python3
"""Whoever names the keys of a settings file or of a message file names all that the library knows.

use: keys_test.py PROJECT
"""

import pathlib
import re
import sys

project = pathlib.Path(sys.argv[1])
problems = []


def found_in(file, pattern, part=r"\A(.*)\Z"):
    """What the pattern finds in a part of a file: a set of words."""
    text = re.search(part, (project / file).read_text(), re.DOTALL | re.MULTILINE)
    if not text:
        sys.exit(f"{file} has no part as it should")
    return {word for found in re.findall(pattern, text[1], re.MULTILINE)
            for word in re.split(r"[`, ]+", found)}


def compare(known, named):
    for place, names in named.items():
        problems.extend(f"{place}: {name} is missing" for name in sorted(known - names))
        problems.extend(f"{place}: {name} is no key" for name in sorted(names - known))


settings = found_in("lib/libcheck/settings_check.cpp", r'^    \{"(\w+)", value_kind::')
compare(settings, {
    "lib/libsendw/send_settings.cpp":
        found_in("lib/libsendw/send_settings.cpp", r'"(\w+)"', r"setting_keys = \{(.*?)\}")
        | found_in("lib/libsendw/send_settings.cpp", r'^constexpr char key_\w+\[\] += "(\w+)";')
        | found_in("lib/libsendw/smtpmsg.h", r'key_subject_use_encoding.*"(\w+)"'),
    "tools/zelieml/setting_keys.cpp":
        found_in("tools/zelieml/setting_keys.cpp",
                 r'^ +(?:text|host|path|number|one_of|password)\("(\w+)"'),
    "docs/FORMATS.md":
        found_in("docs/FORMATS.md", r"^\| `(\w+(?:`, `\w+)*)` \|", r"^\| key \| value \|(.*?)\n\n"),
    "docs/man/zelismes.cf.5":
        found_in("docs/man/zelismes.cf.5", r"^\.It Cm (.*)$", r"^\.Sh KEYS\n(.*?)^\.Sh "),
})
headers = found_in("lib/libmsg/libmsg.cpp", r'^char const\* Key\w+ += "(\w+): ";')
compare(headers, {
    "docs/FORMATS.md":
        found_in("docs/FORMATS.md", r"^    (\w+): \S", r"^## Message file(.*?)^## "),
    "docs/man/zelieml-message.5":
        found_in("docs/man/zelieml-message.5", r"^\.It Ql (\w+):"),
})
strict = found_in("lib/libcheck/settings_check.cpp", r'^    \{"(\w+)", value_kind::(?:tls|path)')
problems.extend(f"a line with {one} contains {other}, too" for one in settings for other in settings
                if one != other and other in one and strict & {one, other})
if len(strict) < 3 or len(settings) < 15 or len(headers) < 7:
    problems.append(f"only {len(settings)} and {len(headers)} keys")
print("\n".join(problems) or f"all name {len(settings)} settings and {len(headers)} headers")
sys.exit(1 if problems else 0)
