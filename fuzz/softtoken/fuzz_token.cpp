#include "fuzz_token.h"

#include <ftw.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "token/token_admin.h"
#include "token/token_service.h"

namespace softtoken::fuzz {

namespace {

int removeEntry(const char* path, const struct stat*, int, struct FTW*) {
    return std::remove(path);
}

}  // namespace

void require(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "softtoken fuzzer: invariant broken: %s\n", what);
        std::abort();
    }
}

FuzzToken::FuzzToken() {
    const char* temporary = std::getenv("TMPDIR");
    std::string pattern =
        std::string(temporary != nullptr ? temporary : "/tmp") + "/ostrel-fuzz-XXXXXX";
    require(mkdtemp(&pattern[0]) != nullptr, "a temporary folder");
    root_ = pattern;
    certificates_ = root_ + "/certificates";
    require(mkdir(certificates_.c_str(), 0700) == 0, "the certificate folder");
    setenv("OSTREL_TOKEN_STORE", (root_ + "/store").c_str(), 1);
    {
        TokenService admin(root_ + "/store");
        TokenSettings settings;
        settings.serial = kSerial;
        settings.label = "fuzz";
        settings.userPin = kPin;
        settings.retries = 1000;
        settings.capacity = 4095;
        require(createToken(admin, settings) == 0, "the token");
        admin.shutDown();
    }
    ostrel_createInstance(&instance_);
    require(instance_ != nullptr, "an instance");
    const std::int32_t types[kKeyCount] = {kKeyTypeEcP256, kKeyTypeEcP384, kKeyTypeEcP521,
                                           kKeyTypeRsa2048};
    for (std::size_t i = 0; i < kKeyCount; ++i) {
        keys_[i].keyType = types[i];
        keys_[i].usageFlags = kKeyUsageSign | kKeyUsageDecrypt;
        require(ostrel_generateKeyPair(kSerial, kPin, &keys_[i], instance_) == 0, "a key pair");
    }
}

FuzzToken::~FuzzToken() {
    ostrel_releaseInstance(instance_);
    nftw(root_.c_str(), removeEntry, 8, FTW_DEPTH | FTW_PHYS);
}

}  // namespace softtoken::fuzz
