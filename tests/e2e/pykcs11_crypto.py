#!/usr/bin/env python3
"""PyKCS11 signs and verifies with token keys whose key files OpenSSL keeps (SHA256-RSA-PKCS,
SHA256-RSA-PKCS-PSS, RSA-PKCS over a DigestInfo, ECDSA-SHA256, ECDSA over a digest): OpenSSL
accepts every signature and the token refuses a changed one. It encrypts on the token with the
public key (RSA-PKCS and RSA-PKCS-OAEP): OpenSSL decrypts the ciphertext with the private key
file, and so does the token. pkcs11-tool of OpenSC 0.23 encrypts with secret keys only, so this
is the client that drives C_Encrypt.

Usage: pykcs11_crypto.py MODULE TOKEN_TOOL WORK_FOLDER
"""
import hashlib
import os
import shutil
import subprocess
import sys

import PyKCS11
from PyKCS11 import (CKA_CLASS, CKA_ID, CKF_RW_SESSION, CKF_SERIAL_SESSION, CKG_MGF1_SHA1,
                     CKG_MGF1_SHA256, CKM_ECDSA, CKM_ECDSA_SHA256, CKM_RSA_PKCS,
                     CKM_RSA_PKCS_OAEP, CKM_SHA256, CKM_SHA256_RSA_PKCS, CKM_SHA256_RSA_PKCS_PSS,
                     CKM_SHA_1, CKO_PRIVATE_KEY, CKO_PUBLIC_KEY)

SHA256_DIGEST_INFO_PREFIX = bytes.fromhex("3031300d060960864801650304020105000420")
PSS_OPTIONS = ["-sigopt", "rsa_padding_mode:pss", "-sigopt", "rsa_pss_saltlen:32",
               "-sigopt", "rsa_mgf1_md:sha256"]

failures = []


def fail(text):
    print(f"FAILED: {text}", file=sys.stderr)
    failures.append(text)


def run(*arguments):
    subprocess.run(arguments, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def openssl_verifies(what, *arguments):
    answer = subprocess.run(["openssl", *arguments], capture_output=True, text=True, check=False)
    verdict = answer.stdout + answer.stderr
    if "Verified OK" not in verdict and "Signature Verified Successfully" not in verdict:
        fail(f"{what}: OpenSSL does not accept the signature: {verdict.strip()}")


def openssl_decrypts(what, key, ciphertext_file, expected, options):
    answer = subprocess.run(["openssl", "pkeyutl", "-decrypt", "-inkey", key, "-in",
                             ciphertext_file, *options], capture_output=True, check=False)
    if answer.stdout != expected:
        fail(f"{what}: OpenSSL decrypts the token's ciphertext to {answer.stdout!r}, "
             f"{answer.stderr.decode(errors='replace').strip()}")


def der_integer(value):
    body = value.lstrip(b"\0") or b"\0"
    if body[0] & 0x80:
        body = b"\0" + body
    return bytes([0x02, len(body)]) + body


def ecdsa_der(signature):
    """r and s of the PKCS #11 form as OpenSSL's DER SEQUENCE."""
    half = len(signature) // 2
    body = der_integer(signature[:half]) + der_integer(signature[half:])
    return bytes([0x30, len(body)]) + body


def read_logs(folder):
    text = ""
    for root, _, files in os.walk(folder):
        for name in files:
            with open(os.path.join(root, name), encoding="utf-8", errors="replace") as log:
                text += log.read()
    return text


def main():
    module_path, token_tool, work = sys.argv[1:4]
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(work)
    os.environ["OSTREL_TOKEN_STORE"] = os.path.join(work, "store")
    # The module's log (errors only, the default level) goes to a folder of this test's own;
    # its maker folder is made here so that the first line is written (compatibility register,
    # entry 5).
    logs = os.path.join(work, "tmp")
    os.makedirs(os.path.join(logs, "Kelvanetics"))
    os.environ["TMPDIR"] = logs

    def path(name):
        return os.path.join(work, name)

    run(token_tool, "init", "E2E00074", "--label", "PyKCS11 token", "--pin", "1234")
    run("openssl", "genrsa", "-out", path("rsa.key"), "2048")
    run("openssl", "ecparam", "-name", "prime256v1", "-genkey", "-noout", "-out", path("ec.key"))
    for name, key_id in (("rsa", "01"), ("ec", "02")):
        run("openssl", "req", "-x509", "-new", "-key", path(f"{name}.key"), "-subj", f"/CN={name}",
            "-days", "30", "-outform", "DER", "-out", path(f"{name}.der"))
        run("openssl", "x509", "-inform", "DER", "-in", path(f"{name}.der"), "-pubkey", "-noout",
            "-out", path(f"{name}.cert.pub"))
        run(token_tool, "import-key", "E2E00074", path(f"{name}.key"), "--pin", "1234",
            "--label", f"{name} key", "--id", key_id)
        run(token_tool, "import-cert", "E2E00074", path(f"{name}.der"), "--label",
            f"{name} cert", "--id", key_id)

    lib = PyKCS11.PyKCS11Lib()
    lib.load(os.path.abspath(module_path))
    slot = lib.getSlotList(tokenPresent=True)[0]
    session = lib.openSession(slot, CKF_SERIAL_SESSION | CKF_RW_SESSION)
    session.login("1234")

    def key(kind, key_id):
        found = session.findObjects([(CKA_CLASS, kind), (CKA_ID, (key_id,))])
        if len(found) != 1:
            sys.exit(f"{len(found)} objects of class {kind} with id {key_id:02x}")
        return found[0]

    rsa_private, rsa_public = key(CKO_PRIVATE_KEY, 1), key(CKO_PUBLIC_KEY, 1)
    ec_private, ec_public = key(CKO_PRIVATE_KEY, 2), key(CKO_PUBLIC_KEY, 2)

    data = os.urandom(2000)
    with open(path("data"), "wb") as out:
        out.write(data)
    digest = hashlib.sha256(data).digest()
    with open(path("data.sha256"), "wb") as out:
        out.write(digest)

    data_file, digest_file = path("data"), path("data.sha256")
    rsa_cert, ec_cert = path("rsa.cert.pub"), path("ec.cert.pub")
    pss = PyKCS11.RSA_PSS_Mechanism(CKM_SHA256_RSA_PKCS_PSS, CKM_SHA256, CKG_MGF1_SHA256, 32)
    # name, mechanism, keys, input, signature's form for OpenSSL, OpenSSL's check of it
    cases = [
        ("SHA256-RSA-PKCS", PyKCS11.Mechanism(CKM_SHA256_RSA_PKCS), rsa_private, rsa_public, data,
         bytes, ["dgst", "-sha256", "-verify", rsa_cert, "-signature", "{sig}", data_file]),
        ("SHA256-RSA-PKCS-PSS", pss, rsa_private, rsa_public, data, bytes,
         ["dgst", "-sha256", *PSS_OPTIONS, "-verify", rsa_cert, "-signature", "{sig}",
          data_file]),
        ("RSA-PKCS", PyKCS11.Mechanism(CKM_RSA_PKCS), rsa_private, rsa_public,
         SHA256_DIGEST_INFO_PREFIX + digest, bytes,
         ["dgst", "-sha256", "-verify", rsa_cert, "-signature", "{sig}", data_file]),
        ("ECDSA-SHA256", PyKCS11.Mechanism(CKM_ECDSA_SHA256), ec_private, ec_public, data,
         ecdsa_der, ["dgst", "-sha256", "-verify", ec_cert, "-signature", "{sig}", data_file]),
        ("ECDSA", PyKCS11.Mechanism(CKM_ECDSA), ec_private, ec_public, digest, ecdsa_der,
         ["pkeyutl", "-verify", "-pubin", "-inkey", ec_cert, "-in", digest_file, "-sigfile",
          "{sig}"]),
    ]
    for name, mechanism, private, public, signed, form, check in cases:
        signature = bytes(session.sign(private, signed, mechanism))
        if name.startswith("ECDSA") and len(signature) != 64:
            fail(f"{name}: a signature of {len(signature)} bytes, not r and s of 32 each")
        signature_file = path(f"{name}.sig")
        with open(signature_file, "wb") as out:
            out.write(form(signature))
        openssl_verifies(name, *[signature_file if part == "{sig}" else part for part in check])
        if not session.verify(public, signed, signature, mechanism):
            fail(f"{name}: the token refuses its own signature")
        changed = bytearray(signature)
        changed[5] ^= 1
        if session.verify(public, signed, bytes(changed), mechanism):
            fail(f"{name}: the token accepts a changed signature")

    plaintext = b"A secret for the token alone."
    oaep = PyKCS11.RSAOAEPMechanism(CKM_SHA_1, CKG_MGF1_SHA1)
    for name, mechanism, options in (
            ("RSA-PKCS", PyKCS11.MechanismRSAPKCS1, ["-pkeyopt", "rsa_padding_mode:pkcs1"]),
            ("RSA-PKCS-OAEP", oaep, ["-pkeyopt", "rsa_padding_mode:oaep"])):
        ciphertexts = [bytes(session.encrypt(rsa_public, plaintext, mechanism)) for _ in range(2)]
        if len(ciphertexts[0]) != 256:
            fail(f"{name}: a ciphertext of {len(ciphertexts[0])} bytes for a 2048-bit key")
        if ciphertexts[0] == ciphertexts[1]:
            fail(f"{name}: two encryptions of the same plaintext are equal (no random padding)")
        ciphertext_file = path(f"{name}.enc")
        with open(ciphertext_file, "wb") as out:
            out.write(ciphertexts[0])
        openssl_decrypts(name, path("rsa.key"), ciphertext_file, plaintext, options)
        decrypted = bytes(session.decrypt(rsa_private, ciphertexts[1], mechanism))
        if decrypted != plaintext:
            fail(f"{name}: the token decrypts its own ciphertext to {decrypted!r}")

    session.logout()
    session.closeSession()
    del lib
    # Each changed signature leaves one line; nothing else is logged.
    logged = [line.split("::=>", 1)[-1] for line in read_logs(logs).splitlines()]
    expected = ["Verify signature failed : 22"] * len(cases)
    if logged != expected:
        fail(f"the module logged {logged}, expected {expected}")
    if failures:
        sys.exit(f"{len(failures)} check(s) failed")
    print("all checks passed")


if __name__ == "__main__":
    main()
