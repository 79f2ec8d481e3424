#include "pc/stop_signals.h"

#include <atomic>
#include <csignal>

namespace {

std::atomic<int> g_signal{0};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler may use no lock");

void EndBy(int signal)
{
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

void Note(int signal)
{
    if (g_signal.exchange(signal) != 0) EndBy(signal);
}

}  // namespace

void CatchStopSignals()
{
    struct sigaction action = {};
    action.sa_handler = Note;
    action.sa_flags = SA_RESTART;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before = {};
        sigaction(signal, nullptr, &before);
        // A caller that had it ignored, as nohup does, meant that.
        if (before.sa_handler != SIG_IGN) sigaction(signal, &action, nullptr);
    }
}

int StopSignal() { return g_signal; }
void ForgetStopSignal() { g_signal = 0; }

void EndByStopSignal()
{
    if (const int signal = g_signal) EndBy(signal);
}
