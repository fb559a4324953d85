"""Loads gdb's view of ZQCore (docs/debugging.md): source this file."""
import os
import sys

import gdb

# gdb runs copies of this file that have the names of the libraries, with another folder here.
FOLDER = "."

sys.path.insert(0, os.path.normpath(os.path.join(os.path.dirname(os.path.realpath(__file__)), FOLDER)))
import zqcore  # noqa: E402

sys.path.pop(0)
zqcore.register(gdb.current_objfile())
