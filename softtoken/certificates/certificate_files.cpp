#include "certificates/certificate_files.h"

#include <dirent.h>
#include <openssl/pem.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <fstream>
#include <iterator>

#include "certificates/certificate_reader.h"
#include "crypto/openssl_types.h"

namespace softtoken {

namespace {

bool endsWithIgnoringCase(const std::string& name, const std::string& suffix) {
    if (suffix.empty() || name.size() < suffix.size()) {
        return false;
    }
    return std::equal(suffix.rbegin(), suffix.rend(), name.rbegin(), [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) ==
               std::tolower(static_cast<unsigned char>(b));
    });
}

bool isFolder(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::vector<std::string> regularFiles(const std::string& folder) {
    std::vector<std::string> names;
    std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(folder.c_str()), closedir);
    if (directory == nullptr) {
        return names;
    }
    while (const dirent* entry = readdir(directory.get())) {
        std::string name = entry->d_name;
        struct stat info {};
        if (stat((folder + "/" + name).c_str(), &info) == 0 && S_ISREG(info.st_mode)) {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace

Bytes certificateToDer(const Bytes& contents) {
    if (contents.empty() || contents.size() > INT_MAX) {
        return {};
    }
    static const std::string kPemStart = "-----BEGIN";
    bool pem = std::search(contents.begin(), contents.end(), kPemStart.begin(), kPemStart.end()) !=
               contents.end();
    if (pem) {
        BioPtr bio(BIO_new_mem_buf(contents.data(), static_cast<int>(contents.size())));
        X509Ptr certificate(bio ? PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr)
                                : nullptr);
        if (certificate == nullptr) {
            return {};
        }
        int length = i2d_X509(certificate.get(), nullptr);
        if (length <= 0) {
            return {};
        }
        Bytes der(static_cast<std::size_t>(length));
        unsigned char* cursor = der.data();
        i2d_X509(certificate.get(), &cursor);
        // OpenSSL hands out the bytes it read: they must be a certificate the token takes as
        // DER does (found by the parser fuzzer: a PEM name tagged as a primitive SEQUENCE).
        return parseCertificate(der.data(), der.size()) != nullptr ? der : Bytes();
    }
    return parseCertificate(contents.data(), contents.size()) != nullptr ? contents : Bytes();
}

bool readWholeFile(const std::string& path, Bytes& contents) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        return false;
    }
    contents.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    return !file.bad();
}

std::vector<std::pair<std::string, Bytes>> readCertificateFolder(
    const std::string& folder, const std::vector<std::string>& extensions) {
    std::string path = folder;
    if (!isFolder(path)) {
        std::replace(path.begin(), path.end(), '\\', '/');
    }
    std::vector<std::pair<std::string, Bytes>> found;
    std::vector<std::string> names = regularFiles(path);
    for (const std::string& extension : extensions) {
        for (const std::string& name : names) {
            if (!endsWithIgnoringCase(name, extension)) {
                continue;
            }
            Bytes contents;
            if (!readWholeFile(path + "/" + name, contents)) {
                continue;
            }
            Bytes der = certificateToDer(contents);
            if (!der.empty()) {
                found.emplace_back(name, std::move(der));
            }
        }
    }
    return found;
}

}  // namespace softtoken
