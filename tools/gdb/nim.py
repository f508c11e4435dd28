"""Loads the gdb extension of dalnim where gdb does not load it by itself: source .../dalnim/gdb/nim.py"""
import os
import sys


def load(objfile=None):
    """Registers the extension. Writes no byte code beside the installed files."""
    directory = os.path.dirname(os.path.realpath(__file__))
    writes = sys.dont_write_bytecode
    sys.dont_write_bytecode = True
    sys.path.insert(0, directory)
    try:
        import dalnim_gdb
        dalnim_gdb.register(objfile)
    finally:
        sys.path.remove(directory)
        sys.dont_write_bytecode = writes


load()
