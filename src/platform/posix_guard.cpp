#include "platform/posix_guard.h"

#include <atomic>
#include <csetjmp>
#include <csignal>
#include <cstdint>
#include <cstring>

namespace zb {
namespace {

// What this thread is copying from, and where to go when a page of it has gone.
struct Guard {
    uintptr_t begin;
    size_t size;
    sigjmp_buf* escape;  // null while nothing is being copied
};

// Reached from a signal handler, so it must be there without being allocated.
__attribute__((tls_model("initial-exec"))) thread_local Guard guard;

struct sigaction previous;

void Die(int signal, bool fault) {
    struct sigaction byDefault {};
    byDefault.sa_handler = SIG_DFL;
    sigaction(signal, &byDefault, nullptr);
    // A fault comes again on the return from here; what was sent doesn't.
    if (!fault) raise(signal);
}

// Does what would have happened to the signal without this room.
void PassOn(int signal, siginfo_t* info, void* context) {
    bool fault = info->si_code > 0;
    bool handled =
        previous.sa_flags & SA_SIGINFO || (previous.sa_handler != SIG_DFL && previous.sa_handler != SIG_IGN);
    if (!handled) {
        // Even a process that ignores the signal dies of a fault.
        if (previous.sa_handler == SIG_DFL || fault) Die(signal, fault);
        return;
    }
    struct sigaction handler = previous;
    if (handler.sa_flags & static_cast<int>(SA_RESETHAND)) {
        previous = {};
        previous.sa_handler = SIG_DFL;
    }
    sigset_t blocked = handler.sa_mask;
    sigset_t before;
    if (!(handler.sa_flags & SA_NODEFER)) sigaddset(&blocked, signal);
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    if (handler.sa_flags & SA_SIGINFO)
        handler.sa_sigaction(signal, info, context);
    else
        handler.sa_handler(signal);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void OnPageGone(int signal, siginfo_t* info, void* context) {
    bool fault = info->si_code > 0;
    uintptr_t offset = reinterpret_cast<uintptr_t>(info->si_addr) - guard.begin;
    if (fault && guard.escape && offset < guard.size) siglongjmp(*guard.escape, 1);
    PassOn(signal, info, context);
}

}  // namespace

bool GuardInstall() {
    static bool installed = false;
    if (installed) return true;
    struct sigaction handler {};
    handler.sa_sigaction = OnPageGone;
    // Not deferred, so that the jump out of the handler leaves no signal blocked.
    handler.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
    sigemptyset(&handler.sa_mask);
    if (sigaction(SIGBUS, nullptr, &previous) != 0) return false;
    installed = sigaction(SIGBUS, &handler, nullptr) == 0;
    return installed;
}

bool GuardedCopy(void* to, const Mapping& mapping, size_t position, size_t count) {
    sigjmp_buf escape;
    guard.begin = reinterpret_cast<uintptr_t>(mapping.bytes);
    guard.size = mapping.size;
    // Without the signal mask: saving it would be a system call.
    if (sigsetjmp(escape, 0) != 0) {
        guard.escape = nullptr;
        return false;
    }
    guard.escape = &escape;
    std::atomic_signal_fence(std::memory_order_seq_cst);
    memcpy(to, mapping.bytes + position, count);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    guard.escape = nullptr;
    return true;
}

}  // namespace zb
