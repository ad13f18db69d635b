// Certificates as DER given to the certificate operations, and as files in a folder.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "device/device_results.h"
#include "parser_targets.h"

namespace softtoken::fuzz {

namespace {

using namespace device_result;

bool contains(const Bytes& haystack, const char* needle) {
    const std::size_t length = std::strlen(needle);
    return std::search(haystack.begin(), haystack.end(), needle, needle + length) != haystack.end();
}

// What the details must look like for any certificate that parses.
void checkDetails(const CertificateDetails& details) {
    const Bytes& key = details.publicKey;
    if (details.keyAlgorithm == "EC" && !key.empty()) {
        require(key[0] == 0x04 && key.size() % 2 == 1,
                "an EC public value is an uncompressed point");
    }
    if (details.keyAlgorithm == "RSA" && !key.empty()) {
        require(key[0] != 0, "an RSA modulus has no leading zero");
    }
    require(details.serialNumberHex.find_first_not_of("-0123456789ABCDEF") == std::string::npos,
            "the serial number is upper-case hexadecimal");
}

// A certificate that parses is stored whole, listed, and deleted again (so the token never
// fills up); one that does not is refused with 25.
void checkImport(const Bytes& der, bool parses, std::uint8_t labelLength, const FuzzToken& token) {
    if (der.size() > kCertificateDerCapacity) {
        return;
    }
    OstrelCertificate record{};
    std::copy(der.begin(), der.end(), record.der);
    record.derLength = static_cast<std::int32_t>(der.size());
    std::memset(record.label, 'L', labelLength % kCertificateLabelCapacity);
    const int imported = ostrel_importCertificate(kSerial, "", &record, token.instance());
    require(imported == (parses ? kOk : kUnparsable), "import answers 0 exactly when it parses");
    if (imported != kOk) {
        return;
    }
    bool listed = false;
    for (const OstrelCertificate& stored : ostrel_getCertificateList(kSerial, token.instance())) {
        if (std::memcmp(stored.certificateReference, record.certificateReference,
                        kObjectReferenceSize) == 0) {
            listed = stored.derLength == record.derLength &&
                     std::equal(der.begin(), der.end(), stored.der);
        }
    }
    require(listed, "an imported certificate is listed with its DER");
    require(
        ostrel_deleteCertificate(kSerial, record.certificateReference, "", token.instance()) == kOk,
        "an imported certificate can be deleted");
}

}  // namespace

void fuzzCertificate(FuzzInput& input, const FuzzToken& token) {
    const std::uint8_t flags = input.byte();
    const Bytes der = input.rest();
    const int length = static_cast<int>(der.size());
    DeviceInstance instance = token.instance();
    CertificateDetails details;
    const int parsed = ostrel_getCertificateDetails(der.data(), length, details, instance);
    const Bytes subject = ostrel_getCertificateSubject(der.data(), length, instance);
    const Bytes issuer = ostrel_getCertificateIssuer(der.data(), length, instance);
    const Bytes serial = ostrel_getCertificateSerialDER(der.data(), length, instance);
    if (der.empty()) {
        require(parsed == kBadArgument && subject.empty() && issuer.empty() && serial.empty(),
                "empty DER is refused");
        return;
    }
    require(parsed == kOk || parsed == kUnparsable, "details answer 0 or 25");
    const bool parses = parsed == kOk;
    require(subject.empty() != parses && issuer.empty() != parses && serial.empty() != parses,
            "the extractors agree with the details");
    if (parses) {
        require(subject[0] == 0x30 && issuer[0] == 0x30, "names are SEQUENCEs");
        require(serial[0] == 0x02, "the serial number is an INTEGER");
        checkDetails(details);
    }
    if ((flags & 1) != 0) {
        checkImport(der, parses, flags, token);
    }
}

void fuzzCertificateFolder(FuzzInput& input, const FuzzToken& token) {
    static const std::vector<std::string> kExtensions = {".cer", ".der", ".pem", ".crt"};
    static const char* const kSpellings[] = {".cer", ".DER", ".pem", ".Crt", ".txt"};
    const std::string& folder = token.certificateFolder();
    const std::size_t count = 1 + input.byte() % 4;
    std::vector<std::pair<std::string, Bytes>> written;
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint8_t spelling = input.byte();
        std::string name = std::to_string(i) + kSpellings[spelling % 5];
        Bytes contents = i + 1 < count ? input.part() : input.rest();
        std::ofstream(folder + "/" + name, std::ios::binary)
            .write(reinterpret_cast<const char*>(contents.data()),
                   static_cast<std::streamsize>(contents.size()));
        written.emplace_back(std::move(name), std::move(contents));
    }
    const FileList found =
        ostrel_getFilesWithExtensionsAndConvertDER(folder, kExtensions, token.instance());
    for (const auto& entry : found) {
        const std::string& name = entry.first;
        const Bytes& der = entry.second;
        auto source = std::find_if(written.begin(), written.end(),
                                   [&](const auto& file) { return file.first == name; });
        require(source != written.end() && name.substr(name.size() - 4) != ".txt",
                "only files with the extensions are read");
        CertificateDetails details;
        require(ostrel_getCertificateDetails(der.data(), static_cast<int>(der.size()), details,
                                             token.instance()) == kOk,
                "what the folder answers parses as a certificate");
        if (!contains(source->second, "-----BEGIN")) {
            require(der == source->second, "a DER file is answered as it is");
        }
    }
    for (const auto& file : written) {
        std::remove((folder + "/" + file.first).c_str());
    }
}

}  // namespace softtoken::fuzz
