// Message digests: hash codes, the kept digest, multi-part digests, and device failures that
// leave the digest running.
#include "crypto_fixture.h"

namespace {

using DigestTest = CryptoTest;

TEST_F(DigestTest, EachMechanismHashesWithItsCode) {
    const std::pair<CK_MECHANISM_TYPE, std::int64_t> table[] = {
        {CKM_SHA_1, 2}, {CKM_SHA256, 3}, {CKM_SHA384, 4}, {CKM_SHA512, 5}, {CKM_SHA224, 6}};
    for (const auto& [type, code] : table) {
        CK_MECHANISM digesting = mechanism(type);
        ASSERT_EQ(C_DigestInit(session, &digesting), CKR_OK);
        const dd::Call init = onlyCall("initHash");
        EXPECT_EQ(init.numbers, std::vector<std::int64_t>{code}) << type;
        EXPECT_EQ(init.deviceId, "SER1");
        EXPECT_EQ(context(session).hashContext, init.context);
        forget();
    }
    CK_MECHANISM md5 = mechanism(CKM_MD5);
    expectAnswer(C_DigestInit(session, &md5), CKR_MECHANISM_INVALID,
                 refused("C_DigestInit", "C_DigestInit mechanism not supported"));
    expectAnswer(C_DigestInit(session, nullptr), CKR_ARGUMENTS_BAD,
                 refused("C_DigestInit", "C_DigestInit mechanism pointer in NULL"));
    EXPECT_EQ(activeOperation(session), 4u);  // the refusals left the running digest alone
}

TEST_F(DigestTest, LengthQueryKeepsTheDigestAndTheNextCallIgnoresItsData) {
    CK_MECHANISM sha256 = mechanism(CKM_SHA256);
    ASSERT_EQ(C_DigestInit(session, &sha256), CKR_OK);
    forget();
    Bytes first = bytes("first message"), second = bytes("other");
    CK_ULONG length = 0;
    expectAnswer(C_Digest(session, first.data(), first.size(), nullptr, &length), CKR_OK,
                 {infoLine("C_Digest"), infoLine("C_Digest Success")});
    EXPECT_EQ(length, 32u);
    EXPECT_EQ(activeOperation(session), 4u);
    EXPECT_EQ(onlyCall("finalHash").numbers, std::vector<std::int64_t>{0});
    Bytes digest(33, 0xEE);
    length = 1;  // overwritten before it could be compared
    ASSERT_EQ(C_Digest(session, second.data(), second.size(), digest.data(), &length), CKR_OK);
    EXPECT_EQ(length, 32u);
    EXPECT_EQ(digest, concat(dd::fakeDigest(3, first), {0xEE}));
    EXPECT_EQ(onlyCall("updateHash").bytes, std::vector<Bytes>{first});
    EXPECT_EQ(activeOperation(session), 0u);
    EXPECT_TRUE(context(session).bufferedData.empty());

    // Parts, then C_Digest with its own last part; the kept digest of C_DigestFinal.
    CK_MECHANISM sha1 = mechanism(CKM_SHA_1);
    digest.resize(20);
    for (bool finishWithDigest : {true, false}) {
        ASSERT_EQ(C_DigestInit(session, &sha1), CKR_OK);
        ASSERT_EQ(C_DigestUpdate(session, first.data(), first.size()), CKR_OK);
        if (finishWithDigest) {
            ASSERT_EQ(C_Digest(session, second.data(), second.size(), digest.data(), &length),
                      CKR_OK);
        } else {
            ASSERT_EQ(C_DigestUpdate(session, second.data(), second.size()), CKR_OK);
            ASSERT_EQ(C_DigestFinal(session, nullptr, &length), CKR_OK);
            forget();
            expectAnswer(C_DigestFinal(session, digest.data(), &length), CKR_OK,
                         {infoLine("C_DigestFinal"), infoLine("C_DigestFinal Success")});
            EXPECT_EQ(dd::callCount("finalHash"), 0u);
        }
        EXPECT_EQ(digest, dd::fakeDigest(2, concat(first, second)));
        EXPECT_EQ(activeOperation(session), 0u);
    }
}

TEST_F(DigestTest, DeviceFailuresLeaveTheDigestRunning) {
    CK_MECHANISM sha256 = mechanism(CKM_SHA256);
    dd::scriptResult("initHash", 27);
    expectAnswer(C_DigestInit(session, &sha256), CKR_FUNCTION_FAILED,
                 refused("C_DigestInit", "Init hash in diges init failed : 27"));
    EXPECT_EQ(activeOperation(session), 0u);
    ASSERT_EQ(C_DigestInit(session, &sha256), CKR_OK);
    forget();
    CK_BYTE data[3] = {1, 2, 3};
    CK_ULONG length = 0;
    dd::scriptResult("updateHash", 26, 2);
    expectAnswer(C_DigestUpdate(session, data, 3), CKR_FUNCTION_FAILED,
                 refused("C_DigestUpdate", "Update hash data in digest update failed : 26"));
    expectAnswer(C_Digest(session, data, 3, nullptr, &length), CKR_FUNCTION_FAILED,
                 refused("C_Digest", "Update hash data in diget failed : 26"));
    dd::scriptResult("finalHash", 51, 2);
    expectAnswer(C_Digest(session, data, 3, nullptr, &length), CKR_FUNCTION_FAILED,
                 refused("C_Digest", "Final hash data in diget failed : 51"));
    expectAnswer(C_DigestFinal(session, nullptr, &length), CKR_FUNCTION_FAILED,
                 refused("C_DigestFinal", "Final hash data in diget failed : 51"));
    expectAnswer(C_Digest(session, data, 0, nullptr, &length), CKR_ARGUMENTS_BAD,
                 refused("C_Digest", "C_Digest: pData is NULL or ulDataLen<=0, ulDataLen=0"));
    EXPECT_EQ(activeOperation(session), 4u);
}

}  // namespace
