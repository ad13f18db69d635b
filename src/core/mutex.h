// The module's locks, annotated for Clang's thread-safety analysis (the standard library's are
// not): a mutex, a shared mutex, and the scoped holders that take and give them back.
#pragma once

#include <condition_variable>
#include <mutex>
#include <shared_mutex>

#include "core/thread_annotations.h"

class CAPABILITY("mutex") Mutex {
public:
    void lock() ACQUIRE() { mutex_.lock(); }
    void unlock() RELEASE() { mutex_.unlock(); }
    // For waiting on a condition variable while the lock is held (see MutexLock::wait).
    std::mutex& native() { return mutex_; }

private:
    std::mutex mutex_;
};

class SCOPED_CAPABILITY MutexLock {
public:
    explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : lock_(mutex.native()) {}
    ~MutexLock() RELEASE() {}
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    // Waits on the condition variable, the lock given up while waiting and held again after:
    // for the analysis the lock is held throughout.
    template <typename Predicate>
    void wait(std::condition_variable& condition, Predicate done) {
        condition.wait(lock_, done);
    }
    template <typename Duration, typename Predicate>
    bool waitFor(std::condition_variable& condition, Duration duration, Predicate done) {
        return condition.wait_for(lock_, duration, done);
    }

private:
    std::unique_lock<std::mutex> lock_;
};

class CAPABILITY("shared mutex") SharedMutex {
public:
    void lock() ACQUIRE() { mutex_.lock(); }
    void unlock() RELEASE() { mutex_.unlock(); }
    void lock_shared() ACQUIRE_SHARED() { mutex_.lock_shared(); }
    void unlock_shared() RELEASE_SHARED() { mutex_.unlock_shared(); }

private:
    std::shared_mutex mutex_;
};
