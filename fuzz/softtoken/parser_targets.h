// The operations the harness drives, one function per group of parsers. Each takes its
// arguments from the input and checks what the answers must satisfy whatever the input.
#pragma once

#include "fuzz_input.h"
#include "fuzz_token.h"

namespace softtoken::fuzz {

// Certificate DER: the details, subject, issuer and serial extractors, and import.
void fuzzCertificate(FuzzInput& input, const FuzzToken& token);
// Up to four files with the four extensions in the certificate folder.
void fuzzCertificateFolder(FuzzInput& input, const FuzzToken& token);
// RSA components given to ostrel_importPfx.
void fuzzKeyImport(FuzzInput& input, const FuzzToken& token);
// Peer values given to ostrel_ecdhDerive.
void fuzzEcdhPeer(FuzzInput& input, const FuzzToken& token);
// Public keys and data given to ostrel_encrypt.
void fuzzEncryption(FuzzInput& input, const FuzzToken& token);
// Public keys, signatures and data given to ostrel_verifySignatureHash.
void fuzzVerification(FuzzInput& input, const FuzzToken& token);

}  // namespace softtoken::fuzz
