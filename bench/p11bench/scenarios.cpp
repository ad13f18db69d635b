#include "p11bench/scenarios.h"

#include <cstring>

namespace {

constexpr std::size_t kMebibyte = 1024 * 1024;
constexpr std::size_t kPart = 64 * 1024;

Bytes filled(std::size_t size, unsigned char value) {
    return Bytes(size, value);
}

CK_MECHANISM mechanism(CK_MECHANISM_TYPE type) {
    return CK_MECHANISM{type, nullptr, 0};
}

void sign(const TokenStack& stack, CK_SESSION_HANDLE session, CK_MECHANISM_TYPE type,
          CK_OBJECT_HANDLE key, Bytes& data) {
    CK_MECHANISM chosen = mechanism(type);
    unsigned char signature[512];
    CK_ULONG length = sizeof signature;
    check("C_SignInit", stack.api().C_SignInit(session, &chosen, key));
    check("C_Sign", stack.api().C_Sign(session, data.data(), static_cast<CK_ULONG>(data.size()),
                                       signature, &length));
}

Operation signing(const TokenStack& stack, int session, CK_MECHANISM_TYPE type,
                  CK_OBJECT_HANDLE key, Bytes data) {
    return [&stack, session, type, key, data]() mutable {
        sign(stack, stack.session(session), type, key, data);
    };
}

// The operation on `threads` threads that share the stack's sessions between them: each thread
// takes the next of its own sessions for every call.
std::vector<Operation> overSessions(
    const TokenStack& stack, int threads,
    std::function<void(const TokenStack&, CK_SESSION_HANDLE)> operation) {
    std::vector<Operation> perThread;
    const int each = TokenStack::kSessions / threads;
    for (int thread = 0; thread < threads; ++thread) {
        perThread.emplace_back(
            [&stack, operation, first = thread * each, each, next = 0]() mutable {
                operation(stack, stack.session(first + next));
                next = (next + 1) % each;
            });
    }
    return perThread;
}

std::vector<Operation> one(Operation operation) {
    return {std::move(operation)};
}

Operation moduleVerify(const TokenStack& stack, Bytes data, Bytes signature) {
    return [&stack, data, signature]() mutable {
        CK_MECHANISM chosen = mechanism(CKM_SHA256_RSA_PKCS);
        const CK_SESSION_HANDLE session = stack.session(0);
        check("C_VerifyInit", stack.api().C_VerifyInit(session, &chosen, stack.rsa2048Public()));
        check("C_Verify",
              stack.api().C_Verify(session, data.data(), static_cast<CK_ULONG>(data.size()),
                                   signature.data(), static_cast<CK_ULONG>(signature.size())));
    };
}

Operation moduleDigest(const TokenStack& stack, Bytes part, std::size_t parts) {
    return [&stack, part, parts]() mutable {
        CK_MECHANISM chosen = mechanism(CKM_SHA256);
        const CK_SESSION_HANDLE session = stack.session(0);
        unsigned char digest[64];
        CK_ULONG length = sizeof digest;
        check("C_DigestInit", stack.api().C_DigestInit(session, &chosen));
        if (parts == 1) {
            check("C_Digest",
                  stack.api().C_Digest(session, part.data(), static_cast<CK_ULONG>(part.size()),
                                       digest, &length));
            return;
        }
        for (std::size_t i = 0; i < parts; ++i) {
            check("C_DigestUpdate", stack.api().C_DigestUpdate(session, part.data(),
                                                               static_cast<CK_ULONG>(part.size())));
        }
        check("C_DigestFinal", stack.api().C_DigestFinal(session, digest, &length));
    };
}

Operation moduleDecrypt(const TokenStack& stack, Bytes ciphertext) {
    return [&stack, ciphertext]() mutable {
        CK_MECHANISM chosen = mechanism(CKM_RSA_PKCS);
        const CK_SESSION_HANDLE session = stack.session(0);
        unsigned char plaintext[512];
        CK_ULONG length = sizeof plaintext;
        check("C_DecryptInit", stack.api().C_DecryptInit(session, &chosen, stack.rsa2048()));
        check("C_Decrypt",
              stack.api().C_Decrypt(session, ciphertext.data(),
                                    static_cast<CK_ULONG>(ciphertext.size()), plaintext, &length));
    };
}

Operation moduleDerive(const TokenStack& stack, Bytes peerPoint) {
    return [&stack, peerPoint]() mutable {
        CK_ECDH1_DERIVE_PARAMS parameters{
            CKD_NULL, 0, nullptr, static_cast<CK_ULONG>(peerPoint.size()), peerPoint.data()};
        CK_MECHANISM chosen{CKM_ECDH1_DERIVE, &parameters, sizeof parameters};
        CK_OBJECT_CLASS secretClass = CKO_SECRET_KEY;
        CK_KEY_TYPE generic = CKK_GENERIC_SECRET;
        CK_ULONG length = 32;
        CK_BBOOL no = CK_FALSE;
        CK_ATTRIBUTE secret[] = {{CKA_CLASS, &secretClass, sizeof secretClass},
                                 {CKA_KEY_TYPE, &generic, sizeof generic},
                                 {CKA_VALUE_LEN, &length, sizeof length},
                                 {CKA_TOKEN, &no, sizeof no}};
        const CK_SESSION_HANDLE session = stack.session(0);
        CK_OBJECT_HANDLE derived = 0;
        check("C_DeriveKey",
              stack.api().C_DeriveKey(session, &chosen, stack.p256(), secret, 4, &derived));
        if (stack.options().destroysDerivedKeys) {
            check("C_DestroyObject", stack.api().C_DestroyObject(session, derived));
        }
    };
}

Operation moduleCall(const TokenStack& stack, const char* name,
                     std::function<CK_RV(const CK_FUNCTION_LIST&, CK_SESSION_HANDLE)> call) {
    return [&stack, name, call] { check(name, call(stack.api(), stack.session(0))); };
}

}  // namespace

std::vector<Scenario> makeScenarios(const ReferenceKeys& keys, bool withThreads) {
    const Bytes message = filled(256, 0x5A);
    const Bytes digest = sha256(message);
    const Bytes small = filled(64, 0x11);
    const Bytes part = filled(kPart, 0x22);
    const Bytes signature = signSha256Rsa(keys.rsa2048.get(), message);
    const Bytes ciphertext = encryptPkcs1(keys.rsa2048.get(), filled(32, 0x33));
    const Bytes peerPoint = ecPublicPoint(keys.p256Peer.get());
    EVP_PKEY* rsa2048 = keys.rsa2048.get();
    EVP_PKEY* rsa3072 = keys.rsa3072.get();
    EVP_PKEY* p256 = keys.p256.get();
    EVP_PKEY* peer = keys.p256Peer.get();

    std::vector<Scenario> scenarios = {
        {"RSA-2048 sign, SHA256-RSA-PKCS", Operation([=] { signSha256Rsa(rsa2048, message); }),
         [=](const TokenStack& s) {
             return one(signing(s, 0, CKM_SHA256_RSA_PKCS, s.rsa2048(), message));
         },
         0.90},
        {"RSA-3072 sign, SHA256-RSA-PKCS", Operation([=] { signSha256Rsa(rsa3072, message); }),
         [=](const TokenStack& s) {
             return one(signing(s, 0, CKM_SHA256_RSA_PKCS, s.rsa3072(), message));
         },
         0.95},
        {"P-256 sign, ECDSA of a digest", Operation([=] { signEcdsaDigest(p256, digest); }),
         [=](const TokenStack& s) { return one(signing(s, 0, CKM_ECDSA, s.p256(), digest)); },
         0.70},
        {"RSA-2048 verify, SHA256-RSA-PKCS",
         Operation([=] { verifySha256Rsa(rsa2048, message, signature); }),
         [=](const TokenStack& s) { return one(moduleVerify(s, message, signature)); }, 0.80},
        {"SHA-256 of 1 MiB in 64 KiB parts",
         Operation([=] { sha256InParts(part, kMebibyte / kPart); }),
         [=](const TokenStack& s) { return one(moduleDigest(s, part, kMebibyte / kPart)); }, 0.95},
        {"SHA-256 of 64 bytes", Operation([=] { sha256(small); }),
         [=](const TokenStack& s) { return one(moduleDigest(s, small, 1)); }, 0.30},
        {"RSA-2048 decrypt, RSA-PKCS", Operation([=] { decryptPkcs1(rsa2048, ciphertext); }),
         [=](const TokenStack& s) { return one(moduleDecrypt(s, ciphertext)); }, std::nullopt},
        {"P-256 ECDH derive", Operation([=] { deriveEcdh(p256, peer); }),
         [=](const TokenStack& s) { return one(moduleDerive(s, peerPoint)); }, std::nullopt},
        {"1 MiB of random", Operation([] {
             Bytes buffer(kMebibyte);
             randomBytes(buffer);
         }),
         [](const TokenStack& s) {
             return one(moduleCall(
                 s, "C_GenerateRandom", [](const CK_FUNCTION_LIST& api, CK_SESSION_HANDLE session) {
                     Bytes buffer(kMebibyte);
                     return api.C_GenerateRandom(session, buffer.data(),
                                                 static_cast<CK_ULONG>(buffer.size()));
                 }));
         },
         std::nullopt},
    };
    if (withThreads) {
        scenarios.push_back({"RSA-2048 sign, 2 threads on 2 sessions",
                             Operation([=] { signSha256Rsa(rsa2048, message); }),
                             [=](const TokenStack& s) {
                                 return std::vector<Operation>{
                                     signing(s, 0, CKM_SHA256_RSA_PKCS, s.rsa2048(), message),
                                     signing(s, 1, CKM_SHA256_RSA_PKCS, s.rsa2048(), message)};
                             },
                             0.85, 2});
        // Many sessions on more threads than cores: what one call costs must not grow with them.
        scenarios.push_back({"P-256 sign, 8 threads on 64 sessions",
                             Operation([=] { signEcdsaDigest(p256, digest); }),
                             [=](const TokenStack& s) {
                                 return overSessions(
                                     s, 8,
                                     [data = Bytes(digest)](const TokenStack& stack,
                                                            CK_SESSION_HANDLE session) mutable {
                                         sign(stack, session, CKM_ECDSA, stack.p256(), data);
                                     });
                             },
                             std::nullopt, 8});
        scenarios.push_back(
            {"C_GetAttributeValue, 8 threads, 64 sessions", std::nullopt,
             [](const TokenStack& s) {
                 return overSessions(s, 8, [](const TokenStack& stack, CK_SESSION_HANDLE session) {
                     unsigned char modulus[512];
                     CK_ATTRIBUTE read{CKA_MODULUS, modulus, sizeof modulus};
                     check("C_GetAttributeValue", stack.api().C_GetAttributeValue(
                                                      session, stack.rsa2048Public(), &read, 1));
                 });
             },
             std::nullopt, 8});
    }
    const auto call = [](const char* name,
                         std::function<CK_RV(const CK_FUNCTION_LIST&, CK_SESSION_HANDLE)> body) {
        return [name, body](const TokenStack& s) { return one(moduleCall(s, name, body)); };
    };
    scenarios.push_back(
        {"Search: every object of the token", std::nullopt,
         [](const TokenStack& s) { return one([&s] { s.module().findAll(s.session(0)); }); },
         std::nullopt});
    scenarios.push_back(
        {"C_GetAttributeValue CKA_MODULUS", std::nullopt,
         [](const TokenStack& s) {
             return one(moduleCall(s, "C_GetAttributeValue",
                                   [&s](const CK_FUNCTION_LIST& api, CK_SESSION_HANDLE session) {
                                       unsigned char modulus[512];
                                       CK_ATTRIBUTE read{CKA_MODULUS, modulus, sizeof modulus};
                                       return api.C_GetAttributeValue(session, s.rsa2048Public(),
                                                                      &read, 1);
                                   }));
         },
         std::nullopt});
    scenarios.push_back({"C_GetSlotList", std::nullopt,
                         call("C_GetSlotList",
                              [](const CK_FUNCTION_LIST& api, CK_SESSION_HANDLE) {
                                  CK_SLOT_ID slots[8];
                                  CK_ULONG count = 8;
                                  return api.C_GetSlotList(CK_TRUE, slots, &count);
                              }),
                         std::nullopt});
    scenarios.push_back({"C_OpenSession + C_CloseSession", std::nullopt,
                         [](const TokenStack& s) {
                             return one(
                                 [&s] { s.module().closeSession(s.module().openSession()); });
                         },
                         std::nullopt});
    scenarios.push_back({"C_GetTokenInfo", std::nullopt,
                         [](const TokenStack& s) {
                             return one([&s] {
                                 CK_TOKEN_INFO info;
                                 check("C_GetTokenInfo",
                                       s.api().C_GetTokenInfo(s.module().slot(), &info));
                             });
                         },
                         std::nullopt});
    scenarios.push_back({"C_GetSessionInfo", std::nullopt,
                         call("C_GetSessionInfo",
                              [](const CK_FUNCTION_LIST& api, CK_SESSION_HANDLE session) {
                                  CK_SESSION_INFO info;
                                  return api.C_GetSessionInfo(session, &info);
                              }),
                         std::nullopt});
    return scenarios;
}
