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

}  // namespace softtoken
