#!/usr/bin/env python3
"""All that is installed, the library and the programs, is compiled with optimisation.

use: optimised_test.py SOURCE-FOLDER BUILD-FOLDER
"""

import json
import pathlib
import re
import sys

source, build = (pathlib.Path(word).resolve() for word in sys.argv[1:])
problems, units = [], {"lib": 0, "tools": 0}
for entry in json.loads((build / "compile_commands.json").read_text()):
    file = pathlib.Path(entry["file"])
    # In the build folder lie the files that have CMake compile several sources together.
    unit = next((file.relative_to(root).parts[0] for root in (build, source)
                 if file.is_relative_to(root)), "")
    if unit not in units or " -o tests/" in entry["command"]:  # what a test compiles for itself
        continue
    units[unit] += 1
    # The last one counts.
    level = ["-O0", *re.findall(r"\s(-O\w*)", entry["command"])][-1]
    if level == "-O0":
        problems.append(f"{file} is compiled without optimisation")
problems += [f"nothing of {unit}/ is compiled" for unit, count in units.items() if count == 0]

if problems:
    sys.exit("\n".join(problems))
