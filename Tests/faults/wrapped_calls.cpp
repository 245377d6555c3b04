// SPDX-License-Identifier: Apache-2.0
// The C library's calls as the library under test sees them: the linker leads them here (--wrap), and they may fail, or wait.
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <memory>
#include <new>
#include <system_error>
#include <thread>

#include "injector.h"
#include "waits.h"

using namespace tovix::faults;

namespace {

bool fails(Site site) {
    return injector().strike(site).has_value();
}

struct ThreadStart {
    void* (*routine)(void*);
    void* argument;
};

void* run_counted(void* start) {
    const ThreadStart own = *std::unique_ptr<ThreadStart>(static_cast<ThreadStart*>(start));
    const Counted counted;
    return own.routine(own.argument);
}

}  // namespace

extern "C" void* __real_malloc(std::size_t size);  // NOLINT: the linker's name

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return fails(Site::kNew) ? nullptr : __real_malloc(size != 0 ? size : 1);
}
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
    return operator new(size, tag);
}
void* operator new(std::size_t size) {
    void* const memory = operator new(size, std::nothrow);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
// Where GCC sees through this one, too, it warns that what comes from `new` must not go to free().
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    operator delete(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    operator delete(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    operator delete(memory);
}

// NOLINTBEGIN: these names are the linker's
extern "C" {

void* __wrap_malloc(std::size_t size) {
    if (!fails(Site::kMalloc)) return __real_malloc(size);
    errno = ENOMEM;
    return nullptr;
}

void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size) {
    if (!fails(Site::kCalloc)) return __real_calloc(count, size);
    errno = ENOMEM;
    return nullptr;
}

int __real_posix_memalign(void** memory, std::size_t alignment, std::size_t size);
int __wrap_posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
    return fails(Site::kAlignedAlloc) ? ENOMEM : __real_posix_memalign(memory, alignment, size);
}

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*routine)(void*), void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*routine)(void*),
                          void* argument) {
    if (fails(Site::kThreadCreate)) return EAGAIN;
    if (!thread_counts) return __real_pthread_create(thread, attributes, routine, argument);
    const Uncounted own;
    auto start = std::make_unique<ThreadStart>(ThreadStart{routine, argument});
    const int error = __real_pthread_create(thread, attributes, &run_counted, start.get());
    if (error == 0) start.release();
    return error;
}

int __real_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes);
int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
    return fails(Site::kMutexInit) ? ENOMEM : __real_pthread_mutex_init(mutex, attributes);
}

int __real_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attributes);
int __wrap_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attributes) {
    return fails(Site::kConditionInit) ? ENOMEM : __real_pthread_cond_init(condition, attributes);
}

// These do not fail: time may pass meanwhile. Conditions are waited for and announced under the mutex, so none is missed.
int __real_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex);
int __wrap_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    waits().begin(condition);
    return __real_pthread_cond_wait(condition, mutex);
}

int __real_pthread_cond_broadcast(pthread_cond_t* condition);
int __wrap_pthread_cond_broadcast(pthread_cond_t* condition) {
    waits().end(condition);
    return __real_pthread_cond_broadcast(condition);
}

int __real_pthread_join(pthread_t thread, void** result);
int __wrap_pthread_join(pthread_t thread, void** result) {
    waits().begin(&thread);
    const int error = __real_pthread_join(thread, result);
    waits().end(&thread);
    return error;
}

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        std::va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    if (!fails(Site::kFileOpen)) return __real_open(path, flags, mode);
    errno = EMFILE;
    return -1;
}

ssize_t __real_read(int file, void* data, std::size_t size);
ssize_t __wrap_read(int file, void* data, std::size_t size) {
    switch (injector().strike(Site::kFileRead).value_or(Kind::kStall)) {
        case Kind::kFileRefused: errno = EIO; return -1;
        case Kind::kFileInterrupted: errno = EINTR; return -1;
        case Kind::kFileEmpty: return 0;
        case Kind::kFileCutShort: return __real_read(file, data, size - (size != 0));
        default: return __real_read(file, data, size);
    }
}

int __real_fstat(int file, struct stat* status);
int __wrap_fstat(int file, struct stat* status) {
    if (!fails(Site::kFileStat)) return __real_fstat(file, status);
    errno = EIO;
    return -1;
}

// A member function of std::thread, whose object comes as the first argument.
using ThreadState = std::unique_ptr<std::thread::_State>;
void __real__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(std::thread* thread,
                                                                                                  ThreadState state,
                                                                                                  void (*depend)());
void __wrap__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(std::thread* thread,
                                                                                                  ThreadState state,
                                                                                                  void (*depend)()) {
    if (fails(Site::kThreadStart)) {
        const Uncounted own;
        throw std::system_error(EAGAIN, std::generic_category());
    }
    __real__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(
        thread, std::move(state), depend);
}

}  // extern "C"
// NOLINTEND
