// The allocation functions and locks below stand in front of the C library's own, for this program
// and for every library in it.

#include "support/real_time_watch.h"

#include <climits>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <new>

#include <dlfcn.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <malloc.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

extern "C" {
void* __libc_malloc(size_t bytes);
void* __libc_calloc(size_t count, size_t bytes);
void* __libc_realloc(void* memory, size_t bytes);
void* __libc_memalign(size_t alignment, size_t bytes);
void __libc_free(void* memory);
}

namespace {

struct Report {
    char fault[200];
    bool systemCallsWatched;
};
Report* report = nullptr; // shared with the child

const char* currentCall = nullptr; // of the section that is alive
double currentSpeed = 0.0;

[[noreturn]] void endWith(const char* fault)
{
    const char* const call = currentCall;
    currentCall = nullptr;
    if (call != nullptr)
        std::snprintf(report->fault, sizeof report->fault, "%s by %s at speed %g", fault, call,
                      currentSpeed);
    else
        std::snprintf(report->fault, sizeof report->fault, "%s between sections", fault);
    _exit(1);
}

void forbid(const char* function)
{
    if (currentCall != nullptr)
        endWith(function);
}

template <class Lock>
int takeLock(const char* function, Lock* lock)
{
    forbid(function);
    return reinterpret_cast<int (*)(Lock*)>(dlsym(RTLD_NEXT, function))(lock);
}

// A heap that never turns to the system again, so that watched processes may use it.
const bool heapStands = [] {
    constexpr int kHeapBytes = 256 << 20; // address space: only what is used becomes memory
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, INT_MAX);
    __libc_free(__libc_malloc(kHeapBytes));
    return true;
}();

void onSystemCall(int, siginfo_t* info, void*)
{
    char fault[40];
    std::snprintf(fault, sizeof fault, "system call %d", info->si_syscall);
    endWith(fault);
}

// From here on this process may do nothing but end.
bool forbidSystemCalls()
{
    struct sigaction action = {};
    action.sa_sigaction = onSystemCall;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGSYS, &action, nullptr);

    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit_group, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP),
    };
    sock_fprog filter = {sizeof program / sizeof *program, program};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

} // namespace

void* malloc(size_t bytes) noexcept
{
    forbid("malloc");
    return __libc_malloc(bytes);
}

void* calloc(size_t count, size_t bytes) noexcept
{
    forbid("calloc");
    return __libc_calloc(count, bytes);
}

void* realloc(void* memory, size_t bytes) noexcept
{
    forbid("realloc");
    return __libc_realloc(memory, bytes);
}

void* aligned_alloc(size_t alignment, size_t bytes) noexcept
{
    forbid("aligned_alloc");
    return __libc_memalign(alignment, bytes);
}

void free(void* memory) noexcept
{
    forbid("free");
    __libc_free(memory);
}

int pthread_mutex_lock(pthread_mutex_t* lock) noexcept
{
    return takeLock("pthread_mutex_lock", lock);
}

int pthread_mutex_trylock(pthread_mutex_t* lock) noexcept
{
    return takeLock("pthread_mutex_trylock", lock);
}

int pthread_rwlock_rdlock(pthread_rwlock_t* lock) noexcept
{
    return takeLock("pthread_rwlock_rdlock", lock);
}

int pthread_rwlock_wrlock(pthread_rwlock_t* lock) noexcept
{
    return takeLock("pthread_rwlock_wrlock", lock);
}

namespace real_time {

Section::Section(const char* call, double speed)
{
    currentSpeed = speed;
    currentCall = call;
}

Section::~Section()
{
    currentCall = nullptr;
}

Findings watch(const std::function<void()>& scenario)
{
    void* const shared =
        mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED)
        return {"no memory to report in", false};
    report = new (shared) Report{};
    const pid_t child = fork();
    if (child == 0) {
        report->systemCallsWatched = forbidSystemCalls();
        scenario();
        _exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    Findings findings{report->fault, report->systemCallsWatched};
    if (findings.fault.empty() && !(WIFEXITED(status) && WEXITSTATUS(status) == 0))
        findings.fault = "wait status " + std::to_string(status);
    munmap(shared, sizeof(Report));
    return findings;
}

} // namespace real_time
