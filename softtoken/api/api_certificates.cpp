// Certificate parsing and the certificate folder reader. They need no token; only an injected
// fault makes them fail.
#include "api/instance.h"
#include "certificates/certificate_files.h"
#include "certificates/certificate_reader.h"

using namespace softtoken;

namespace {

// One of the DER extractors, with the parsing and fault handling they share.
Bytes certificatePart(const char* operation, const unsigned char* der, int derLength,
                      Bytes (*extract)(X509*)) {
    return guardedValue(
        [&] {
            OperationFrame frame;
            if (frame.faultOnly(operation) != kOk || derLength <= 0) {
                return Bytes();
            }
            X509Ptr certificate = parseCertificate(der, static_cast<std::size_t>(derLength));
            return certificate != nullptr ? extract(certificate.get()) : Bytes();
        },
        Bytes());
}

}  // namespace

FileList ostrel_getFilesWithExtensionsAndConvertDER(const std::string& folder,
                                                    const std::vector<std::string>& extensions,
                                                    DeviceInstance) {
    return guardedValue(
        [&] {
            OperationFrame frame;
            if (frame.faultOnly("getFilesWithExtensionsAndConvertDER") != kOk) {
                return FileList();
            }
            return readCertificateFolder(folder, extensions);
        },
        FileList());
}

int ostrel_getCertificateDetails(const unsigned char* der, int derLength,
                                 CertificateDetails& details, DeviceInstance) {
    return guarded([&] {
        OperationFrame frame;
        if (int result = frame.faultOnly("getCertificateDetails"); result != kOk) {
            return result;
        }
        if (der == nullptr || derLength <= 0) {
            return kBadArgument;
        }
        X509Ptr certificate = parseCertificate(der, static_cast<std::size_t>(derLength));
        if (certificate == nullptr || !readCertificateDetails(certificate.get(), details)) {
            return kUnparsable;
        }
        return kOk;
    });
}

Bytes ostrel_getCertificateSubject(const unsigned char* der, int derLength, DeviceInstance) {
    return certificatePart("getCertificateSubject", der, derLength, subjectDer);
}

Bytes ostrel_getCertificateIssuer(const unsigned char* der, int derLength, DeviceInstance) {
    return certificatePart("getCertificateIssuer", der, derLength, issuerDer);
}

Bytes ostrel_getCertificateSerialDER(const unsigned char* der, int derLength, DeviceInstance) {
    return certificatePart("getCertificateSerialDER", der, derLength, serialNumberDer);
}
