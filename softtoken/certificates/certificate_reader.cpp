#include "certificates/certificate_reader.h"

#include <openssl/asn1.h>
#include <openssl/objects.h>
#include <openssl/x509v3.h>

#include <climits>
#include <ctime>

#include "crypto/key_codec.h"

namespace softtoken {

namespace {

template <typename T, int (*Encode)(const T*, unsigned char**)>
Bytes encode(const T* value) {
    if (value == nullptr) {
        return {};
    }
    int length = Encode(value, nullptr);
    if (length <= 0) {
        return {};
    }
    Bytes out(static_cast<std::size_t>(length));
    unsigned char* cursor = out.data();
    Encode(value, &cursor);
    return out;
}

// "CN=Alice,O=Example,C=DE": RFC 2253 order (most specific first) and escaping, but UTF-8 text
// left readable instead of escaped byte by byte.
std::string nameText(const X509_NAME* name) {
    BioPtr bio(BIO_new(BIO_s_mem()));
    if (bio == nullptr) {
        return {};
    }
    unsigned long flags = XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB;
    if (X509_NAME_print_ex(bio.get(), name, 0, flags) < 0) {
        return {};
    }
    char* data = nullptr;
    long length = BIO_get_mem_data(bio.get(), &data);
    return length > 0 ? std::string(data, static_cast<std::size_t>(length)) : std::string();
}

// The most specific common name: the last in the DER, the first of the RFC 2253 text, so that
// it is the one the module's "CN=([^,\n\r]+)" finds in nameText's output.
std::string commonName(const X509_NAME* name) {
    int index = -1;
    for (int next = -1; (next = X509_NAME_get_index_by_NID(name, NID_commonName, next)) >= 0;) {
        index = next;
    }
    if (index < 0) {
        return {};
    }
    const ASN1_STRING* value = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, index));
    unsigned char* utf8 = nullptr;
    int length = ASN1_STRING_to_UTF8(&utf8, value);
    if (length < 0) {
        return {};
    }
    std::string text(reinterpret_cast<char*>(utf8), static_cast<std::size_t>(length));
    OPENSSL_free(utf8);
    return text;
}

std::int64_t secondsSinceEpoch(const ASN1_TIME* time) {
    std::tm parts{};
    if (time == nullptr || ASN1_TIME_to_tm(time, &parts) != 1) {
        return 0;
    }
    return static_cast<std::int64_t>(timegm(&parts));
}

std::string serialHex(const ASN1_INTEGER* serial) {
    BignumPtr number(ASN1_INTEGER_to_BN(serial, nullptr));
    if (number == nullptr) {
        return {};
    }
    char* hex = BN_bn2hex(number.get());
    if (hex == nullptr) {
        return {};
    }
    std::string text(hex);
    OPENSSL_free(hex);
    return text;
}

std::string keyAlgorithm(EVP_PKEY* key) {
    if (key == nullptr) {
        return {};
    }
    if (EVP_PKEY_is_a(key, "RSA")) {
        return "RSA";
    }
    if (EVP_PKEY_is_a(key, "EC")) {
        return "EC";
    }
    const char* name = EVP_PKEY_get0_type_name(key);
    return name != nullptr ? name : "";
}

// The key usage bits by their RFC 5280 names, comma-separated; empty without the extension.
std::string keyUsageText(X509* certificate) {
    static const struct {
        std::uint32_t bit;
        const char* name;
    } kUsages[] = {
        {KU_DIGITAL_SIGNATURE, "digitalSignature"},
        {KU_NON_REPUDIATION, "nonRepudiation"},
        {KU_KEY_ENCIPHERMENT, "keyEncipherment"},
        {KU_DATA_ENCIPHERMENT, "dataEncipherment"},
        {KU_KEY_AGREEMENT, "keyAgreement"},
        {KU_KEY_CERT_SIGN, "keyCertSign"},
        {KU_CRL_SIGN, "cRLSign"},
        {KU_ENCIPHER_ONLY, "encipherOnly"},
        {KU_DECIPHER_ONLY, "decipherOnly"},
    };
    if ((X509_get_extension_flags(certificate) & EXFLAG_KUSAGE) == 0) {
        return {};
    }
    std::uint32_t usage = X509_get_key_usage(certificate);
    std::string text;
    for (const auto& entry : kUsages) {
        if ((usage & entry.bit) == 0) {
            continue;
        }
        if (!text.empty()) {
            text += ',';
        }
        text += entry.name;
    }
    return text;
}

// OpenSSL keeps a name's encoding as it came and hands it out again, but its parser also takes
// some encodings that are not DER (a SEQUENCE or SET tagged as primitive, say). Encoding the
// name's entries anew gives DER: a name read from DER gives the same bytes.
bool nameIsDer(const X509_NAME* name) {
    using NamePtr = std::unique_ptr<X509_NAME, OpenSslDeleter<X509_NAME, X509_NAME_free>>;
    NamePtr fresh(X509_NAME_new());
    if (name == nullptr || fresh == nullptr) {
        return false;
    }
    int previousSet = -1;
    for (int i = 0; i < X509_NAME_entry_count(name); ++i) {
        const X509_NAME_ENTRY* entry = X509_NAME_get_entry(name, i);
        const int set = X509_NAME_ENTRY_set(entry);
        // -1 adds the entry to the last RDN (a multi-valued one), 0 starts a new RDN.
        if (X509_NAME_add_entry(fresh.get(), entry, -1, set == previousSet ? -1 : 0) != 1) {
            return false;
        }
        previousSet = set;
    }
    return encode<X509_NAME, i2d_X509_NAME>(name) == encode<X509_NAME, i2d_X509_NAME>(fresh.get());
}

}  // namespace

X509Ptr parseCertificate(const unsigned char* der, std::size_t size) {
    if (der == nullptr || size == 0 || size > INT_MAX) {
        return nullptr;
    }
    const unsigned char* cursor = der;
    X509Ptr certificate(d2i_X509(nullptr, &cursor, static_cast<long>(size)));
    // The bytes are stored and handed out as the certificate: they must be one certificate and
    // nothing after it. The names are handed out as DER (ostrel_getCertificateSubject, ...): a
    // certificate whose names are not is not taken at all.
    if (certificate != nullptr &&
        (cursor != der + size || !nameIsDer(X509_get_subject_name(certificate.get())) ||
         !nameIsDer(X509_get_issuer_name(certificate.get())))) {
        return nullptr;
    }
    return certificate;
}

bool readCertificateDetails(X509* certificate, CertificateDetails& details) {
    if (certificate == nullptr) {
        return false;
    }
    CertificateDetails out;
    out.subjectName = nameText(X509_get_subject_name(certificate));
    out.subjectCommonName = commonName(X509_get_subject_name(certificate));
    out.issuerCommonName = commonName(X509_get_issuer_name(certificate));
    out.issuerName = nameText(X509_get_issuer_name(certificate));
    out.serialNumberHex = serialHex(X509_get0_serialNumber(certificate));
    out.notBefore = secondsSinceEpoch(X509_get0_notBefore(certificate));
    out.notAfter = secondsSinceEpoch(X509_get0_notAfter(certificate));
    EVP_PKEY* key = X509_get0_pubkey(certificate);
    out.keyAlgorithm = keyAlgorithm(key);
    const char* signatureName = OBJ_nid2ln(X509_get_signature_nid(certificate));
    out.signatureAlgorithm = signatureName != nullptr ? signatureName : "";
    out.keyUsage = keyUsageText(certificate);
    if (key != nullptr && !publicValueOf(key, out.publicKey)) {
        out.publicKey.clear();
    }
    details = std::move(out);
    return true;
}

Bytes subjectDer(X509* certificate) {
    return encode<X509_NAME, i2d_X509_NAME>(X509_get_subject_name(certificate));
}

Bytes issuerDer(X509* certificate) {
    return encode<X509_NAME, i2d_X509_NAME>(X509_get_issuer_name(certificate));
}

Bytes serialNumberDer(X509* certificate) {
    return encode<ASN1_INTEGER, i2d_ASN1_INTEGER>(X509_get0_serialNumber(certificate));
}

}  // namespace softtoken
