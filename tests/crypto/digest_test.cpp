// Message digests: hash codes, the kept digest, multi-part digests and device failures that
// leave the digest running.
#include "crypto_fixture.h"

namespace {

using DigestTest = CryptoTest;

TEST_F(DigestTest, EachMechanismHashesWithItsCodeAndOthersAreRefused) {
    const std::pair<CK_MECHANISM_TYPE, std::int64_t> table[] = {
        {CKM_SHA_1, 2}, {CKM_SHA256, 3}, {CKM_SHA384, 4}, {CKM_SHA512, 5}, {CKM_SHA224, 6}};
    for (const auto& [type, code] : table) {
        CK_MECHANISM digestMechanism = mechanism(type);
        ASSERT_EQ(C_DigestInit(session, &digestMechanism), CKR_OK);
        const dd::Call init = onlyCall("initHash");
        EXPECT_EQ(init.numbers, std::vector<std::int64_t>{code}) << type;
        EXPECT_EQ(init.deviceId, "SER1");
        EXPECT_EQ(context(session).hashContext, init.context);
        forget();
    }
    CK_MECHANISM md5 = mechanism(CKM_MD5);
    expectAnswer(C_DigestInit(session, &md5), CKR_MECHANISM_INVALID,
                 {infoLine("C_DigestInit"), errorLine("C_DigestInit mechanism not supported")});
    expectAnswer(C_DigestInit(session, nullptr), CKR_ARGUMENTS_BAD,
                 {infoLine("C_DigestInit"), errorLine("C_DigestInit mechanism pointer in NULL")});
    EXPECT_EQ(activeOperation(session), 4u);  // the refusals left the running digest alone
}

TEST_F(DigestTest, LengthQueryKeepsTheDigestAndTheNextCallIgnoresItsData) {
    CK_MECHANISM sha256 = mechanism(CKM_SHA256);
    ASSERT_EQ(C_DigestInit(session, &sha256), CKR_OK);
    forget();
    Bytes first = bytes("first message");
    CK_ULONG length = 0;
    expectAnswer(C_Digest(session, first.data(), first.size(), nullptr, &length), CKR_OK,
                 {infoLine("C_Digest"), infoLine("C_Digest Success")});
    EXPECT_EQ(length, 32u);
    EXPECT_EQ(activeOperation(session), 4u);
    EXPECT_EQ(onlyCall("updateHash").bytes, std::vector<Bytes>{first});
    EXPECT_EQ(onlyCall("finalHash").numbers, std::vector<std::int64_t>{0});

    Bytes second = bytes("other");
    Bytes digest(64, 0xEE);
    length = 1;  // overwritten before it could be compared
    ASSERT_EQ(C_Digest(session, second.data(), second.size(), digest.data(), &length), CKR_OK);
    EXPECT_EQ(length, 32u);
    EXPECT_EQ(Bytes(digest.begin(), digest.begin() + 32), dd::fakeDigest(3, first));
    EXPECT_EQ(digest[32], 0xEE);
    EXPECT_EQ(dd::callCount("updateHash"), 1u);
    EXPECT_EQ(activeOperation(session), 0u);
    EXPECT_TRUE(context(session).bufferedData.empty());
}

TEST_F(DigestTest, MultiPartDigestFinishesOnceAndHandsOutTheKeptDigest) {
    CK_MECHANISM sha1 = mechanism(CKM_SHA_1);
    ASSERT_EQ(C_DigestInit(session, &sha1), CKR_OK);
    Bytes a = bytes("part one "), b = bytes("part two");
    ASSERT_EQ(C_DigestUpdate(session, a.data(), a.size()), CKR_OK);
    ASSERT_EQ(C_DigestUpdate(session, b.data(), b.size()), CKR_OK);
    CK_ULONG length = 0;
    ASSERT_EQ(C_DigestFinal(session, nullptr, &length), CKR_OK);
    EXPECT_EQ(length, 20u);
    Bytes digest(20);
    forget();
    expectAnswer(C_DigestFinal(session, digest.data(), &length), CKR_OK,
                 {infoLine("C_DigestFinal"), infoLine("C_DigestFinal Success")});
    EXPECT_EQ(digest, dd::fakeDigest(2, concat(a, b)));
    EXPECT_EQ(dd::callCount("finalHash"), 0u);
    EXPECT_EQ(activeOperation(session), 0u);

    // C_Digest may finish a digest begun with C_DigestUpdate, adding its own data.
    ASSERT_EQ(C_DigestInit(session, &sha1), CKR_OK);
    ASSERT_EQ(C_DigestUpdate(session, a.data(), a.size()), CKR_OK);
    ASSERT_EQ(C_Digest(session, b.data(), b.size(), digest.data(), &length), CKR_OK);
    EXPECT_EQ(digest, dd::fakeDigest(2, concat(a, b)));
}

TEST_F(DigestTest, DeviceFailuresAndBadArgumentsLeaveTheDigestRunning) {
    CK_MECHANISM sha256 = mechanism(CKM_SHA256);
    dd::scriptResult("initHash", 27);
    expectAnswer(C_DigestInit(session, &sha256), CKR_FUNCTION_FAILED,
                 {infoLine("C_DigestInit"), errorLine("Init hash in diges init failed : 27")});
    EXPECT_EQ(activeOperation(session), 0u);
    ASSERT_EQ(C_DigestInit(session, &sha256), CKR_OK);
    forget();

    CK_BYTE data[3] = {1, 2, 3};
    CK_ULONG length = 0;
    dd::scriptResult("updateHash", 26, 2);
    expectAnswer(
        C_DigestUpdate(session, data, sizeof data), CKR_FUNCTION_FAILED,
        {infoLine("C_DigestUpdate"), errorLine("Update hash data in digest update failed : 26")});
    expectAnswer(C_Digest(session, data, sizeof data, nullptr, &length), CKR_FUNCTION_FAILED,
                 {infoLine("C_Digest"), errorLine("Update hash data in diget failed : 26")});
    dd::scriptResult("finalHash", 51, 2);
    expectAnswer(C_Digest(session, data, sizeof data, nullptr, &length), CKR_FUNCTION_FAILED,
                 {infoLine("C_Digest"), errorLine("Final hash data in diget failed : 51")});
    expectAnswer(C_DigestFinal(session, nullptr, &length), CKR_FUNCTION_FAILED,
                 {infoLine("C_DigestFinal"), errorLine("Final hash data in diget failed : 51")});

    expectAnswer(
        C_Digest(session, nullptr, 3, nullptr, &length), CKR_ARGUMENTS_BAD,
        {infoLine("C_Digest"), errorLine("C_Digest: pData is NULL or ulDataLen<=0, ulDataLen=3")});
    expectAnswer(
        C_Digest(session, data, 0, nullptr, &length), CKR_ARGUMENTS_BAD,
        {infoLine("C_Digest"), errorLine("C_Digest: pData is NULL or ulDataLen<=0, ulDataLen=0")});
    expectAnswer(C_Digest(session, data, 3, nullptr, nullptr), CKR_ARGUMENTS_BAD,
                 {infoLine("C_Digest"), errorLine("C_Digest: pulDigestLen is NULL")});
    expectAnswer(C_DigestUpdate(session, data, 0), CKR_ARGUMENTS_BAD,
                 {infoLine("C_DigestUpdate"),
                  errorLine("C_DigestUpdate: pPart is NULL or ulPartLen<=0, ulPartLen=0")});
    expectAnswer(C_DigestFinal(session, nullptr, nullptr), CKR_ARGUMENTS_BAD,
                 {infoLine("C_DigestFinal"), errorLine("C_DigestFinal: pulDigestLen is NULL")});
    EXPECT_EQ(activeOperation(session), 4u);
}

}  // namespace
