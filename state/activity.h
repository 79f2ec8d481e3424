// Spans in which a thread acts on the state machine, the timers, the power requests or the plans.
//
// The reconciler compares the facts with what must hold. It waits for the changes that spans leave
// behind, and compares while no span is open, so that it never sees an operation half done.
#pragma once

#include "platform/base.h"
#include "platform/lock.h"

// A span from its construction to its destruction. Spans of several threads may overlap; no caller
// holds a lock when it opens one.
class Activity
{
public:
    enum class Kind
    {
        pass,    // of the event loop: a fact has changed if the state record says so afterwards
        notice,  // what the service itself may have caused, and what bears on no rule by itself
        fact,    // from outside: the user, the power source, the clock, a setting
    };

    explicit Activity(Kind kind);
    ~Activity();
    Activity(const Activity&) = delete;
    Activity& operator=(const Activity&) = delete;

private:
    // The facts that the event loop finds by itself, by its timers.
    struct Found
    {
        BOOL seen_dnd_start;
        BOOL battery_low;
        bool operator==(const Found&) const = default;
    };
    static Found Now();
    static void NoteChange(bool is_fact);

    const Kind m_kind;
    const Found m_before;
};

// The changes since the process started.
struct Changes
{
    unsigned all = 0;
    unsigned facts = 0;     // without those of kind notice
    ULONGLONG last_ms = 0;  // when the last one was, on the clock of GetTickCount64
};

// Has `changed` signalled at the first change after each Standstill::AwaitChange; null for none.
// The event must stay open until then.
void ObserveChanges(HANDLE changed);

// Has `changed` called after each Activity, on the thread that had it open; null for none. It may
// be called by several threads at once.
void CallAfterActivities(void (*changed)(Activity::Kind kind));
// Calls that function. For a thread that changes something without an Activity.
void CallAfterActivity(Activity::Kind kind);

// While it exists no Activity begins: the threads that would begin one wait, so keep it short.
class Standstill
{
public:
    Standstill();
    Standstill(const Standstill&) = delete;
    Standstill& operator=(const Standstill&) = delete;

    // Whether every Activity that began before this has ended.
    bool Complete() const;
    Changes Seen() const;
    // Has the observer's event signalled at the next change, once.
    void AwaitChange();

private:
    const ScopedLock m_lock;
};
