// The token shares libcrypto, and with it each thread's error queue, with the application that
// loaded the module. An operation the token refuses must leave that queue as it found it: an
// error left behind makes an OpenSSL application (a TLS client checking SSL_get_error, a tool
// printing ERR_print_errors) report a failure of ours as one of its own.
#include <openssl/err.h>

#include "common/token_error.h"
#include "token_fixture.h"

namespace softtoken::testing {
namespace {

constexpr int kApplicationReason = 42;

class OpensslErrorsTest : public TokenFixture {
protected:
    // What the queue holds after the operation, oldest first, as library:reason pairs.
    static std::vector<std::pair<int, int>> drainQueue() {
        std::vector<std::pair<int, int>> errors;
        while (unsigned long error = ERR_get_error()) {
            errors.emplace_back(ERR_GET_LIB(error), ERR_GET_REASON(error));
        }
        return errors;
    }

    // Runs the refused operation twice: on an empty queue, which must stay empty, and after the
    // application raised an error of its own, which must be all the queue holds afterwards.
    template <typename Operation>
    void expectQueueUntouched(const char* what, Operation operation) {
        SCOPED_TRACE(what);
        ERR_clear_error();
        EXPECT_NE(operation(), kOk);
        EXPECT_TRUE(drainQueue().empty());

        ERR_raise(ERR_LIB_USER, kApplicationReason);
        EXPECT_NE(operation(), kOk);
        const std::vector<std::pair<int, int>> expected = {{ERR_LIB_USER, kApplicationReason}};
        EXPECT_EQ(drainQueue(), expected);
    }
};

TEST_F(OpensslErrorsTest, RefusedOperationsLeaveTheApplicationsErrorQueueAsItWas) {
    const OstrelKeyPair rsa = generate(kKeyTypeRsa2048);
    const OstrelKeyPair ec = generate(kKeyTypeEcP256);
    const Bytes garbage = {0x30, 0x82, 0x01, 0x00, 0x02, 0x01, 0x05, 0xFF, 0x00, 0x13};
    const Bytes digest(32, 0xAB);
    const Bytes badSignature(256, 0x01);

    expectQueueUntouched("certificate details", [&] {
        CertificateDetails details{};
        return ostrel_getCertificateDetails(garbage.data(), static_cast<int>(garbage.size()),
                                            details, instance_);
    });
    expectQueueUntouched("certificate subject", [&] {
        const Bytes subject = ostrel_getCertificateSubject(
            garbage.data(), static_cast<int>(garbage.size()), instance_);
        return subject.empty() ? kUnparsable : kOk;
    });
    expectQueueUntouched("encryption for a key that is not one", [&] {
        unsigned char out[512];
        int length = 0;
        return ostrel_encrypt(static_cast<EncryptionType>(kEncryptionRsa2048),
                              static_cast<PaddingMode>(kPaddingPkcs1), digest.data(),
                              static_cast<int>(digest.size()), out, &length, garbage.data(),
                              static_cast<int>(garbage.size()), instance_);
    });
    expectQueueUntouched("verification of a wrong RSA signature", [&] {
        return ostrel_verifySignatureHash(
            static_cast<unsigned int>(kKeyTypeRsa2048), kSerial, digest.data(),
            static_cast<int>(digest.size()), rsa.publicValue, rsa.publicValueLength,
            badSignature.data(), static_cast<int>(badSignature.size()), instance_, false);
    });
    expectQueueUntouched("decryption of a ciphertext with bad padding", [&] {
        unsigned char* out = nullptr;
        int length = 0;
        return ostrel_decrypt(kSerial, rsa.keyReference, kPin, badSignature.data(),
                              static_cast<int>(badSignature.size()), &out, &length, false,
                              instance_);
    });
    expectQueueUntouched("ECDH with a point off the curve", [&] {
        Bytes point(ec.publicValue, ec.publicValue + ec.publicValueLength);
        point.back() ^= 0x01;
        unsigned char* secret = nullptr;
        int length = 0;
        return ostrel_ecdhDerive(kSerial, ec.keyReference, kPin, point.data(),
                                 static_cast<int>(point.size()), &secret, &length, instance_);
    });
}

}  // namespace
}  // namespace softtoken::testing
