// How the threads of a killed process end: without running any more of the process's code, not even
// a destructor or a handler.
//
// A thread's stack has frames of the process, and frames of the machine: the platform functions
// that the process has called, and what calls the process (a thread's start, a callback). When the
// process is killed, an exception (ThreadEnds) unwinds the machine's frames, so that they release
// what they hold. Where the next frame is one of the process, at a Boundary, the thread jumps over
// the process's frames to the EnterProcess below them, which throws the exception anew.
#pragma once

#include <functional>

namespace virtual_pc {

class Thread;

// A local of each platform function that a process calls; every Call is one. Its function calls
// into the process by EnterProcess only.
class Boundary
{
public:
    Boundary();
    explicit Boundary(Thread* self);
    // Leaves the process's frames when the outermost boundary ends in a killed process.
    ~Boundary();
    Boundary(const Boundary&) = delete;
    Boundary& operator=(const Boundary&) = delete;

protected:
    Thread* const m_thread;  // the calling one
};

// Throws ThreadEnds when the process of the calling thread has been killed. Once only: then the
// destructors of the machine's frames run, whose calls must go on, without effect. Returns whether
// the process has been killed.
bool EndIfKilled(Thread& self);

// Runs code of the calling thread's process. Throws ThreadEnds when the process is killed before or
// meanwhile. For the driver it only runs the code.
void EnterProcess(const std::function<void()>& code);

// Whether a thread has jumped over frames, whose memory nothing frees any more.
bool FramesWereAbandoned();

}  // namespace virtual_pc
