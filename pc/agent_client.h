// A program on the PC that uses the service's control interface by names alone: the companion that
// shows the service's state and switches its features.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/automation.h"
#include "platform/virtual/core/machine.h"

// What a sink does with an event, besides recording its code.
enum class SinkReaction
{
    none,
    cancel,     // refuses the new event code
    clear,      // withdraws the refusal of another sink
    fail,       // fails
    call_back,  // reads the event code from within
    leave,      // disconnects itself
};

// Effects: "client call" {client, call, result, answer}, "client event" {client, sink, code,
// cancelled (as the sink found it)}.
class AgentClient
{
public:
    // Starts the program; it creates its object when that is first needed.
    AgentClient(virtual_pc::Machine& pc, std::wstring_view name);
    // Terminates the program.
    ~AgentClient();
    AgentClient(const AgentClient&) = delete;
    AgentClient& operator=(const AgentClient&) = delete;

    struct Answer
    {
        HRESULT result = E_FAIL;
        std::wstring text;  // the values that came back, joined by blanks

        // The text, "ok" where no value comes back, or the failure in hexadecimal.
        std::wstring Words() const;
    };

    // Each runs on the program's own thread, while the machine runs until it is done. Calls
    // `member` as a method with numbers, and with output arguments of the types in `places`.
    Answer Call(std::wstring_view member, const std::vector<LONG>& numbers,
                const std::vector<VARTYPE>& places = {});
    Answer GetProperty(std::wstring_view member);
    Answer PutProperty(std::wstring_view member, LONG value);
    // Connects a sink; the answer is its cookie. A connected one of that name stays connected.
    Answer Advise(const std::wstring& sink, SinkReaction reaction);
    Answer Unadvise(const std::wstring& sink);
    // Releases the object and the sinks.
    void Release();

    // The event codes that a sink has received, joined by blanks.
    std::wstring Heard(const std::wstring& sink) const;

    // Has the program end by itself, which releases everything. False when it has not ended within
    // five minutes, as while the PC sleeps.
    bool Quit();
    // Terminates the program, which then releases nothing.
    void End();

    struct Program;

private:
    virtual_pc::Machine& m_pc;
    std::shared_ptr<Program> m_program;
};
