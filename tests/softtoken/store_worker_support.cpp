#include "store_worker_support.h"

#include <fcntl.h>
#include <openssl/x509.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>

namespace softtoken::testing {

JournalWriter::JournalWriter(const char* path, std::string tag)
    : file_(open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)), tag_(std::move(tag)) {}

JournalWriter::~JournalWriter() {
    if (file_ >= 0) {
        close(file_);
    }
}

void JournalWriter::record(const std::string& line) {
    const std::string text = line + "\n";
    if (write(file_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        std::cerr << "store worker " << tag_ << ": journal write failed\n";
        std::_Exit(3);
    }
}

std::vector<unsigned char> selfSignedDer(EVP_PKEY* key, const std::string& commonName,
                                         std::int64_t serial) {
    X509* certificate = X509_new();
    X509_set_version(certificate, 2);
    ASN1_INTEGER_set_int64(X509_get_serialNumber(certificate), serial);
    X509_gmtime_adj(X509_getm_notBefore(certificate), 0);
    X509_gmtime_adj(X509_getm_notAfter(certificate), 86400);
    X509_NAME* name = X509_get_subject_name(certificate);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(commonName.c_str()), -1, -1,
                               0);
    X509_set_issuer_name(certificate, name);
    X509_set_pubkey(certificate, key);
    X509_sign(certificate, key, EVP_sha256());
    std::vector<unsigned char> der(static_cast<std::size_t>(i2d_X509(certificate, nullptr)));
    unsigned char* cursor = der.data();
    i2d_X509(certificate, &cursor);
    X509_free(certificate);
    return der;
}

int runSteps(long operations, const char* readyArgument, const std::function<int()>& step) {
    for (long done = 0; operations == 0 || done < operations; ++done) {
        if (int status = step(); status != 0) {
            return status;
        }
        if (done == 0 && readyArgument != nullptr) {
            const int ready = std::atoi(readyArgument);
            const char byte = 1;
            if (write(ready, &byte, 1) != 1) {
                return 2;
            }
            close(ready);
        }
    }
    return 0;
}

}  // namespace softtoken::testing
