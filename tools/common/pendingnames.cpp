#include "pendingnames.h"

#include <QList>

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <pthread.h>
#include <unistd.h>

namespace PendingNames {

namespace {

struct Slot
{
    volatile sig_atomic_t isUsed;
    int directory;
    char name[256];
};

// Fixed storage: a signal handler can neither allocate nor take a lock.
Slot s_slots[64];
volatile sig_atomic_t s_processGroup = 0;

void removeAllAndRaise(int signalNumber)
{
    for (const Slot &slot : s_slots) {
        if (slot.isUsed)
            ::unlinkat(slot.directory, slot.name, 0);
    }
    if (s_processGroup > 0)
        ::kill(-pid_t(s_processGroup), SIGTERM);
    // The handler was installed to run once: the signal now takes its course.
    ::raise(signalNumber);
}

// Every signal whose default action ends the process, the real-time ones aside.
const int s_endingSignals[] = {SIGHUP,    SIGINT,  SIGQUIT,   SIGILL,  SIGTRAP, SIGABRT, SIGBUS,
                               SIGFPE,    SIGUSR1, SIGSEGV,   SIGUSR2, SIGPIPE, SIGALRM, SIGTERM,
                               SIGSTKFLT, SIGXCPU, SIGVTALRM, SIGPROF, SIGPOLL, SIGPWR,  SIGSYS};

bool isIgnored(int signalNumber)
{
    struct sigaction current;
    return ::sigaction(signalNumber, nullptr, &current) == 0 && current.sa_handler == SIG_IGN;
}

} // namespace

int add(int directory, const QByteArray &name)
{
    if (name.size() >= int(sizeof s_slots[0].name))
        return -1;
    for (int i = 0; i < int(sizeof s_slots / sizeof s_slots[0]); ++i) {
        Slot &slot = s_slots[i];
        if (slot.isUsed)
            continue;
        slot.directory = directory;
        std::memcpy(slot.name, name.constData(), size_t(name.size()) + 1);
        slot.isUsed = 1;
        return i;
    }
    return -1;
}

void setProcessGroup(pid_t group)
{
    s_processGroup = group;
}

void remove(int slot)
{
    if (slot >= 0)
        s_slots[slot].isUsed = 0;
}

void installSignalCleanup(const QList<int> &handledElsewhere)
{
    // A stack that overflowed leaves no room for the handler: it runs on a stack of its own.
    static char s_stack[1 << 16];
    stack_t stack = {};
    stack.ss_sp = s_stack;
    stack.ss_size = sizeof s_stack;
    ::sigaltstack(&stack, nullptr);
    struct sigaction cleanup = {};
    cleanup.sa_handler = removeAllAndRaise;
    cleanup.sa_flags = SA_RESETHAND | SA_NODEFER | SA_ONSTACK;
    sigfillset(&cleanup.sa_mask);
    QList<int> ending(std::begin(s_endingSignals), std::end(s_endingSignals));
    for (int signalNumber = SIGRTMIN; signalNumber <= SIGRTMAX; ++signalNumber)
        ending << signalNumber;
    for (int signalNumber : qAsConst(ending)) {
        if (!isIgnored(signalNumber) && !handledElsewhere.contains(signalNumber))
            ::sigaction(signalNumber, &cleanup, nullptr);
    }
    ::signal(SIGXFSZ, SIG_IGN);
}

Blocker::Blocker()
{
    sigset_t all;
    sigfillset(&all);
    ::pthread_sigmask(SIG_BLOCK, &all, &m_previous);
}

Blocker::~Blocker()
{
    ::pthread_sigmask(SIG_SETMASK, &m_previous, nullptr);
}

} // namespace PendingNames
