# SPDX-FileCopyrightText: The hoist authors
# SPDX-License-Identifier: Apache-2.0
"""What a configured build folder says about include folders and definitions."""

import json
import shlex


def build_flags(build):
    """The flags that any file of the tree may need, each once, in the order of the build."""
    flags = {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        words = shlex.split(entry["command"])
        for word, following in zip(words, words[1:] + [""]):
            # The compiler finds that folder by itself, behind the library of C++, where it belongs.
            if word == "-isystem" and following != "/usr/include":
                flags[(word, following)] = None
            elif word.startswith(("-I", "-DHOIST", "-D_GNU", "-D_FILE")):
                flags[(word,)] = None
    return ["-std=c++20"] + [word for pair in flags for word in pair]
