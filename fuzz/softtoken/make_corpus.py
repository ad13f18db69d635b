#!/usr/bin/env python3
"""Writes the seed corpus of the software token's parser harness with the openssl program.

Each seed is one input in the harness's layout (fuzz_input.h): a byte that chooses the
operation, then its arguments. Run by hand when the layout changes:
    fuzz/softtoken/make_corpus.py fuzz/softtoken_corpus
"""
import hashlib
import os
import re
import subprocess
import sys
import tempfile

CERTIFICATE, FOLDER, KEY_IMPORT, ECDH, ENCRYPT, VERIFY = range(6)


def openssl(*arguments, data=None):
    return subprocess.run(["openssl", *arguments], input=data, check=True,
                          capture_output=True).stdout


def part(data):
    return len(data).to_bytes(2, "big") + data


def der_integers(der):
    """The two INTEGERs of an ECDSA-Sig-Value SEQUENCE."""
    def length_at(offset):
        first = der[offset]
        if first < 0x80:
            return first, offset + 1
        count = first & 0x7F
        return int.from_bytes(der[offset + 1:offset + 1 + count], "big"), offset + 1 + count
    _, offset = length_at(1)
    values = []
    for _ in range(2):
        length, offset = length_at(offset + 1)
        values.append(int.from_bytes(der[offset:offset + length], "big"))
        offset += length
    return values


class Seeds:
    def __init__(self, folder, work):
        self.folder = folder
        self.work = work

    def path(self, name):
        return os.path.join(self.work, name)

    def write(self, name, operation, body):
        with open(os.path.join(self.folder, name), "wb") as out:
            out.write(bytes([operation]) + body)

    def key(self, name, algorithm, option, compressed=False):
        arguments = ["genpkey", "-algorithm", algorithm, "-pkeyopt", option]
        if compressed:
            arguments += ["-pkeyopt", "point-format:compressed"]
        openssl(*arguments, "-out", self.path(name + ".key"))
        return self.path(name + ".key")

    def certificate(self, name, key, subject, extra=()):
        openssl("req", "-new", "-x509", "-key", key, "-subj", subject, "-days", "30",
                "-outform", "DER", "-out", self.path(name + ".der"), *extra)
        with open(self.path(name + ".der"), "rb") as der:
            return der.read()

    def spki(self, key):
        return openssl("pkey", "-in", key, "-pubout", "-outform", "DER")

    def point(self, key):
        # The uncompressed point is the BIT STRING's content at the end of the SPKI.
        spki = openssl("pkey", "-in", key, "-pubout", "-outform", "DER",
                       "-ec_conv_form", "uncompressed")
        size = {91: 65, 120: 97, 158: 133}[len(spki)]
        return spki[-size:]

    def sign(self, key, digest, *options):
        with open(self.path("digest.bin"), "wb") as out:
            out.write(digest)
        return openssl("pkeyutl", "-sign", "-inkey", key, "-in", self.path("digest.bin"),
                       *options)


def make(folder):
    os.makedirs(folder, exist_ok=True)
    with tempfile.TemporaryDirectory() as work:
        seeds = Seeds(folder, work)
        rsa = seeds.key("rsa2048", "RSA", "rsa_keygen_bits:2048")
        rsa1024 = seeds.key("rsa1024", "RSA", "rsa_keygen_bits:1024")
        p256 = seeds.key("p256", "EC", "ec_paramgen_curve:P-256")
        p384 = seeds.key("p384", "EC", "ec_paramgen_curve:P-384", compressed=True)
        p521 = seeds.key("p521", "EC", "ec_paramgen_curve:P-521")

        rsa_cert = seeds.certificate(
            "rsa", rsa, "/C=DE/O=Example, Inc./CN=Alice", [
                "-addext", "keyUsage=critical,digitalSignature,keyEncipherment"])
        p256_cert = seeds.certificate("p256", p256, "/O=Example/CN=Test CA/CN=Bob", [
            "-set_serial", "-12345"])
        p384_cert = seeds.certificate("p384", p384, "/CN=Compressed \u00e9", [
            "-addext", "keyUsage=keyAgreement,keyCertSign,cRLSign"])
        seeds.write("certificate-rsa", CERTIFICATE, b"\x01" + rsa_cert)
        seeds.write("certificate-p256", CERTIFICATE, b"\x03" + p256_cert)
        seeds.write("certificate-p384-compressed", CERTIFICATE, b"\x00" + p384_cert)

        pem = openssl("x509", "-inform", "DER", "-in", seeds.path("rsa.der"))
        seeds.write("folder-pem-der-text", FOLDER, b"\x03" + b"\x02" + part(pem) + b"\x01" +
                    part(p256_cert) + b"\x04" + part(b"not a certificate\n") + b"\x03" +
                    b"-----BEGIN CERTIFICATE-----\nMIIB\n-----END CERTIFICATE-----\n")
        seeds.write("folder-one-der", FOLDER, b"\x00\x00" + p384_cert)

        text = openssl("rsa", "-in", rsa1024, "-text", "-noout").decode()
        def component(name):
            match = re.search(name + r":\s*\n((?:\s+[0-9a-f:]+\n)+)", text)
            return bytes.fromhex(re.sub(r"[\s:]", "", match.group(1)))
        n, d, p = component("modulus"), component("privateExponent"), component("prime1")
        seeds.write("key-import-rsa1024", KEY_IMPORT,
                    b"\x00" + part(n) + part(d) + part(p) + part(b"\x01\x02") + b"imported")
        seeds.write("key-import-not-prime", KEY_IMPORT,
                    b"\x00" + part(n) + part(d) + part(p[:-1] + b"\x01") + part(b"") + b"x")

        point256, point384, point521 = seeds.point(p256), seeds.point(p384), seeds.point(p521)
        seeds.write("ecdh-p256-point", ECDH, b"\x00" + point256)
        seeds.write("ecdh-p384-octet-string", ECDH, b"\x01\x04" + bytes([len(point384)]) +
                    point384)
        seeds.write("ecdh-p521-long-octet-string", ECDH, b"\x02\x04\x81" +
                    bytes([len(point521)]) + point521)
        seeds.write("ecdh-p256-spki", ECDH, b"\x00" + seeds.spki(p256))
        seeds.write("ecdh-rsa-key", ECDH, b"\x03" + point256)

        seeds.write("encrypt-rsa2048-pkcs1", ENCRYPT, b"\x02\x00" + part(seeds.spki(rsa)) +
                    b"secret data")
        seeds.write("encrypt-rsa1024-oaep", ENCRYPT, b"\x01\x80" + part(seeds.spki(rsa1024)) +
                    b"x" * 40)

        digest = hashlib.sha256(b"fuzz").digest()
        pkcs1 = seeds.sign(rsa, digest, "-pkeyopt", "digest:sha256")
        pss = seeds.sign(rsa, digest, "-pkeyopt", "digest:sha256", "-pkeyopt",
                         "rsa_padding_mode:pss", "-pkeyopt", "rsa_pss_saltlen:digest")
        seeds.write("verify-rsa-pkcs1", VERIFY, b"\x02\x00" + part(seeds.spki(rsa)) +
                    part(pkcs1) + digest)
        pss1024 = seeds.sign(rsa1024, digest, "-pkeyopt", "digest:sha256", "-pkeyopt",
                             "rsa_padding_mode:pss", "-pkeyopt", "rsa_pss_saltlen:digest")
        seeds.write("verify-bare-modulus-pss", VERIFY, b"\x01\x01" + part(n.lstrip(b"\x00")) +
                    part(pss1024) + digest)
        seeds.write("verify-rsa-pss", VERIFY, b"\x02\x01" + part(seeds.spki(rsa)) + part(pss) +
                    digest)
        r, s = der_integers(seeds.sign(p256, digest))
        fixed = r.to_bytes(32, "big") + s.to_bytes(32, "big")
        seeds.write("verify-p256-point", VERIFY, b"\x05\x00" + part(point256) + part(fixed) +
                    digest)
        seeds.write("verify-p384-spki", VERIFY, b"\x06\x00" + part(seeds.spki(p384)) +
                    part(b"\x00" * 96) + hashlib.sha384(b"fuzz").digest())


if __name__ == "__main__":
    make(sys.argv[1] if len(sys.argv) > 1 else "fuzz/softtoken_corpus")
