// Mutexes that fork() must not leave locked in the child. A child has only the thread that
// forked; a mutex some other thread held at that moment would stay locked there forever. Each
// registered mutex is taken before fork() and released after it, in parent and child alike.
// None of them may be held while taking another one.
#pragma once

#include <mutex>

namespace softtoken {

void guardAcrossFork(std::mutex* mutex);
void stopGuardingAcrossFork(std::mutex* mutex);

}  // namespace softtoken
