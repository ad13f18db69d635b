// Hash contexts. A context is a pointer the library hands out; it is looked up in the set of
// live contexts before use, so a null, unknown or finished one is refused instead of followed.
#include <mutex>
#include <unordered_map>

#include "api/instance.h"
#include "common/fork_guard.h"
#include "crypto/digests.h"
#include "crypto/openssl_types.h"

using namespace softtoken;

namespace {

struct HashState {
    MdCtxPtr digest;
    DeviceInstance owner = nullptr;
    bool inUse = false;
};

struct LiveContexts {
    std::mutex mutex;
    std::unordered_map<HashContext, std::unique_ptr<HashState>> states;
};

LiveContexts& live() {
    static LiveContexts* contexts = [] {
        auto* made = new LiveContexts;
        guardAcrossFork(&made->mutex);
        return made;
    }();
    return *contexts;
}

// Marks a live context as in use, so that two threads never share one EVP_MD_CTX and a
// release cannot free it meanwhile; null when it is not live (or busy elsewhere).
HashState* borrow(HashContext context) {
    LiveContexts& all = live();
    std::lock_guard<std::mutex> lock(all.mutex);
    auto found = all.states.find(context);
    if (found == all.states.end() || found->second->inUse) {
        return nullptr;
    }
    found->second->inUse = true;
    return found->second.get();
}

void giveBack(HashState* state) {
    std::lock_guard<std::mutex> lock(live().mutex);
    state->inUse = false;
}

// Removes a context from the live set: it ends here whatever happens next.
std::unique_ptr<HashState> end(HashContext context) {
    LiveContexts& all = live();
    std::lock_guard<std::mutex> lock(all.mutex);
    auto found = all.states.find(context);
    if (found == all.states.end() || found->second->inUse) {
        return nullptr;
    }
    std::unique_ptr<HashState> state = std::move(found->second);
    all.states.erase(found);
    return state;
}

void add(std::unique_ptr<HashState> state) {
    LiveContexts& all = live();
    std::lock_guard<std::mutex> lock(all.mutex);
    HashContext handle = state.get();
    all.states[handle] = std::move(state);
}

}  // namespace

namespace softtoken {

void releaseHashContexts(DeviceInstance instance) {
    LiveContexts& all = live();
    std::lock_guard<std::mutex> lock(all.mutex);
    for (auto it = all.states.begin(); it != all.states.end();) {
        bool release = it->second->owner == instance && !it->second->inUse;
        it = release ? all.states.erase(it) : std::next(it);
    }
}

}  // namespace softtoken

int ostrel_initHash(const char* deviceId, int algorithm, HashContext* context,
                    DeviceInstance instance) {
    return guarded([&] {
        OperationFrame frame;
        if (int result = frame.begin("initHash"); result != kOk) {
            return result;
        }
        if (context == nullptr) {
            return kBadArgument;
        }
        *context = nullptr;
        const DeviceRecord* device = nullptr;
        if (int result = TokenService::findToken(*frame.snapshot, text(deviceId), true, &device);
            result != kOk) {
            return result;
        }
        const EVP_MD* digest = digestForCode(algorithm);
        if (digest == nullptr) {
            return kUnknownAlgorithm;
        }
        auto state = std::make_unique<HashState>();
        state->digest.reset(EVP_MD_CTX_new());
        state->owner = instance;
        if (state->digest == nullptr ||
            EVP_DigestInit_ex(state->digest.get(), digest, nullptr) != 1) {
            return kCryptoFailed;
        }
        *context = state.get();
        add(std::move(state));
        return kOk;
    });
}

int ostrel_updateHash(HashContext context, const unsigned char* data, int length, DeviceInstance) {
    return guarded([&] {
        OperationFrame frame;
        if (int result = frame.faultOnly("updateHash"); result != kOk) {
            return result;
        }
        HashState* state = borrow(context);
        if (state == nullptr) {
            return kBadHashContext;
        }
        int result = kOk;
        if (length < 0 || (data == nullptr && length > 0)) {
            result = kBadArgument;
        } else if (length > 0 && EVP_DigestUpdate(state->digest.get(), data,
                                                  static_cast<std::size_t>(length)) != 1) {
            result = kCryptoFailed;
        }
        giveBack(state);
        return result;
    });
}

int ostrel_finalHash(HashContext context, unsigned char* digest, int* length, DeviceInstance) {
    return guarded([&] {
        // Taken first: the context ends whatever the result, injected faults included.
        std::unique_ptr<HashState> state = end(context);
        OperationFrame frame;
        if (int result = frame.faultOnly("finalHash"); result != kOk) {
            return result;
        }
        if (state == nullptr) {
            return kBadHashContext;
        }
        if (digest == nullptr || length == nullptr) {
            return kBadArgument;
        }
        unsigned char out[EVP_MAX_MD_SIZE];
        unsigned int size = 0;
        if (EVP_DigestFinal_ex(state->digest.get(), out, &size) != 1) {
            return kCryptoFailed;
        }
        std::copy(out, out + size, digest);
        *length = static_cast<int>(size);
        return kOk;
    });
}
