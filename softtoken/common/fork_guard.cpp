#include "common/fork_guard.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <vector>

namespace softtoken {

namespace {

struct Entry {
    std::mutex* mutex;
    std::function<void()> beforeFork;
};

struct Guarded {
    std::mutex registryMutex;
    std::vector<Entry> entries;
};

// Never destroyed: fork() may come at any time, also while the process exits.
Guarded& guarded() {
    static auto* all = new Guarded;
    return *all;
}

void prepareFork() {
    Guarded& all = guarded();
    all.registryMutex.lock();
    for (Entry& entry : all.entries) {
        entry.mutex->lock();
        if (entry.beforeFork) {
            entry.beforeFork();
        }
    }
}

std::atomic<unsigned> generation{0};

void resumeAfterFork() {
    Guarded& all = guarded();
    for (Entry& entry : all.entries) {
        entry.mutex->unlock();
    }
    all.registryMutex.unlock();
}

void resumeInChild() {
    generation.fetch_add(1);
    resumeAfterFork();
}

}  // namespace

void guardAcrossFork(std::mutex* mutex, std::function<void()> beforeFork) {
    static std::once_flag handlers;
    std::call_once(handlers, [] { pthread_atfork(prepareFork, resumeAfterFork, resumeInChild); });
    Guarded& all = guarded();
    std::lock_guard<std::mutex> lock(all.registryMutex);
    all.entries.push_back(Entry{mutex, std::move(beforeFork)});
}

void stopGuardingAcrossFork(std::mutex* mutex) {
    Guarded& all = guarded();
    std::lock_guard<std::mutex> lock(all.registryMutex);
    all.entries.erase(std::remove_if(all.entries.begin(), all.entries.end(),
                                     [mutex](const Entry& entry) { return entry.mutex == mutex; }),
                      all.entries.end());
}

unsigned forkGeneration() {
    return generation.load(std::memory_order_relaxed);
}

}  // namespace softtoken
