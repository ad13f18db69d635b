#include "crypto/digests.h"

#include "device/device_records.h"

namespace softtoken {

namespace {

// Fetched once: an implicit fetch on every EVP_DigestInit_ex costs more than hashing a digest
// info. The fetched objects live as long as the process.
struct FetchedDigests {
    const EVP_MD* sha1 = EVP_MD_fetch(nullptr, "SHA1", nullptr);
    const EVP_MD* sha224 = EVP_MD_fetch(nullptr, "SHA224", nullptr);
    const EVP_MD* sha256 = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    const EVP_MD* sha384 = EVP_MD_fetch(nullptr, "SHA384", nullptr);
    const EVP_MD* sha512 = EVP_MD_fetch(nullptr, "SHA512", nullptr);
};

const FetchedDigests& digests() {
    static const FetchedDigests* fetched = new FetchedDigests;
    return *fetched;
}

}  // namespace

const EVP_MD* digestForCode(int code) {
    const FetchedDigests& all = digests();
    switch (code) {
        case kHashSha1Legacy:  // the older name of SHA-1 that key derivation still passes
        case kHashSha1:
            return all.sha1;
        case kHashSha256:
            return all.sha256;
        case kHashSha384:
            return all.sha384;
        case kHashSha512:
            return all.sha512;
        case kHashSha224:
            return all.sha224;
        default:
            return nullptr;
    }
}

const EVP_MD* digestForLength(std::size_t length) {
    const FetchedDigests& all = digests();
    switch (length) {
        case 20:
            return all.sha1;
        case 28:
            return all.sha224;
        case 32:
            return all.sha256;
        case 48:
            return all.sha384;
        case 64:
            return all.sha512;
        default:
            return nullptr;
    }
}

}  // namespace softtoken
