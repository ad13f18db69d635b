#!/usr/bin/env python3
"""A logged-in session of one process falls back to a public state when another process unplugs
its token, and the module forgets the PIN: the next private operation needs a new login. A login
on the unplugged token fails as a device failure, never as a locked or wrong PIN.

Usage: session_demotion.py MODULE TOKEN_TOOL WORK_FOLDER
"""
import ctypes
import os
import shutil
import subprocess
import sys
import time

CKR_OK = 0
CKR_FUNCTION_FAILED = 0x6
CKF_SERIAL_SESSION, CKF_RW_SESSION = 0x4, 0x2
CKU_USER = 1
CKS_RW_PUBLIC_SESSION, CKS_RW_USER_FUNCTIONS = 2, 3


class SessionInfo(ctypes.Structure):
    _fields_ = [("slotID", ctypes.c_ulong), ("state", ctypes.c_ulong),
                ("flags", ctypes.c_ulong), ("ulDeviceError", ctypes.c_ulong)]


def check(what, rv):
    if rv != CKR_OK:
        sys.exit(f"{what} answered 0x{rv:x}")


def read_logs(folder):
    text = ""
    for root, _, files in os.walk(folder):
        for name in files:
            with open(os.path.join(root, name), encoding="utf-8", errors="replace") as log:
                text += log.read()
    return text


def main():
    module_path, token_tool, work = sys.argv[1:4]
    store = os.path.join(work, "store")
    shutil.rmtree(store, ignore_errors=True)
    os.environ["OSTREL_TOKEN_STORE"] = store
    # The module's log (errors only, the default level) goes to a folder of this test's own.
    logs = os.path.join(work, "tmp")
    shutil.rmtree(logs, ignore_errors=True)
    os.makedirs(logs)
    os.environ["TMPDIR"] = logs
    subprocess.run([token_tool, "init", "E2E00006", "--label", "Demoted", "--pin", "1234"],
                   check=True, stdout=subprocess.DEVNULL)

    module = ctypes.CDLL(os.path.abspath(module_path))
    for name in ("C_Initialize", "C_Finalize", "C_GetSlotList", "C_OpenSession",
                 "C_Login", "C_GetSessionInfo", "C_CloseSession"):
        getattr(module, name).restype = ctypes.c_ulong
    check("C_Initialize", module.C_Initialize(None))
    # The log makes one missing folder level per message: two refused calls make both levels,
    # so that the lines this test reads are written.
    module.C_GetInfo.restype = ctypes.c_ulong
    for _ in range(2):
        module.C_GetInfo(None)
    slots = (ctypes.c_ulong * 4)()
    count = ctypes.c_ulong(4)
    check("C_GetSlotList", module.C_GetSlotList(1, slots, ctypes.byref(count)))
    session = ctypes.c_ulong()
    check("C_OpenSession", module.C_OpenSession(ctypes.c_ulong(slots[0]),
                                                ctypes.c_ulong(CKF_SERIAL_SESSION | CKF_RW_SESSION),
                                                None, None, ctypes.byref(session)))
    pin = b"1234"
    check("C_Login", module.C_Login(session, ctypes.c_ulong(CKU_USER), pin, ctypes.c_ulong(len(pin))))

    def state():
        info = SessionInfo()
        check("C_GetSessionInfo", module.C_GetSessionInfo(session, ctypes.byref(info)))
        return info.state

    if state() != CKS_RW_USER_FUNCTIONS:
        sys.exit(f"logged-in session in state {state()}")
    subprocess.run([token_tool, "unplug", "E2E00006"], check=True, stdout=subprocess.DEVNULL)
    deadline = time.monotonic() + 5
    while state() != CKS_RW_PUBLIC_SESSION:
        if time.monotonic() > deadline:
            sys.exit(f"session still in state {state()} after the unplug")
        time.sleep(0.05)
    rv = module.C_Login(session, ctypes.c_ulong(CKU_USER), pin, ctypes.c_ulong(len(pin)))
    if rv != CKR_FUNCTION_FAILED:
        sys.exit(f"C_Login on the unplugged token answered 0x{rv:x}, not CKR_FUNCTION_FAILED")
    log = read_logs(logs)
    if "Token password validation failed : 48" not in log:
        sys.exit("the device failure 48 is not in the log:\n" + log)
    if "retry count" in log:
        sys.exit("a retry count was reported for an unplugged token:\n" + log)
    check("C_CloseSession", module.C_CloseSession(session))
    check("C_Finalize", module.C_Finalize(None))
    print("session demoted from 3 to 2 after the unplug; login then fails as a device failure")


if __name__ == "__main__":
    main()
