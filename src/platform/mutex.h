// Mutexes that say what they guard. Clang's -Wthread-safety, which the tests run, then proves that whoever touches it
// holds them. Other compilers see the mutexes of the standard library.
//
//   GUARDED_BY, PT_GUARDED_BY   a variable, or what it points to, is for those who hold the mutex
//   REQUIRES, EXCLUDES          the caller of a function holds the mutex, or must not
//   ACQUIRE, TRY_ACQUIRE, RELEASE, ASSERT_CAPABILITY   a function takes it, gives it back, or knows it held
//
// It does not look into constructors and destructors, nor at an array that is handed on as a pointer.
#pragma once

#include <mutex>
#include <type_traits>

#ifdef __clang__
#define THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define THREAD_SAFETY(attribute)
#endif

#define CAPABILITY(name) THREAD_SAFETY(capability(name))
#define SCOPED_CAPABILITY THREAD_SAFETY(scoped_lockable)
#define GUARDED_BY(mutex) THREAD_SAFETY(guarded_by(mutex))
#define PT_GUARDED_BY(mutex) THREAD_SAFETY(pt_guarded_by(mutex))
#define ACQUIRED_AFTER(...) THREAD_SAFETY(acquired_after(__VA_ARGS__))
#define REQUIRES(...) THREAD_SAFETY(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) THREAD_SAFETY(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) THREAD_SAFETY(acquire_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) THREAD_SAFETY(try_acquire_capability(__VA_ARGS__))
#define RELEASE(...) THREAD_SAFETY(release_capability(__VA_ARGS__))
#define ASSERT_CAPABILITY(...) THREAD_SAFETY(assert_capability(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS THREAD_SAFETY(no_thread_safety_analysis)

namespace platform {

// Base is a mutex of the standard library; the names are those that its locks expect.
template <class Base>
class CAPABILITY("mutex") BasicMutex {
  public:
    void lock() ACQUIRE() { _mutex.lock(); }
    bool try_lock() TRY_ACQUIRE(true) { return _mutex.try_lock(); }
    void unlock() RELEASE() { _mutex.unlock(); }

    // For a condition variable.
    Base &Native() { return _mutex; }

  private:
    static_assert(std::is_trivially_destructible_v<Base>,
                  "threads may still use one while the process exits");
    Base _mutex;
};

using Mutex = BasicMutex<std::mutex>;
using RecursiveMutex = BasicMutex<std::recursive_mutex>;

// Holds a mutex from here to the end of the block, but between unlock and lock.
template <class MutexType>
class SCOPED_CAPABILITY MutexLock {
  public:
    explicit MutexLock(MutexType &mutex) ACQUIRE(mutex) : _mutex(mutex) { _mutex.lock(); }
    // The caller holds it already.
    MutexLock(MutexType &mutex, std::adopt_lock_t) REQUIRES(mutex) : _mutex(mutex) {}
    ~MutexLock() RELEASE() {
        if (_bHeld)
            _mutex.unlock();
    }
    MutexLock(const MutexLock &) = delete;
    MutexLock &operator=(const MutexLock &) = delete;

    void lock() ACQUIRE() {
        _mutex.lock();
        _bHeld = true;
    }
    void unlock() RELEASE() {
        _bHeld = false;
        _mutex.unlock();
    }

  private:
    MutexType &_mutex;
    bool _bHeld = true;
};

}  // namespace platform
