#!/usr/bin/env python3
"""Writes the seed corpus of the module's call-sequence harness.

Each seed is one input in the harness's layout (call_input.h, device_world.cpp): a header byte
that chooses the device double's tokens, then calls, each a byte that chooses it (the order of
kCalls in module_calls_fuzzer.cpp) followed by its arguments (arguments.cpp). The certificate
of the creation seed is made with the openssl program. Run by hand when the layout changes:
    fuzz/module/make_corpus.py fuzz/module_corpus
"""
import os
import subprocess
import sys
import tempfile

(SCRIPT, INITIALIZE, FINALIZE, GET_INFO, GET_SLOT_LIST, GET_SLOT_INFO, GET_TOKEN_INFO,
 GET_MECHANISM_LIST, GET_MECHANISM_INFO, WAIT_FOR_SLOT_EVENT, OPEN_SESSION, CLOSE_SESSION,
 CLOSE_ALL_SESSIONS, GET_SESSION_INFO, LOGIN, LOGOUT, SET_PIN, UNSUPPORTED, FIND_INIT, FIND,
 FIND_FINAL, GET_ATTRIBUTES, SET_ATTRIBUTES, GET_OBJECT_SIZE, CREATE_OBJECT, DESTROY_OBJECT,
 GENERATE_KEY_PAIR, DERIVE_KEY, DIGEST_INIT, DIGEST, DIGEST_UPDATE, DIGEST_FINAL, SIGN_INIT, SIGN,
 SIGN_UPDATE, SIGN_FINAL, VERIFY_INIT, VERIFY, VERIFY_UPDATE, VERIFY_FINAL, ENCRYPT_INIT, ENCRYPT,
 DECRYPT_INIT, DECRYPT, RANDOM) = range(45)

# Indexes of the harness's tables.
SHA256, RSA_PKCS, SHA256_RSA_PKCS, ECDSA_SHA256, ECDH1_DERIVE, EC_KEY_PAIR_GEN = 2, 6, 12, 23, 25, 28
CKO_CERTIFICATE, CKO_PRIVATE_KEY, CKO_SECRET_KEY, CKK_RSA, CKK_EC = 0, 2, 3, 4, 5
BITS_2048, LENGTH_32, ZERO = 8, 13, 16
CKA_LABEL, CKA_VALUE, CKA_ID, CKA_CLASS = 3, 4, 12, 0
RSA_PRIVATE, RSA_PUBLIC, EC_PRIVATE, EC_PUBLIC = 0x80, 0x81, 0x82, 0x83  # special handles
FIRST = 0  # the first handle an earlier call answered
ALL_TOKENS = 0x06


def part(data):
    if len(data) < 0xF0:
        return bytes([len(data)]) + data
    return bytes([0xF0 | (len(data) >> 8), len(data) & 0xFF]) + data


def data(payload):
    """Input bytes from the input, stated exactly."""
    return b"\x00" + part(payload)


def earlier_output(index=0):
    return bytes([0x10, index])


def mechanism(index):
    return bytes([index])


def whole_area():
    """A result area with room for any result, stated as large."""
    return b"\x00"


def number(value_index):
    return bytes([0, value_index])


def text(value):
    return b"\x03" + part(value)


def template(*values, extra=b"\x00"):
    """Values of the leading attributes, then the shape byte (no extra attributes)."""
    return b"".join(values) + extra


def login():
    return bytes([LOGIN, FIRST, 0, 0])  # the session, CKU_USER, the user PIN


def open_session():
    return bytes([GET_SLOT_LIST, 1, 1, OPEN_SESSION, FIRST, 0])


def seeds(certificate):
    yield "login-sign", bytes([ALL_TOKENS]) + open_session() + login() + \
        bytes([SIGN_INIT, FIRST]) + mechanism(SHA256_RSA_PKCS) + bytes([RSA_PRIVATE]) + \
        bytes([SIGN, FIRST]) + data(b"message to sign") + whole_area() + \
        bytes([VERIFY_INIT, FIRST]) + mechanism(SHA256_RSA_PKCS) + bytes([RSA_PUBLIC]) + \
        bytes([VERIFY, FIRST]) + data(b"message to sign") + earlier_output() + \
        bytes([SIGN_INIT, FIRST]) + mechanism(ECDSA_SHA256) + bytes([EC_PRIVATE]) + \
        bytes([SIGN_UPDATE, FIRST]) + data(b"first part") + \
        bytes([SIGN_FINAL, FIRST]) + whole_area() + bytes([LOGOUT, FIRST])
    yield "search-attributes", bytes([ALL_TOKENS]) + open_session() + login() + \
        bytes([FIND_INIT, FIRST, 0]) + template(number(CKO_PRIVATE_KEY)) + \
        bytes([FIND, FIRST, 1, 0, FIND_FINAL, FIRST]) + \
        bytes([GET_ATTRIBUTES, FIRST, FIRST, 2, CKA_LABEL, 6, CKA_ID, 6, 21, 8]) + \
        bytes([GET_OBJECT_SIZE, FIRST, FIRST, 0]) + \
        bytes([SET_ATTRIBUTES, FIRST, FIRST, 0]) + template(text(b"renamed")) + \
        bytes([FIND_INIT, FIRST, 1, 0, FIND, FIRST, 1, 0])
    yield "digest", bytes([ALL_TOKENS]) + open_session() + \
        bytes([DIGEST_INIT, FIRST]) + mechanism(SHA256) + \
        bytes([DIGEST, FIRST]) + data(b"abc") + whole_area() + \
        bytes([DIGEST_INIT, FIRST]) + mechanism(SHA256) + \
        bytes([DIGEST_UPDATE, FIRST]) + data(b"a") + bytes([DIGEST_UPDATE, FIRST]) + data(b"bc") + \
        bytes([DIGEST_FINAL, FIRST]) + whole_area()
    yield "encrypt-decrypt", bytes([ALL_TOKENS]) + open_session() + login() + \
        bytes([ENCRYPT_INIT, FIRST]) + mechanism(RSA_PKCS) + bytes([RSA_PUBLIC]) + \
        bytes([ENCRYPT, FIRST]) + data(b"a secret") + whole_area() + \
        bytes([DECRYPT_INIT, FIRST]) + mechanism(RSA_PKCS) + bytes([RSA_PRIVATE]) + \
        bytes([DECRYPT, FIRST]) + earlier_output() + whole_area() + \
        bytes([RANDOM, FIRST, 1])
    ecdh = bytes([0x80 | ECDH1_DERIVE, 0]) + b"\x07" + part(b"") + b"\x00\x00"
    yield "derive", bytes([ALL_TOKENS]) + open_session() + login() + \
        bytes([DERIVE_KEY, FIRST]) + ecdh + bytes([EC_PRIVATE, 1]) + \
        template(number(CKO_SECRET_KEY), number(ZERO), number(LENGTH_32)) + b"\x00" + \
        bytes([GET_ATTRIBUTES, FIRST, FIRST, 0, CKA_VALUE, 7])
    certificate_template = template(number(CKO_CERTIFICATE), number(ZERO), text(certificate),
                                    text(b"seed certificate"), text(b"\x01\x02"))
    key_template = template(number(CKO_PRIVATE_KEY), number(CKK_RSA), text(b"\xC5" * 256),
                            text(b"\x37" * 256), text(b"\xE3" * 128), text(b"\x09"),
                            text(b"imported"))
    yield "create-destroy", bytes([ALL_TOKENS]) + open_session() + login() + \
        bytes([CREATE_OBJECT, FIRST, 0]) + certificate_template + b"\x00" + \
        bytes([GET_ATTRIBUTES, FIRST, FIRST, 1, CKA_VALUE, 8, CKA_LABEL, 7]) + \
        bytes([DESTROY_OBJECT, FIRST, FIRST]) + \
        bytes([CREATE_OBJECT, FIRST, 1]) + key_template + b"\x00" + \
        bytes([DESTROY_OBJECT, FIRST, 1])
    yield "generate-pair", bytes([ALL_TOKENS]) + open_session() + login() + \
        bytes([GENERATE_KEY_PAIR, FIRST]) + mechanism(EC_KEY_PAIR_GEN) + b"\x03" + \
        template(number(BITS_2048), b"\x05\x00") + \
        template(number(CKK_EC), text(b"\x42"), text(b"generated")) + b"\x00\x00"
    # The device fails the PIN check once, then a token goes away under an open session.
    yield "device-failures", bytes([ALL_TOKENS]) + \
        bytes([SCRIPT, 0, 5, 4, 0]) + open_session() + login() + login() + \
        bytes([SCRIPT, 3, 0, GET_SESSION_INFO, FIRST, 0, GET_SLOT_LIST, 1, 1]) + \
        bytes([GET_TOKEN_INFO, 0x80, 0, GET_MECHANISM_LIST, 0x80, 1, WAIT_FOR_SLOT_EVENT, 0]) + \
        bytes([CLOSE_ALL_SESSIONS, 0x80, FINALIZE, 0, INITIALIZE, 1, 0])


def main():
    folder = sys.argv[1] if len(sys.argv) > 1 else "fuzz/module_corpus"
    os.makedirs(folder, exist_ok=True)
    with tempfile.TemporaryDirectory() as work:
        key = os.path.join(work, "key.pem")
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                        "ec_paramgen_curve:P-256", "-nodes", "-subj", "/CN=Seed Signer/O=Seed",
                        "-days", "3650", "-keyout", key, "-outform", "DER",
                        "-out", os.path.join(work, "certificate.der")],
                       check=True, capture_output=True)
        with open(os.path.join(work, "certificate.der"), "rb") as der:
            certificate = der.read()
    for name, seed in seeds(certificate):
        with open(os.path.join(folder, name), "wb") as out:
            out.write(seed)


if __name__ == "__main__":
    main()
