// Mutexes that fork() must not leave locked in the child. A child has only the thread that
// forked; a mutex some other thread held at that moment would stay locked there forever. Each
// registered mutex is taken before fork() and released after it, in parent and child alike.
// None of them may be held while taking another one.
//
// beforeFork, when given, runs in the parent just before fork(), with mutex held: for state
// that must not reach a child at all (see TokenStore).
#pragma once

#include <functional>
#include <mutex>

namespace softtoken {

void guardAcrossFork(std::mutex* mutex, std::function<void()> beforeFork = nullptr);
void stopGuardingAcrossFork(std::mutex* mutex);

// Counts the fork() children this process descends from: a value that differs from one read
// earlier means this is a child of the process that read it. Cheaper than getpid(), which is a
// system call.
unsigned forkGeneration();

}  // namespace softtoken
