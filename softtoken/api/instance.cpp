#include "api/instance.h"

#include <mutex>

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
    static auto* held = new ServiceHolder;
    return *held;
}

}  // namespace

std::shared_ptr<TokenService> currentService() {
    ServiceHolder& held = holder();
    std::lock_guard<std::mutex> lock(held.mutex);
    if (held.service == nullptr) {
        held.service = std::make_shared<TokenService>(defaultStoreFolder());
    }
    return held.service;
}

DeviceInstance makeInstance() {
    auto* instance = new InstanceRecord;
    ServiceHolder& held = holder();
    std::lock_guard<std::mutex> lock(held.mutex);
    ++held.instances;
    return instance;
}

void releaseInstance(DeviceInstance instance) {
    if (instance == nullptr) return;
    releaseHashContexts(instance);
    delete static_cast<InstanceRecord*>(instance);
    std::shared_ptr<TokenService> closing;
    {
        ServiceHolder& held = holder();
        std::lock_guard<std::mutex> lock(held.mutex);
        if (held.instances > 0 && --held.instances == 0) closing = std::move(held.service);
    }
    // Operations still running elsewhere keep their own reference; the store closes after them.
    if (closing != nullptr) closing->shutDown();
}

int OperationFrame::begin(const char* operation) {
    service = currentService();
    if (int result = service->snapshot(snapshot); result != kOk) return result;
    return service->injectedFault(*snapshot, operation);
}

int OperationFrame::faultOnly(const char* operation) {
    int result = begin(operation);
    return snapshot != nullptr ? result : 0;  // no snapshot: the store failed, not a fault
}

}  // namespace softtoken
