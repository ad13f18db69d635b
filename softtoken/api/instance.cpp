#include "api/instance.h"

#include <mutex>

#include "common/fork_guard.h"
#include "store/store_location.h"

namespace softtoken {

namespace {

struct InstanceRecord {
    int marker = 0;
};

struct ServiceHolder {
    std::mutex mutex;
    std::shared_ptr<TokenService> service;
    int instances = 0;
};

// Never destroyed: operations may still run on other threads while the process exits.
ServiceHolder& holder() {
    static ServiceHolder* held = [] {
        auto* made = new ServiceHolder;
        guardAcrossFork(&made->mutex);
        return made;
    }();
    return *held;
}

}  // namespace

std::shared_ptr<TokenService> currentService() {
    ServiceHolder& held = holder();
    {
        std::lock_guard<std::mutex> lock(held.mutex);
        if (held.service != nullptr) {
            return held.service;
        }
    }
    // Made outside the lock: a new service registers its mutexes for fork(), and no guarded
    // mutex may be held while another is taken.
    auto made = std::make_shared<TokenService>(defaultStoreFolder());
    std::lock_guard<std::mutex> lock(held.mutex);
    if (held.service == nullptr) {
        held.service = std::move(made);
    }
    return held.service;
}

std::shared_ptr<TokenService> existingService() {
    ServiceHolder& held = holder();
    std::lock_guard<std::mutex> lock(held.mutex);
    return held.service;
}

DeviceInstance makeInstance() {
    auto* instance = new InstanceRecord;
    std::shared_ptr<TokenService> stale;
    {
        ServiceHolder& held = holder();
        std::lock_guard<std::mutex> lock(held.mutex);
        // A service opened by calls made without an instance may point at another store than
        // the one the environment names now: the first instance starts afresh.
        if (held.instances++ == 0) {
            stale = std::move(held.service);
        }
    }
    if (stale != nullptr) {
        stale->shutDown();
    }
    return instance;
}

void releaseInstance(DeviceInstance instance) {
    if (instance == nullptr) {
        return;
    }
    releaseHashContexts(instance);
    delete static_cast<InstanceRecord*>(instance);
    std::shared_ptr<TokenService> closing;
    {
        ServiceHolder& held = holder();
        std::lock_guard<std::mutex> lock(held.mutex);
        if (held.instances > 0 && --held.instances == 0) {
            closing = std::move(held.service);
        }
    }
    // Operations still running elsewhere keep their own reference; the store closes after them.
    if (closing != nullptr) {
        closing->shutDown();
    }
}

int OperationFrame::begin(const char* operation) {
    service = currentService();
    if (int result = service->snapshot(snapshot); result != kOk) {
        return result;
    }
    return service->injectedFault(*snapshot, operation);
}

int OperationFrame::faultOnly(const char* operation) {
    // Without an open store (no instance yet) there is nothing to consult: these operations
    // must not create a store as a side effect of parsing a certificate.
    service = existingService();
    if (service == nullptr || service->snapshot(snapshot) != kOk) {
        return 0;
    }
    return service->injectedFault(*snapshot, operation);
}

}  // namespace softtoken
