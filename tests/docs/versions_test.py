#!/usr/bin/env python3
"""CMakeLists.txt, the presets and README name the same version of CMake.

use: versions_test.py SOURCE-FOLDER
"""

import json
import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1])
presets = json.loads((root / "CMakePresets.json").read_text())["cmakeMinimumRequired"]
versions = {
    "CMakeLists.txt": re.search(r"cmake_minimum_required\(VERSION ([\d.]+)\)",
                                (root / "CMakeLists.txt").read_text()).group(1),
    "CMakePresets.json": f"{presets['major']}.{presets['minor']}",
    "README.md": re.search(r"CMake (\d[\d.]*\d)", (root / "README.md").read_text()).group(1),
}
if len(set(versions.values())) != 1:
    sys.exit(f"not one version of CMake, but {versions}")
