#include "common/fork_guard.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <vector>

namespace softtoken {

namespace {

struct Guarded {
    std::mutex registryMutex;
    std::vector<std::mutex*> mutexes;
};

// Never destroyed: fork() may come at any time, also while the process exits.
Guarded& guarded() {
    static auto* all = new Guarded;
    return *all;
}

void prepareFork() {
    Guarded& all = guarded();
    all.registryMutex.lock();
    for (std::mutex* mutex : all.mutexes) {
        mutex->lock();
    }
}

std::atomic<unsigned> generation{0};

void resumeAfterFork() {
    Guarded& all = guarded();
    for (std::mutex* mutex : all.mutexes) {
        mutex->unlock();
    }
    all.registryMutex.unlock();
}

void resumeInChild() {
    generation.fetch_add(1);
    resumeAfterFork();
}

}  // namespace

void guardAcrossFork(std::mutex* mutex) {
    static std::once_flag handlers;
    std::call_once(handlers, [] { pthread_atfork(prepareFork, resumeAfterFork, resumeInChild); });
    Guarded& all = guarded();
    std::lock_guard<std::mutex> lock(all.registryMutex);
    all.mutexes.push_back(mutex);
}

void stopGuardingAcrossFork(std::mutex* mutex) {
    Guarded& all = guarded();
    std::lock_guard<std::mutex> lock(all.registryMutex);
    all.mutexes.erase(std::remove(all.mutexes.begin(), all.mutexes.end(), mutex),
                      all.mutexes.end());
}

unsigned forkGeneration() {
    return generation.load(std::memory_order_relaxed);
}

}  // namespace softtoken
