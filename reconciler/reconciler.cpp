#include "reconciler/reconciler.h"

#include <atomic>
#include <utility>
#include <vector>

#include "log/log.h"
#include "platform/owned.h"
#include "reconciler/rules.h"
#include "restore/journal.h"
#include "state/activity.h"

namespace {

constexpr const wchar_t* kReconciler = L"Reconciler";

// Longer than the state machine itself waits before it acts: a second before a delayed entry, and
// thirty before it looks again at an idle time that has run out. What is still wrong then stays so.
constexpr DWORD kQuietMs = 40'000;
// Until an operation that began within the quiet time has ended.
constexpr DWORD kBusyMs = 1'000;
// What three attempts have not cured, they cannot. A change of the facts begins a new count.
constexpr int kAttemptsMax = 3;
constexpr DWORD kEndMs = 5000;

std::atomic<bool> g_ends = false;
OwnedHandle g_changed;  // signalled at every change, and for the end
OwnedHandle g_thread;

// Written by the reconciler's thread only; the time first, so that a reader who sees the new rule
// sees its time.
std::atomic<ULONGLONG> g_corrected_at = 0;
std::atomic<const Rule*> g_corrected = nullptr;

void NoteCorrection(const Rule& rule)
{
    g_corrected_at = GetTickCount64();
    g_corrected = &rule;
}

struct Attempts
{
    unsigned facts = 0;  // the number of the change that they follow
    int count = 0;
    bool said = false;
};

class Reconciler
{
public:
    // Looks after a change, or when the time-out is over, and returns the next time-out. While one
    // runs, changes do not wake this thread: it finds them here.
    DWORD Look()
    {
        Standstill standstill;
        const Changes before = std::exchange(m_seen, standstill.Seen());
        const DWORD left = m_seen.all != before.all ? QuietLeft() : 0;
        if (left > 0) return left;
        if (!standstill.Complete()) return kBusyMs;
        if (Compare()) return kQuietMs;
        standstill.AwaitChange();
        return INFINITE;
    }

    // Whether a rule was cured since the last call.
    bool TakeCorrected() { return std::exchange(m_corrected, false); }

private:
    // How long it must still be quiet after the last change. The clock counts time asleep, which is
    // not quiet: what is clearly more than was waited for counts as nothing.
    DWORD QuietLeft() const
    {
        const ULONGLONG passed = GetTickCount64() - m_seen.last_ms;
        if (passed >= kQuietMs + kBusyMs) return kQuietMs;
        return passed < kQuietMs ? kQuietMs - static_cast<DWORD>(passed) : 0;
    }

    // Whether a rule was broken that was tried to be cured.
    bool Compare()
    {
        Facts facts = ReadFacts();
        // Then the resume is the next change.
        if (!facts.running || facts.user.suspended) return false;
        bool tried = false;
        for (std::size_t i = 0; i < m_attempts.size(); ++i) {
            const Rule& rule = Rules()[i];
            if (!rule.broken(facts) || !MayTry(m_attempts[i], rule, facts)) continue;
            rule.cure(facts);
            NoteCorrection(rule);
            m_corrected = true;
            tried = true;
            facts = ReadFacts();
        }
        return tried;
    }

    // Counts an attempt and says so, or that there will be no more.
    bool MayTry(Attempts& attempts, const Rule& rule, const Facts& facts)
    {
        if (attempts.facts != m_seen.facts) attempts = {m_seen.facts, 0, attempts.said};
        if (attempts.count > kAttemptsMax) return false;
        if (++attempts.count > kAttemptsMax) {
            Log(3, kReconciler, L"%s, giving up until something changes, the state is %s",
                rule.wrong, StateName(facts.state));
            return false;
        }
        if (rule.said_once && std::exchange(attempts.said, true)) return true;
        Log(4, kReconciler, L"%s, the state is %s: %s, attempt %d", rule.wrong,
            StateName(facts.state), rule.remedy, attempts.count);
        return true;
    }

    Changes m_seen;
    bool m_corrected = false;
    std::vector<Attempts> m_attempts{Rules().size()};
};

// Waits for the thread's end. A wait that the PC has slept through counts for nothing.
bool EndsInTime(HANDLE thread)
{
    for (;;) {
        const ULONGLONG start = GetTickCount64();
        const DWORD ended = WaitForSingleObject(thread, kEndMs);
        if (ended != WAIT_TIMEOUT) return ended == WAIT_OBJECT_0;
        if (GetTickCount64() - start < kEndMs + kBusyMs) return false;
    }
}

DWORD WINAPI ReconcilerProc(LPVOID changed)
{
    Reconciler reconciler;
    for (DWORD timeout = kQuietMs;;) {
        const DWORD woken = WaitForSingleObject(changed, timeout);
        if (g_ends) return 0;
        if (woken == WAIT_FAILED) {
            Log(3, kReconciler, L"The wait failed, GLE=%d: nothing is led back any more",
                GetLastError());
            return 0;
        }
        timeout = reconciler.Look();
        // What was put back outside a return, as by the choice of another plan. The flush waits for
        // the disk, so it comes when operations may begin again.
        if (timeout == INFINITE) SettleJournal();
        if (reconciler.TakeCorrected()) CallAfterActivity(Activity::Kind::notice);
    }
}

}  // namespace

void StartReconciler()
{
    g_ends = false;
    g_changed.Reset(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    if (const HANDLE changed = g_changed.Get()) {
        g_thread.Reset(CreateThread(nullptr, 0, ReconcilerProc, changed, 0, nullptr));
    }
    if (!g_thread) {
        Log(4, kReconciler, L"Not started, GLE=%d", GetLastError());
        return g_changed.Reset();
    }
    ObserveChanges(g_changed.Get());
}

Correction LastCorrection() { return {g_corrected, g_corrected_at}; }

void EndReconciler()
{
    ObserveChanges(nullptr);
    if (!g_thread) return;
    g_ends = true;
    SetEvent(g_changed.Get());
    const bool ended = EndsInTime(g_thread.Get());
    g_thread.Reset();
    // After a time-out the event stays open: the thread still waits on it, and Windows closes it
    // when the process ends.
    if (ended) g_changed.Reset();
}
