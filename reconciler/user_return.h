// Sees to it that a user's return leads to normal use.
//
// The event loop resets an event after its action, so a signal of EVENT_ENTER_S0 that is raised
// while the loop enters normal use is absorbed. A sleep, or away mode, that begins and ends amid
// that entry therefore leaves the PC in HOLV_S3 or a never-sleep state with the user in front of
// it. A thread of its own looks at the state some time after each return, and signals the event
// again where the PC is not in normal use. With no return to look after it blocks without a
// time-out.
#pragma once

// What the control handler learns of the user.
enum class UserNotice
{
    suspend,
    unattended_resume,
    attended_resume,
    away_mode_on,
    away_mode_off,
    present,  // the user's presence, or on Windows 7 the display that comes on
};

// Keeps what is announced, and begins or ends the watch over a return. A departure is noted before
// the state machine acts on it, a return after that. Any thread at any time, also while no watch
// runs.
void NoteUser(UserNotice notice);

// Starts the thread. Where it cannot be started a line in the log says so, and the service goes on
// without it.
void StartUserReturnWatch();

// Ends the thread and waits for its end, which comes at once. The global events must still be open.
void EndUserReturnWatch();
