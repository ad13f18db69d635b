// Certificate parsing on certificates made by `openssl req`, the certificate folder reader, and
// certificate storage on the token.
#include <openssl/core_names.h>
#include <openssl/pem.h>

#include <cstring>
#include <ctime>
#include <regex>

#include "certificates/certificate_files.h"
#include "common/token_error.h"
#include "crypto/ec_keys.h"
#include "crypto/key_types.h"
#include "token_fixture.h"

namespace softtoken::testing {
namespace {

std::string trimmed(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
        text.pop_back();
    }
    return text;
}

// The value after "name=" in the output of `openssl x509 -noout -name`.
std::string x509Field(const std::string& pem, const char* option) {
    ProcessResult result = runProgram({OPENSSL_PROGRAM, "x509", "-noout", option, "-in", pem});
    std::string text = trimmed(result.output);
    return text.substr(text.find('=') + 1);
}

class CertificateTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        folder_ = new TemporaryFolder;
        const std::string dir = folder_->path();
        auto openssl = [](std::vector<std::string> arguments) {
            arguments.insert(arguments.begin(), OPENSSL_PROGRAM);
            ProcessResult result = runProgram(arguments);
            ASSERT_EQ(result.exitCode, 0) << result.output;
        };
        openssl({"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", dir + "/rsa.key",
                 "-out", dir + "/rsa.pem", "-days", "30", "-subj",
                 "/C=DE/O=Example Org/CN=Alice Example", "-addext",
                 "keyUsage=digitalSignature,keyEncipherment"});
        openssl({"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
                 "-keyout", dir + "/ca.key", "-out", dir + "/ca.pem", "-days", "60", "-utf8",
                 "-subj", "/O=Example Org/CN=Jürgen Root CA"});
        openssl({"req", "-new", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-384", "-nodes",
                 "-keyout", dir + "/leaf.key", "-out", dir + "/leaf.csr", "-subj",
                 "/CN=Bob, the leaf/O=Example Org"});
        openssl({"x509", "-req", "-in", dir + "/leaf.csr", "-CA", dir + "/ca.pem", "-CAkey",
                 dir + "/ca.key", "-set_serial", "0x00C0FFEE", "-days", "10", "-out",
                 dir + "/leaf.pem"});
        openssl({"x509", "-in", dir + "/leaf.pem", "-outform", "DER", "-out", dir + "/leaf.der"});
        openssl({"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
                 "-keyout", dir + "/two.key", "-out", dir + "/two.pem", "-subj",
                 "/CN=Outer Name/O=Org/CN=Inner Name", "-multivalue-rdn"});
        openssl({"x509", "-in", dir + "/leaf.pem", "-pubkey", "-noout", "-out", dir + "/leaf.pub"});
    }
    static void TearDownTestSuite() { delete folder_; }

    static std::string path(const char* name) { return folder_->path() + "/" + name; }
    static Bytes der(const char* pemName) { return certificateToDer(readFile(path(pemName))); }

    static CertificateDetails details(const Bytes& certificate) {
        CertificateDetails out;
        EXPECT_EQ(ostrel_getCertificateDetails(certificate.data(),
                                               static_cast<int>(certificate.size()), out, nullptr),
                  0);
        return out;
    }

    static TemporaryFolder* folder_;
};

TemporaryFolder* CertificateTest::folder_ = nullptr;

TEST_F(CertificateTest, SelfSignedRsaCertificateDetails) {
    CertificateDetails rsa = details(der("rsa.pem"));
    EXPECT_EQ(rsa.subjectName, "CN=Alice Example,O=Example Org,C=DE");
    EXPECT_EQ(rsa.issuerName, rsa.subjectName);
    EXPECT_EQ(rsa.subjectCommonName, "Alice Example");
    EXPECT_EQ(rsa.issuerCommonName, "Alice Example");
    EXPECT_EQ(rsa.serialNumberHex, x509Field(path("rsa.pem"), "-serial"));
    EXPECT_EQ(rsa.notAfter - rsa.notBefore, 30 * 86400);
    EXPECT_LE(std::abs(rsa.notBefore - static_cast<std::int64_t>(std::time(nullptr))), 300);
    EXPECT_EQ(rsa.keyAlgorithm, "RSA");
    EXPECT_EQ(rsa.signatureAlgorithm, "sha256WithRSAEncryption");
    EXPECT_EQ(rsa.keyUsage, "digitalSignature,keyEncipherment");
    EXPECT_EQ(toHex(rsa.publicKey), x509Field(path("rsa.pem"), "-modulus"));
}

TEST_F(CertificateTest, IssuedEcCertificateNamesItsIssuer) {
    CertificateDetails leaf = details(der("leaf.pem"));
    // The module takes the common name with this expression; an escaped comma stays inside.
    std::smatch match;
    ASSERT_TRUE(std::regex_search(leaf.issuerName, match, std::regex("CN=([^,\n\r]+)")));
    EXPECT_EQ(match[1], "Jürgen Root CA");
    EXPECT_EQ(leaf.subjectCommonName, "Bob, the leaf");
    EXPECT_EQ(leaf.issuerCommonName, "Jürgen Root CA");
    EXPECT_EQ(leaf.serialNumberHex, "C0FFEE");
    EXPECT_EQ(leaf.keyAlgorithm, "EC");
    EXPECT_TRUE(leaf.keyUsage.empty());
    ASSERT_EQ(leaf.publicKey.size(), 97u);  // P-384, uncompressed
    EXPECT_EQ(leaf.publicKey[0], 0x04);
}

TEST_F(CertificateTest, TextFieldsMakeTheModulesLabelsAndCommonNames) {
    // The module's label of a certificate is detailText2 "_" detailText3.
    CertificateDetails leaf = details(der("leaf.pem"));
    EXPECT_EQ(leaf.subjectName, "O=Example Org,CN=Bob\\, the leaf");
    EXPECT_EQ(leaf.subjectCommonName + "_" + leaf.issuerCommonName, "Bob, the leaf_Jürgen Root CA");
    // With two common names, the second field is the most specific one, the one the module's
    // expression finds first in the subject text.
    CertificateDetails two = details(der("two.pem"));
    EXPECT_EQ(two.subjectName, "CN=Inner Name,O=Org,CN=Outer Name");
    std::smatch match;
    ASSERT_TRUE(std::regex_search(two.subjectName, match, std::regex("CN=([^,\n\r]+)")));
    EXPECT_EQ(match[1], "Inner Name");
    EXPECT_EQ(two.subjectCommonName, "Inner Name");
    EXPECT_EQ(two.issuerCommonName, "Inner Name");

    // The EC public key is the uncompressed point that ends the SubjectPublicKeyInfo.
    Bytes spki = certificateToDer(readFile(path("leaf.pub")));
    if (spki.empty()) {
        BioPtr bio(BIO_new_file(path("leaf.pub").c_str(), "r"));
        PkeyPtr key(PEM_read_bio_PUBKEY(bio.get(), nullptr, nullptr, nullptr));
        ASSERT_NE(key, nullptr);
        spki.resize(static_cast<std::size_t>(i2d_PUBKEY(key.get(), nullptr)));
        unsigned char* cursor = spki.data();
        i2d_PUBKEY(key.get(), &cursor);
    }
    ASSERT_GT(spki.size(), 97u);
    EXPECT_EQ(leaf.publicKey, Bytes(spki.end() - 97, spki.end()));
}

TEST_F(CertificateTest, CompressedPointIsReportedUncompressedAsKeyPairsHoldIt) {
    PkeyPtr key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
    ASSERT_EQ(EVP_PKEY_set_utf8_string_param(key.get(), OSSL_PKEY_PARAM_EC_POINT_CONVERSION_FORMAT,
                                             "compressed"),
              1);
    Bytes certificate = selfSignedCertificate(key.get(), "compressed", 1);
    Bytes compressed(33);
    std::size_t length = 0;
    ASSERT_EQ(EVP_PKEY_get_octet_string_param(key.get(), OSSL_PKEY_PARAM_PUB_KEY, compressed.data(),
                                              compressed.size(), &length),
              1);
    ASSERT_EQ(length, 33u);  // the certificate really carries the compressed form
    ASSERT_NE(
        std::search(certificate.begin(), certificate.end(), compressed.begin(), compressed.end()),
        certificate.end());

    CertificateDetails read = details(certificate);
    ASSERT_EQ(read.publicKey.size(), 65u);
    EXPECT_EQ(read.publicKey[0], 0x04);
    EXPECT_TRUE(std::equal(compressed.begin() + 1, compressed.end(), read.publicKey.begin() + 1));
    // Y is the one on the curve with the parity the compressed form named.
    EXPECT_EQ(read.publicKey[64] & 1, compressed[0] & 1);
    EXPECT_NE(ecPublicKey(*keyTypeByCode(kKeyTypeEcP256), read.publicKey.data(), 65), nullptr);
}

TEST_F(CertificateTest, NameAndSerialEncodingsComeFromTheCertificate) {
    Bytes leaf = der("leaf.pem");
    Bytes ca = der("ca.pem");
    int leafSize = static_cast<int>(leaf.size());
    Bytes subject = ostrel_getCertificateSubject(leaf.data(), leafSize, nullptr);
    Bytes issuer = ostrel_getCertificateIssuer(leaf.data(), leafSize, nullptr);
    ASSERT_FALSE(subject.empty());
    EXPECT_EQ(subject[0], 0x30);
    // Both names are in the DER as they are, and the leaf's issuer is the CA's subject.
    EXPECT_NE(std::search(leaf.begin(), leaf.end(), subject.begin(), subject.end()), leaf.end());
    EXPECT_EQ(issuer,
              ostrel_getCertificateSubject(ca.data(), static_cast<int>(ca.size()), nullptr));
    EXPECT_NE(subject, issuer);
    EXPECT_EQ(ostrel_getCertificateSerialDER(leaf.data(), leafSize, nullptr),
              (Bytes{0x02, 0x04, 0x00, 0xC0, 0xFF, 0xEE}));

    // Found by the parser fuzzer: OpenSSL reads a name tagged as a primitive SEQUENCE and hands
    // its bytes out again. Such a certificate is no DER and is not taken.
    Bytes primitiveIssuer = leaf;
    auto at =
        std::search(primitiveIssuer.begin(), primitiveIssuer.end(), issuer.begin(), issuer.end());
    ASSERT_NE(at, primitiveIssuer.end());
    *at = 0x10;
    CertificateDetails refused;
    EXPECT_EQ(ostrel_getCertificateDetails(primitiveIssuer.data(), leafSize, refused, nullptr),
              kUnparsable);
    EXPECT_TRUE(ostrel_getCertificateIssuer(primitiveIssuer.data(), leafSize, nullptr).empty());

    // Bytes after the certificate would be stored and handed out with it.
    Bytes trailing = leaf;
    trailing.push_back(0);
    EXPECT_EQ(ostrel_getCertificateDetails(trailing.data(), leafSize + 1, refused, nullptr),
              kUnparsable);

    Bytes garbage = {0x30, 0x03, 0x02, 0x01, 0x01};
    CertificateDetails ignored;
    EXPECT_EQ(ostrel_getCertificateDetails(garbage.data(), 5, ignored, nullptr), kUnparsable);
    EXPECT_TRUE(ostrel_getCertificateSubject(garbage.data(), 5, nullptr).empty());
    EXPECT_TRUE(ostrel_getCertificateSerialDER(nullptr, 0, nullptr).empty());
}

TEST_F(CertificateTest, FolderReaderTakesExtensionsInOrderAndSkipsNonCertificates) {
    TemporaryFolder ca;
    writeFile(ca.path() + "/a-root.pem", readFile(path("ca.pem")));
    writeFile(ca.path() + "/b-leaf.DER", readFile(path("leaf.der")));
    writeFile(ca.path() + "/c-self.crt", readFile(path("rsa.pem")));
    writeFile(ca.path() + "/d-two.cer", der("two.pem"));
    writeFile(ca.path() + "/broken.pem", Bytes{'-', '-', '-', '-', '-', 'B', 'E', 'G', 'I', 'N'});
    writeFile(ca.path() + "/notes.txt", readFile(path("rsa.pem")));
    // A PEM certificate whose issuer is tagged as a primitive SEQUENCE: OpenSSL reads it, but
    // it is no DER and is left out like any file that holds no certificate.
    Bytes primitive = der("leaf.pem");
    Bytes issuer =
        ostrel_getCertificateIssuer(primitive.data(), static_cast<int>(primitive.size()), nullptr);
    *std::search(primitive.begin(), primitive.end(), issuer.begin(), issuer.end()) = 0x10;
    std::string base64(4 * ((primitive.size() + 2) / 3) + 1, '\0');
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&base64[0]), primitive.data(),
                    static_cast<int>(primitive.size()));
    base64.pop_back();
    std::string pem = "-----BEGIN CERTIFICATE-----\n";
    for (std::size_t line = 0; line < base64.size(); line += 64) {
        pem += base64.substr(line, 64) + "\n";
    }
    pem += "-----END CERTIFICATE-----\n";
    writeFile(ca.path() + "/primitive.pem", Bytes(pem.begin(), pem.end()));
    FileList files = ostrel_getFilesWithExtensionsAndConvertDER(
        ca.path(), {".cer", ".der", ".pem", ".crt"}, nullptr);
    ASSERT_EQ(files.size(), 4u);
    EXPECT_EQ(files[0].first, "d-two.cer");
    EXPECT_EQ(files[0].second, der("two.pem"));
    EXPECT_EQ(files[1].first, "b-leaf.DER");
    EXPECT_EQ(files[1].second, readFile(path("leaf.der")));
    EXPECT_EQ(files[2].first, "a-root.pem");
    EXPECT_EQ(files[2].second, der("ca.pem"));
    EXPECT_EQ(files[3].first, "c-self.crt");
    EXPECT_EQ(files[3].second, der("rsa.pem"));
    EXPECT_TRUE(
        ostrel_getFilesWithExtensionsAndConvertDER(ca.path() + "/none", {".pem"}, nullptr).empty());
}

using CertificateStorageTest = TokenFixture;

TEST_F(CertificateStorageTest, StoredCertificatesAreListedOnceWithTheirDetails) {
    TemporaryFolder work;
    ProcessResult made =
        runProgram({OPENSSL_PROGRAM, "req", "-x509", "-newkey", "ec", "-pkeyopt",
                    "ec_paramgen_curve:P-256", "-nodes", "-keyout", work.path() + "/k.pem", "-out",
                    work.path() + "/c.pem", "-subj", "/CN=Stored"});
    ASSERT_EQ(made.exitCode, 0) << made.output;
    Bytes der = certificateToDer(readFile(work.path() + "/c.pem"));

    OstrelCertificate record{};
    std::copy(der.begin(), der.end(), record.der);
    record.derLength = static_cast<std::int32_t>(der.size());
    record.objectId[0] = 0x42;
    record.objectIdLength = 1;
    std::strcpy(record.label, "my certificate");
    ASSERT_EQ(ostrel_importCertificate(kSerial, "", &record, instance_), 0);  // no PIN needed
    OstrelCertificate again = record;
    ASSERT_EQ(ostrel_importCertificate(kSerial, "", &again, instance_), 0);
    EXPECT_EQ(again.id, record.id);

    const std::vector<OstrelCertificate>& list = ostrel_getCertificateList(kSerial, instance_);
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(Bytes(list[0].der, list[0].der + list[0].derLength), der);
    EXPECT_STREQ(list[0].label, "my certificate");
    EXPECT_EQ(std::memcmp(list[0].certificateReference, record.certificateReference, 16), 0);
    EXPECT_EQ(ostrel_getTokenInfo(kSerial, instance_).freeObjectSpace, 63);

    OstrelCertificate junk = record;
    junk.der[0] = 0x31;
    EXPECT_EQ(ostrel_importCertificate(kSerial, "", &junk, instance_), kUnparsable);
    EXPECT_EQ(ostrel_deleteCertificate(kSerial, record.certificateReference, "", instance_), 0);
    EXPECT_TRUE(ostrel_getCertificateList(kSerial, instance_).empty());
    EXPECT_EQ(ostrel_deleteCertificate(kSerial, record.certificateReference, "", instance_),
              kObjectNotFound);
}

}  // namespace
}  // namespace softtoken::testing
