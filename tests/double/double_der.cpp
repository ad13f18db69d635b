// A small X.509 reader, so that tests can put real certificates on a device without scripting
// what the certificate operations answer for each one. It reads only what those operations
// report and gives up on anything unexpected.
#include <array>
#include <cstdio>

#include "double_state.h"

namespace devicedouble::detail {

namespace {

struct Tlv {
    unsigned char tag = 0;
    std::size_t start = 0;    // first byte of the tag
    std::size_t content = 0;  // first byte of the content
    std::size_t end = 0;      // one past the last content byte
};

// Walks the TLVs between two offsets. Only single-byte tags and definite lengths (DER).
class Reader {
public:
    Reader(const Bytes& data, std::size_t begin, std::size_t end)
        : data_(data), position_(begin), end_(end) {}
    explicit Reader(const Bytes& data, const Tlv& inside)
        : Reader(data, inside.content, inside.end) {}

    bool next(Tlv& tlv) {
        if (position_ + 2 > end_)
            return false;
        tlv.start = position_;
        tlv.tag = data_[position_++];
        std::size_t length = data_[position_++];
        if (length & 0x80) {
            std::size_t count = length & 0x7F;
            if (count == 0 || count > 4 || position_ + count > end_)
                return false;
            length = 0;
            for (std::size_t i = 0; i < count; ++i)
                length = (length << 8) | data_[position_++];
        }
        if (length > end_ - position_)
            return false;
        tlv.content = position_;
        tlv.end = position_ + length;
        position_ = tlv.end;
        return true;
    }
    bool next(Tlv& tlv, unsigned char expectedTag) { return next(tlv) && tlv.tag == expectedTag; }
    bool atEnd() const { return position_ == end_; }

private:
    const Bytes& data_;
    std::size_t position_;
    std::size_t end_;
};

Bytes whole(const Bytes& data, const Tlv& tlv) {
    return Bytes(data.begin() + static_cast<std::ptrdiff_t>(tlv.start),
                 data.begin() + static_cast<std::ptrdiff_t>(tlv.end));
}

Bytes contentOf(const Bytes& data, const Tlv& tlv) {
    return Bytes(data.begin() + static_cast<std::ptrdiff_t>(tlv.content),
                 data.begin() + static_cast<std::ptrdiff_t>(tlv.end));
}

std::string oidText(const Bytes& data, const Tlv& tlv) {
    std::string text;
    std::uint64_t value = 0;
    bool first = true;
    for (std::size_t i = tlv.content; i < tlv.end; ++i) {
        value = (value << 7) | (data[i] & 0x7F);
        if (data[i] & 0x80)
            continue;
        if (first) {
            std::uint64_t arc = value < 80 ? value / 40 : 2;
            text = std::to_string(arc) + "." + std::to_string(value - 40 * arc);
            first = false;
        } else {
            text += "." + std::to_string(value);
        }
        value = 0;
    }
    return text;
}

std::string knownName(const std::string& oid) {
    static const std::array<std::pair<const char*, const char*>, 18> kNames = {{
        {"2.5.4.3", "CN"},
        {"2.5.4.5", "serialNumber"},
        {"2.5.4.6", "C"},
        {"2.5.4.7", "L"},
        {"2.5.4.8", "ST"},
        {"2.5.4.10", "O"},
        {"2.5.4.11", "OU"},
        {"1.2.840.113549.1.9.1", "emailAddress"},
        {"1.2.840.113549.1.1.1", "RSA"},
        {"1.2.840.10045.2.1", "EC"},
        {"1.2.840.113549.1.1.5", "sha1WithRSAEncryption"},
        {"1.2.840.113549.1.1.11", "sha256WithRSAEncryption"},
        {"1.2.840.113549.1.1.12", "sha384WithRSAEncryption"},
        {"1.2.840.113549.1.1.13", "sha512WithRSAEncryption"},
        {"1.2.840.113549.1.1.10", "rsassaPss"},
        {"1.2.840.10045.4.3.2", "ecdsa-with-SHA256"},
        {"1.2.840.10045.4.3.3", "ecdsa-with-SHA384"},
        {"1.2.840.10045.4.3.4", "ecdsa-with-SHA512"},
    }};
    for (const auto& entry : kNames) {
        if (oid == entry.first)
            return entry.second;
    }
    return oid;
}

// Name ::= SEQUENCE OF SET OF { type OID, value string }, as "CN=a,O=b" in encoded order.
bool readName(const Bytes& data, const Tlv& name, std::string& text, std::string& commonName) {
    Reader sets(data, name);
    Tlv set;
    while (sets.next(set)) {
        if (set.tag != 0x31)
            return false;
        Reader attributes(data, set);
        Tlv attribute;
        while (attributes.next(attribute)) {
            Reader parts(data, attribute);
            Tlv type;
            Tlv value;
            if (attribute.tag != 0x30 || !parts.next(type, 0x06) || !parts.next(value)) {
                return false;
            }
            std::string key = knownName(oidText(data, type));
            std::string valueText(data.begin() + static_cast<std::ptrdiff_t>(value.content),
                                  data.begin() + static_cast<std::ptrdiff_t>(value.end));
            if (!text.empty())
                text += ",";
            text += key;
            text += '=';
            text += valueText;
            if (key == "CN" && commonName.empty())
                commonName = valueText;
        }
    }
    return sets.atEnd();
}

std::int64_t daysFromCivil(std::int64_t year, std::int64_t month, std::int64_t day) {
    year -= month <= 2 ? 1 : 0;
    const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
    const std::int64_t yearOfEra = year - era * 400;
    const std::int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

// UTCTime YYMMDDHHMMSSZ or GeneralizedTime YYYYMMDDHHMMSSZ, as seconds since 1970.
bool readTime(const Bytes& data, const Tlv& time, std::int64_t& seconds) {
    std::string text(data.begin() + static_cast<std::ptrdiff_t>(time.content),
                     data.begin() + static_cast<std::ptrdiff_t>(time.end));
    std::size_t yearDigits = time.tag == 0x17 ? 2 : 4;
    if ((time.tag != 0x17 && time.tag != 0x18) || text.size() != yearDigits + 11)
        return false;
    for (std::size_t i = 0; i + 1 < text.size(); ++i) {
        if (text[i] < '0' || text[i] > '9')
            return false;
    }
    auto number = [&](std::size_t at, std::size_t digits) {
        return std::stoll(text.substr(at, digits));
    };
    std::int64_t year = number(0, yearDigits);
    if (yearDigits == 2)
        year += year < 50 ? 2000 : 1900;
    std::size_t at = yearDigits;
    std::int64_t days = daysFromCivil(year, number(at, 2), number(at + 2, 2));
    seconds = days * 86400 + number(at + 4, 2) * 3600 + number(at + 6, 2) * 60 + number(at + 8, 2);
    return true;
}

std::string hexText(const Bytes& bytes) {
    std::string text;
    char digits[3];
    for (unsigned char b : bytes) {
        std::snprintf(digits, sizeof digits, "%02X", b);
        text += digits;
    }
    return text;
}

Bytes withoutLeadingZeros(Bytes value) {
    while (value.size() > 1 && value.front() == 0)
        value.erase(value.begin());
    return value;
}

// SubjectPublicKeyInfo: the RSA modulus (no sign byte) or the EC point, as a device stores them.
bool readPublicKey(const Bytes& data, const Tlv& keyInfo, CertificateDetails& details) {
    Reader parts(data, keyInfo);
    Tlv algorithm;
    Tlv algorithmOid;
    Tlv bits;
    if (!parts.next(algorithm, 0x30) || !Reader(data, algorithm).next(algorithmOid, 0x06) ||
        !parts.next(bits, 0x03) || bits.end - bits.content < 2) {
        return false;
    }
    details.keyAlgorithm = knownName(oidText(data, algorithmOid));
    Tlv key{bits.tag, bits.content, bits.content + 1, bits.end};  // skip the unused-bits byte
    if (details.keyAlgorithm != "RSA") {
        details.publicKey = contentOf(data, key);
        return true;
    }
    Tlv sequence;
    Tlv modulus;
    if (!Reader(data, key).next(sequence, 0x30) || !Reader(data, sequence).next(modulus, 0x02)) {
        return false;
    }
    details.publicKey = withoutLeadingZeros(contentOf(data, modulus));
    return true;
}

}  // namespace

bool parseCertificate(const Bytes& der, CertificateInfo& info) {
    Reader top(der, 0, der.size());
    Tlv certificate;
    Tlv tbs;
    if (!top.next(certificate, 0x30) || !top.atEnd() || !Reader(der, certificate).next(tbs, 0x30)) {
        return false;
    }
    Reader fields(der, tbs);
    Tlv field;
    if (!fields.next(field))
        return false;
    if (field.tag == 0xA0 && !fields.next(field))
        return false;  // optional version
    if (field.tag != 0x02)
        return false;
    info.serial = whole(der, field);
    info.details.serialNumberHex = hexText(withoutLeadingZeros(contentOf(der, field)));

    Tlv signature;
    Tlv signatureOid;
    Tlv issuer;
    Tlv validity;
    Tlv subject;
    Tlv keyInfo;
    if (!fields.next(signature, 0x30) || !Reader(der, signature).next(signatureOid, 0x06) ||
        !fields.next(issuer, 0x30) || !fields.next(validity, 0x30) || !fields.next(subject, 0x30) ||
        !fields.next(keyInfo, 0x30)) {
        return false;
    }
    CertificateDetails& details = info.details;
    details.signatureAlgorithm = knownName(oidText(der, signatureOid));
    info.issuer = whole(der, issuer);
    info.subject = whole(der, subject);
    Reader times(der, validity);
    Tlv notBefore;
    Tlv notAfter;
    return readName(der, issuer, details.issuerName, details.issuerCommonName) &&
           readName(der, subject, details.subjectName, details.subjectCommonName) &&
           times.next(notBefore) && times.next(notAfter) &&
           readTime(der, notBefore, details.notBefore) &&
           readTime(der, notAfter, details.notAfter) && readPublicKey(der, keyInfo, details);
}

}  // namespace devicedouble::detail
