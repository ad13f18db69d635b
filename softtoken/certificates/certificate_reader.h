// What the token reads out of X.509 certificates.
#pragma once

#include "common/secret_bytes.h"
#include "crypto/openssl_types.h"
#include "device/device_records.h"

namespace softtoken {

X509Ptr parseCertificate(const unsigned char* der, std::size_t size);

// Fills every field of CertificateDetails; false when the certificate cannot be parsed.
bool readCertificateDetails(X509* certificate, CertificateDetails& details);

// DER encodings of the subject and issuer names and of the serial number INTEGER.
Bytes subjectDer(X509* certificate);
Bytes issuerDer(X509* certificate);
Bytes serialNumberDer(X509* certificate);

}  // namespace softtoken
