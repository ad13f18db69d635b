// Key pairs and certificates as the module meets them: the lists it fetches for every lookup,
// object ids, capacity, what an empty PIN may and may not do, and the record fields that
// generation, import and renaming store.
#include <openssl/core_names.h>
#include <openssl/rsa.h>

#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>

#include "common/token_error.h"
#include "token_fixture.h"

namespace softtoken::testing {
namespace {

using ObjectStoreTest = TokenFixture;

Bytes bytesOf(const unsigned char* data, std::int32_t length) {
    return Bytes(data, data + std::max<std::int32_t>(length, 0));
}

PkeyPtr ecKey() {
    return PkeyPtr(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
}

// An RSA key with the public exponent given, and the three components importPfx takes.
ImportPFXDetails rsaComponents(unsigned int exponent) {
    PkeyCtxPtr context(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr));
    BignumPtr e(BN_new());
    BN_set_word(e.get(), exponent);
    EVP_PKEY* made = nullptr;
    EVP_PKEY_keygen_init(context.get());
    EVP_PKEY_CTX_set_rsa_keygen_bits(context.get(), 2048);
    EVP_PKEY_CTX_set1_rsa_keygen_pubexp(context.get(), e.get());
    EVP_PKEY_keygen(context.get(), &made);
    PkeyPtr key(made);
    auto component = [&](const char* name) {
        BIGNUM* value = nullptr;
        EVP_PKEY_get_bn_param(key.get(), name, &value);
        Bytes out(static_cast<std::size_t>(BN_num_bytes(value)));
        BN_bn2bin(value, out.data());
        BN_free(value);
        return out;
    };
    ImportPFXDetails details;
    details.modulus = component(OSSL_PKEY_PARAM_RSA_N);
    details.privateExponent = component(OSSL_PKEY_PARAM_RSA_D);
    details.prime1 = component(OSSL_PKEY_PARAM_RSA_FACTOR1);
    details.keyKind = 2;
    return details;
}

TEST_F(ObjectStoreTest, ListsAreHandedOutWithoutCopiesAndStayValidForTheirThread) {
    createToken("OTHER");
    generate(kKeyTypeEcP256);
    generate(kKeyTypeEcP256);
    generate(kKeyTypeEcP256, 3, "OTHER");
    const std::vector<OstrelKeyPair>* first = &ostrel_getKeyPairList(kSerial, instance_);
    ASSERT_EQ(first->size(), 2u);
    const OstrelKeyPair* firstData = first->data();
    const std::uint32_t firstId = firstData->id;
    // Nothing changed: the very same list comes back, also after a look at another token.
    EXPECT_EQ(&ostrel_getKeyPairList(kSerial, instance_), first);
    EXPECT_EQ(ostrel_getKeyPairList("OTHER", instance_).size(), 1u);
    EXPECT_EQ(&ostrel_getKeyPairList(kSerial, instance_), first);
    EXPECT_EQ(first->data(), firstData);

    // Another thread holds its list while another process adds a key pair: this thread sees
    // the new pair at once, the other thread's list stays as it was until it asks again.
    std::size_t heldBefore = 0;
    std::size_t heldAfterChange = 0;
    std::size_t askedAgain = 0;
    std::uint32_t heldFirstId = 0;
    bool changed = false;
    std::mutex mutex;
    std::condition_variable signal;
    std::thread holder([&] {
        const std::vector<OstrelKeyPair>& held = ostrel_getKeyPairList(kSerial, instance_);
        std::unique_lock<std::mutex> lock(mutex);
        heldBefore = held.size();
        signal.notify_all();
        signal.wait(lock, [&] { return changed; });
        heldAfterChange = held.size();
        heldFirstId = held.front().id;
        askedAgain = ostrel_getKeyPairList(kSerial, instance_).size();
    });
    {
        std::unique_lock<std::mutex> lock(mutex);
        signal.wait(lock, [&] { return heldBefore != 0; });
    }
    ASSERT_EQ(tool({"keygen", kSerial, "--type", "p256", "--pin", kPin}).exitCode, 0);
    EXPECT_EQ(ostrel_getKeyPairList(kSerial, instance_).size(), 3u);
    {
        std::lock_guard<std::mutex> lock(mutex);
        changed = true;
    }
    signal.notify_all();
    holder.join();
    EXPECT_EQ(heldBefore, 2u);
    EXPECT_EQ(heldAfterChange, 2u);
    EXPECT_EQ(heldFirstId, firstId);
    EXPECT_EQ(askedAgain, 3u);

    // Unknown, unplugged and blank devices have empty lists.
    EXPECT_TRUE(ostrel_getKeyPairList("NOSUCH", instance_).empty());
    EXPECT_TRUE(ostrel_getCertificateList(nullptr, instance_).empty());
    ASSERT_EQ(tool({"unplug", "OTHER"}).exitCode, 0);
    EXPECT_TRUE(ostrel_getKeyPairList("OTHER", instance_).empty());
}

TEST_F(ObjectStoreTest, IdsStartAtOneAreSharedByBothKindsAndAreNotReusedAtOnce) {
    PkeyPtr key = ecKey();
    OstrelKeyPair pair = generate(kKeyTypeEcP256);
    OstrelCertificate first = certificateRecord(selfSignedCertificate(key.get(), "one", 1));
    OstrelCertificate second = certificateRecord(selfSignedCertificate(key.get(), "two", 2));
    ASSERT_EQ(ostrel_importCertificate(kSerial, "", &first, instance_), 0);
    ASSERT_EQ(ostrel_importCertificate(kSerial, "", &second, instance_), 0);
    EXPECT_EQ(pair.id, 1u);
    EXPECT_EQ(first.id, 2u);
    EXPECT_EQ(second.id, 3u);
    ASSERT_EQ(ostrel_deleteCertificate(kSerial, second.certificateReference, "", instance_), 0);
    OstrelCertificate third = certificateRecord(selfSignedCertificate(key.get(), "three", 3));
    ASSERT_EQ(ostrel_importCertificate(kSerial, "", &third, instance_), 0);
    EXPECT_EQ(third.id, 4u);  // a handle of the deleted certificate does not name the new one
    const std::vector<OstrelCertificate>& list = ostrel_getCertificateList(kSerial, instance_);
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].id, 2u);
    EXPECT_EQ(list[1].id, 4u);
}

TEST_F(ObjectStoreTest, CapacityCountsKeyPairsAndCertificatesAndAnEmptyPinIsNotAFullToken) {
    createToken("SMALL", kPin, 10, 3);
    PkeyPtr key = ecKey();
    generate(kKeyTypeEcP256, 3, "SMALL");
    OstrelCertificate leaf = certificateRecord(selfSignedCertificate(key.get(), "leaf", 1));
    OstrelCertificate root = certificateRecord(selfSignedCertificate(key.get(), "root", 2));
    ASSERT_EQ(ostrel_importCertificate("SMALL", "", &leaf, instance_), 0);
    ASSERT_EQ(ostrel_importCertificate("SMALL", "", &root, instance_), 0);
    EXPECT_EQ(ostrel_getTokenInfo("SMALL", instance_).freeObjectSpace, 0);

    OstrelCertificate more = certificateRecord(selfSignedCertificate(key.get(), "more", 3));
    EXPECT_EQ(ostrel_importCertificate("SMALL", "", &more, instance_), kStorageFull);
    // A certificate already there is answered as stored, full or not (chains meet their
    // issuers again).
    OstrelCertificate again = certificateRecord(bytesOf(root.der, root.derLength));
    EXPECT_EQ(ostrel_importCertificate("SMALL", "", &again, instance_), 0);
    EXPECT_EQ(again.id, root.id);

    OstrelKeyPair pair{};
    pair.keyType = kKeyTypeEcP256;
    ImportPFXDetails details = rsaComponents(RSA_F4);
    EXPECT_EQ(ostrel_generateKeyPair("SMALL", kPin, &pair, instance_), kStorageFull);
    EXPECT_EQ(ostrel_importPfx("SMALL", kPin, &details, instance_), kStorageFull);
    // Without a PIN the answer is that a PIN is needed: 40 would read as full device memory.
    EXPECT_EQ(ostrel_generateKeyPair("SMALL", "", &pair, instance_), kPinRequired);
    EXPECT_EQ(ostrel_importPfx("SMALL", "", &details, instance_), kPinRequired);
    EXPECT_EQ(ostrel_getTokenInfo("SMALL", instance_).pinRetryCount, 10);
}

TEST_F(ObjectStoreTest, EmptyPinMayStoreCertificatesButChangesNoKeyPair) {
    OstrelKeyPair pair = generate(kKeyTypeEcP256);
    PkeyPtr key = ecKey();
    OstrelCertificate certificate = certificateRecord(selfSignedCertificate(key.get(), "c", 1));
    EXPECT_EQ(ostrel_importCertificate(kSerial, "", &certificate, instance_), 0);
    EXPECT_NE(certificate.id, 0u);

    const unsigned char id[] = {7};
    EXPECT_EQ(
        ostrel_updateKeyPairDetails(kSerial, pair.keyReference, "", "renamed", id, 1, instance_),
        kPinRequired);
    EXPECT_EQ(ostrel_deleteKeyPair(kSerial, pair.keyReference, "", false, instance_), kPinRequired);
    EXPECT_EQ(ostrel_deleteKeyPair(kSerial, pair.keyReference, nullptr, false, instance_),
              kPinRequired);
    ImportPFXDetails details = rsaComponents(RSA_F4);
    EXPECT_EQ(ostrel_importPfx(kSerial, "", &details, instance_), kPinRequired);
    EXPECT_TRUE(details.keyReference.empty());
    const std::vector<OstrelKeyPair>& pairs = ostrel_getKeyPairList(kSerial, instance_);
    ASSERT_EQ(pairs.size(), 1u);
    EXPECT_STREQ(pairs[0].alias, "");
    EXPECT_EQ(ostrel_deleteCertificate(kSerial, certificate.certificateReference, "", instance_),
              0);
    EXPECT_EQ(ostrel_getTokenInfo(kSerial, instance_).pinRetryCount, 10);
}

TEST_F(ObjectStoreTest, RenamingLeavesWhatIsNotGiven) {
    OstrelKeyPair pair{};
    pair.keyType = kKeyTypeEcP384;
    pair.usageFlags = kKeyUsageSign;
    std::strcpy(pair.alias, "original");
    pair.objectId[0] = 0x11;
    pair.objectIdLength = 1;
    ASSERT_EQ(ostrel_generateKeyPair(kSerial, kPin, &pair, instance_), 0);
    auto stored = [&] { return ostrel_getKeyPairList(kSerial, instance_).at(0); };

    const unsigned char id[] = {0xA1, 0xA2};
    ASSERT_EQ(ostrel_updateKeyPairDetails(kSerial, pair.keyReference, kPin, "", id, 2, instance_),
              0);
    EXPECT_STREQ(stored().alias, "original");
    EXPECT_EQ(bytesOf(stored().objectId, stored().objectIdLength), (Bytes{0xA1, 0xA2}));
    ASSERT_EQ(ostrel_updateKeyPairDetails(kSerial, pair.keyReference, kPin, "renamed", nullptr, 5,
                                          instance_),
              0);
    ASSERT_EQ(
        ostrel_updateKeyPairDetails(kSerial, pair.keyReference, kPin, nullptr, id, 0, instance_),
        0);
    EXPECT_STREQ(stored().alias, "renamed");
    EXPECT_EQ(bytesOf(stored().objectId, stored().objectIdLength), (Bytes{0xA1, 0xA2}));
    EXPECT_EQ(stored().usageFlags, kKeyUsageSign);

    const std::string tooLong(kAliasCapacity, 'x');
    EXPECT_EQ(ostrel_updateKeyPairDetails(kSerial, pair.keyReference, kPin, tooLong.c_str(),
                                          nullptr, 0, instance_),
              kBadArgument);
    unsigned char unknown[16] = {};
    EXPECT_EQ(ostrel_updateKeyPairDetails(kSerial, unknown, kPin, "x", nullptr, 0, instance_),
              kObjectNotFound);
    EXPECT_EQ(ostrel_deleteKeyPair(kSerial, pair.keyReference, kPin, false, instance_), 0);
    EXPECT_TRUE(ostrel_getKeyPairList(kSerial, instance_).empty());
    EXPECT_EQ(ostrel_deleteKeyPair(kSerial, pair.keyReference, kPin, false, instance_),
              kObjectNotFound);
}

TEST_F(ObjectStoreTest, GenerationStoresEveryTypeWithTheRecordsLabelIdAndUsage) {
    const struct {
        std::int32_t type;
        std::int32_t publicValueLength;
        std::uint32_t usage;  // asked for; 0 takes the type's default
        std::uint32_t stored;
    } kTypes[] = {
        {kKeyTypeRsa1024, 128, 0, kKeyUsageSign},
        {kKeyTypeRsa2048, 256, kKeyUsageDecrypt, kKeyUsageDecrypt},
        {kKeyTypeRsa3072, 384, 3, 3},
        {kKeyTypeRsa4096, 512, 0, kKeyUsageSign},
        {kKeyTypeEcP256, 65, 0, 3},
        {kKeyTypeEcP384, 97, kKeyUsageSign, kKeyUsageSign},
        {kKeyTypeEcP521, 133, 0, 3},
    };
    for (const auto& entry : kTypes) {
        OstrelKeyPair asked{};
        asked.keyType = entry.type;
        asked.usageFlags = entry.usage;
        std::snprintf(asked.alias, sizeof asked.alias, "key %d", entry.type);
        asked.objectId[0] = static_cast<unsigned char>(entry.type);
        asked.objectIdLength = 1;
        ASSERT_EQ(ostrel_generateKeyPair(kSerial, kPin, &asked, instance_), 0) << entry.type;
        EXPECT_EQ(asked.publicValueLength, entry.publicValueLength) << entry.type;
        EXPECT_EQ(asked.usageFlags, entry.stored) << entry.type;
        EXPECT_STREQ(asked.alias, ("key " + std::to_string(entry.type)).c_str());
        EXPECT_EQ(bytesOf(asked.objectId, asked.objectIdLength),
                  Bytes{static_cast<unsigned char>(entry.type)});
        // The record handed back is the one the list shows, and its public value is a key of
        // the type's size or on its curve.
        const OstrelKeyPair& listed = ostrel_getKeyPairList(kSerial, instance_).back();
        EXPECT_EQ(std::memcmp(&listed, &asked, sizeof listed), 0) << entry.type;
        EXPECT_NE(publicKeyFromRecord(asked), nullptr) << entry.type;
    }
    for (std::int32_t type : {0, 8, -1}) {
        OstrelKeyPair bad{};
        bad.keyType = type;
        EXPECT_EQ(ostrel_generateKeyPair(kSerial, kPin, &bad, instance_), kUnknownAlgorithm);
    }
    OstrelKeyPair badUsage{};
    badUsage.keyType = kKeyTypeEcP256;
    badUsage.usageFlags = 4;
    EXPECT_EQ(ostrel_generateKeyPair(kSerial, kPin, &badUsage, instance_), kBadArgument);
    EXPECT_EQ(ostrel_generateKeyPair(kSerial, kPin, nullptr, instance_), kBadArgument);
}

TEST_F(ObjectStoreTest, ImportedRsaKeyKeepsLabelAndIdAndNeedsExponent65537) {
    ImportPFXDetails details = rsaComponents(RSA_F4);
    details.label = std::string(200, 'L');  // longer than the record holds: cut, not refused
    details.objectId = {0xC0, 0xFF, 0xEE};
    ASSERT_EQ(ostrel_importPfx(kSerial, kPin, &details, instance_), 0);
    ASSERT_EQ(details.keyReference.size(), kObjectReferenceSize);
    const OstrelKeyPair& stored = ostrel_getKeyPairList(kSerial, instance_).at(0);
    EXPECT_TRUE(
        std::equal(details.keyReference.begin(), details.keyReference.end(), stored.keyReference));
    EXPECT_EQ(std::string(stored.alias), std::string(kAliasCapacity - 1, 'L'));
    EXPECT_EQ(bytesOf(stored.objectId, stored.objectIdLength), details.objectId);
    EXPECT_EQ(stored.usageFlags, kKeyUsageSign | kKeyUsageDecrypt);

    ImportPFXDetails three = rsaComponents(3);
    EXPECT_EQ(ostrel_importPfx(kSerial, kPin, &three, instance_), kKeyCannotDoThis);
    ImportPFXDetails empty;
    empty.keyKind = 2;
    EXPECT_EQ(ostrel_importPfx(kSerial, kPin, &empty, instance_), kBadArgument);
    EXPECT_EQ(ostrel_importPfx(kSerial, kPin, nullptr, instance_), kBadArgument);
    EXPECT_EQ(ostrel_getKeyPairList(kSerial, instance_).size(), 1u);
}

}  // namespace
}  // namespace softtoken::testing
