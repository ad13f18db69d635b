#!/usr/bin/env python3
"""A process that forks after initialising the module: the child's C_Initialize gives it a
working module of its own over the software token, and the parent carries on unaffected.

Usage: fork_child.py MODULE TOKEN_TOOL WORK_FOLDER
"""
import ctypes
import os
import shutil
import subprocess
import sys

CKR_OK = 0


def slot_count(module):
    slots = (ctypes.c_ulong * 8)()
    count = ctypes.c_ulong(8)
    rv = module.C_GetSlotList(1, slots, ctypes.byref(count))
    return rv, count.value


def child(module):
    # Exit codes tell the parent which step failed.
    if module.C_Initialize(None) != CKR_OK:
        os._exit(11)
    rv, count = slot_count(module)
    if rv != CKR_OK or count != 2:
        os._exit(12)
    if module.C_Finalize(None) != CKR_OK:
        os._exit(13)
    os._exit(0)


def main():
    module_path, token_tool, work = sys.argv[1:4]
    store = os.path.join(work, "store")
    shutil.rmtree(store, ignore_errors=True)
    os.environ["OSTREL_TOKEN_STORE"] = store
    for serial in ("E2E00007", "E2E00008"):
        subprocess.run([token_tool, "init", serial, "--label", serial, "--pin", "1234"],
                       check=True, stdout=subprocess.DEVNULL)

    module = ctypes.CDLL(os.path.abspath(module_path))
    for name in ("C_Initialize", "C_Finalize", "C_GetSlotList"):
        getattr(module, name).restype = ctypes.c_ulong
    if module.C_Initialize(None) != CKR_OK:
        sys.exit("parent C_Initialize failed")
    if slot_count(module) != (CKR_OK, 2):
        sys.exit("parent sees no tokens")

    for round_number in range(3):
        pid = os.fork()
        if pid == 0:
            child(module)
        _, status = os.waitpid(pid, 0)
        if not os.WIFEXITED(status) or os.WEXITSTATUS(status) != 0:
            sys.exit(f"child {round_number} failed with status {status}")
        if slot_count(module) != (CKR_OK, 2):
            sys.exit(f"parent lost its tokens after child {round_number}")

    if module.C_Finalize(None) != CKR_OK:
        sys.exit("parent C_Finalize failed")
    print("three children initialised modules of their own; the parent carried on")


if __name__ == "__main__":
    main()
