#include "reconciler/user_return.h"

#include "log/log.h"
#include "platform/lock.h"
#include "platform/owned.h"
#include "settings/settings.h"
#include "state/global_events.h"
#include "state/never_sleep_state.h"

namespace {

constexpr const wchar_t* kWatch = L"UserReturnWatch";

// Longer than the state machine itself waits before it acts: a second before a delayed entry, and
// thirty before it looks again at an idle time that has run out. What is still wrong then stays so.
constexpr DWORD kQuietMs = 40'000;
// What three signals have not cured is no absorbed signal.
constexpr int kSignalsMax = 3;
constexpr DWORD kEndMs = 5000;

// What was announced so far. Away mode may last through a sleep.
struct UserFacts
{
    bool away = false;
    bool suspended = false;
    bool there = false;  // has come, and has not left since
};

UserFacts After(UserNotice notice, UserFacts facts)
{
    switch (notice) {
        case UserNotice::suspend:
            facts.suspended = true;
            facts.there = false;
            break;
        case UserNotice::unattended_resume:
            facts.suspended = false;
            break;
        case UserNotice::attended_resume:
            facts.suspended = false;
            facts.there = true;
            break;
        case UserNotice::away_mode_on:
            facts.away = true;
            facts.there = false;
            break;
        case UserNotice::away_mode_off:
            facts.away = false;
            facts.there = !facts.suspended;
            break;
        case UserNotice::present:
            // A program may turn the display on in away mode, and a notice may arrive late, when
            // the PC is about to sleep.
            if (!facts.away && !facts.suspended) facts.there = true;
            break;
    }
    return facts;
}

struct Watch
{
    UserFacts user;
    unsigned returns = 0;  // that are to be looked after
    bool ends = false;
    OwnedHandle changed;  // signalled when a return or a departure was noted, and for the end
};

CriticalSection g_watch_lock;
Watch g_watch;  // under the lock
OwnedHandle g_thread;

// The return that the thread looks after.
struct Vigil
{
    unsigned return_number = 0;
    int signals = 0;
    bool open = false;  // the quiet time runs
};

enum class Finding
{
    all_well,   // or nothing to look after
    too_early,  // the quiet time begins
    signalled,  // and begins anew
    gave_up,
    ends,
};

// Looks at what was noted; after a quiet time, also at the state. The signal is raised under the
// lock, so that no departure is noted between the look and the signal.
Finding Look(Vigil& vigil, bool quiet, ESystemState& state)
{
    const ScopedLock lock(g_watch_lock);
    if (g_watch.ends) return Finding::ends;
    if (!g_watch.user.there) return Finding::all_well;
    if (vigil.return_number != g_watch.returns) {
        vigil = {g_watch.returns, 0, true};
        return Finding::too_early;
    }
    // One wake-up may have told of several notices, and each signals the event.
    if (!quiet) return vigil.open ? Finding::too_early : Finding::all_well;
    state = CNeverSleepState::m_eSystemState;
    if (!g_bEnableNeverSleep || state == S0_NORMAL || state == HOLV_INIT) {
        return Finding::all_well;
    }
    if (vigil.signals == kSignalsMax) return Finding::gave_up;
    ++vigil.signals;
    SignalGlobalEvent(EVENT_ENTER_S0);
    return Finding::signalled;
}

DWORD WINAPI WatchProc(LPVOID changed)
{
    Vigil vigil;
    for (DWORD timeout = INFINITE;;) {
        const DWORD woken = WaitForSingleObject(changed, timeout);
        if (woken == WAIT_FAILED) {
            Log(3, kWatch, L"The wait failed, GLE=%d: returns are no longer watched",
                GetLastError());
            return 0;
        }
        ESystemState state = HOLV_INIT;
        const Finding finding = Look(vigil, woken == WAIT_TIMEOUT, state);
        if (finding == Finding::ends) return 0;
        if (finding == Finding::signalled) {
            Log(4, kWatch,
                L"The user is back but the state is %s, signalling EVENT_ENTER_S0, attempt %d",
                StateName(state), vigil.signals);
        } else if (finding == Finding::gave_up) {
            Log(3, kWatch, L"The state is still %s, giving up until the user returns again",
                StateName(state));
        }
        vigil.open = finding == Finding::too_early || finding == Finding::signalled;
        timeout = vigil.open ? kQuietMs : INFINITE;
    }
}

}  // namespace

void NoteUser(UserNotice notice)
{
    // While there is no state to leave, the start of the feature leads to normal use.
    const bool has_state = CNeverSleepState::m_eSystemState != HOLV_INIT;
    const ScopedLock lock(g_watch_lock);
    const bool was_there = g_watch.user.there;
    g_watch.user = After(notice, g_watch.user);
    const bool there = g_watch.user.there;
    const bool comes = notice == UserNotice::attended_resume ||
                       notice == UserNotice::away_mode_off || notice == UserNotice::present;
    const bool returns = there && comes && has_state;
    if (returns) ++g_watch.returns;
    if (g_watch.changed && (returns || (was_there && !there))) SetEvent(g_watch.changed.Get());
}

void StartUserReturnWatch()
{
    HANDLE changed = nullptr;
    {
        const ScopedLock lock(g_watch_lock);
        g_watch.ends = false;
        g_watch.changed.Reset(CreateEventW(nullptr, FALSE, FALSE, nullptr));
        changed = g_watch.changed.Get();
    }
    if (changed) g_thread.Reset(CreateThread(nullptr, 0, WatchProc, changed, 0, nullptr));
    if (!g_thread) Log(4, kWatch, L"Not started, GLE=%d", GetLastError());
}

void EndUserReturnWatch()
{
    {
        const ScopedLock lock(g_watch_lock);
        g_watch.ends = true;
        if (g_watch.changed) SetEvent(g_watch.changed.Get());
    }
    const bool ended = !g_thread || WaitForSingleObject(g_thread.Get(), kEndMs) == WAIT_OBJECT_0;
    g_thread.Reset();
    // A thread that still runs waits on it, and the process's end closes it.
    if (!ended) return;
    const ScopedLock lock(g_watch_lock);
    g_watch.changed.Reset();
}
