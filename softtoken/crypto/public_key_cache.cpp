#include "crypto/public_key_cache.h"

#include <mutex>
#include <string>
#include <unordered_map>

#include "common/fork_guard.h"
#include "crypto/ec_keys.h"
#include "crypto/rsa_keys.h"

namespace softtoken {
namespace {

// Enough for every key of a few tokens; when it is full it starts over (keys of a token in
// use come back at once).
constexpr std::size_t kMostKeysKept = 256;

struct Cache {
    std::mutex mutex;
    std::unordered_map<std::string, SharedPkey> keys;  // by a kind tag and the key's bytes
};

// Never destroyed: a key may be asked for while the process exits.
Cache& cache() {
    static Cache* const made = [] {
        auto* created = new Cache;
        guardAcrossFork(&created->mutex);
        return created;
    }();
    return *made;
}

template <typename Parse>
SharedPkey cached(char kind, const unsigned char* data, std::size_t size, Parse parse) {
    if (data == nullptr || size == 0) {
        return nullptr;
    }
    std::string tag(1, kind);
    tag.append(reinterpret_cast<const char*>(data), size);
    Cache& all = cache();
    {
        std::lock_guard<std::mutex> lock(all.mutex);
        const auto found = all.keys.find(tag);
        if (found != all.keys.end()) {
            return found->second;
        }
    }
    SharedPkey key = share(parse());
    if (key != nullptr) {
        std::lock_guard<std::mutex> lock(all.mutex);
        if (all.keys.size() >= kMostKeysKept) {
            all.keys.clear();
        }
        all.keys.emplace(std::move(tag), key);
    }
    return key;
}

}  // namespace

SharedPkey cachedRsaPublicKey(const unsigned char* data, std::size_t size) {
    return cached('R', data, size, [&] { return rsaPublicKey(data, size); });
}

SharedPkey cachedEcPublicKey(const KeyTypeInfo& type, const unsigned char* data, std::size_t size) {
    // The curve is part of what the bytes mean.
    return cached(static_cast<char>('0' + type.code), data, size,
                  [&] { return ecPublicKey(type, data, size); });
}

}  // namespace softtoken
