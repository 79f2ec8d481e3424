// A program on the PC that uses the service's control interface as any program does that knows it
// only by its names: the companion that shows the service's state and switches its features.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/automation.h"
#include "platform/virtual/machine.h"

// What a sink does when it hears of an event, besides remembering it.
enum class SinkReaction
{
    none,
    cancel,     // refuses the new event code
    clear,      // takes back what another sink refused
    fail,       // fails
    call_back,  // reads the event code from within
    leave,      // disconnects itself
};

// Effects: "client call" {client, call, result, answer}, "client event" {client, sink, code,
// cancelled (as the sink found it)}.
class AgentClient
{
public:
    // Starts the program; it makes its object when it is first needed.
    AgentClient(virtual_pc::Machine& pc, std::wstring_view name);
    // Ends it as it is.
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

    // Each is done by the program on its own thread, and lets the machine live until it is done.
    // Calls `member` as a method with numbers, and with places for what it gives, by their types.
    Answer Call(std::wstring_view member, const std::vector<LONG>& numbers,
                const std::vector<VARTYPE>& places = {});
    Answer GetProperty(std::wstring_view member);
    Answer PutProperty(std::wstring_view member, LONG value);
    // Connects a sink; the answer is its cookie. One of that name that is connected stays so.
    Answer Advise(const std::wstring& sink, SinkReaction reaction);
    Answer Unadvise(const std::wstring& sink);
    // Lets go of the object and of the sinks.
    void Release();

    // The codes that a sink has heard, joined by blanks.
    std::wstring Heard(const std::wstring& sink) const;

    // The program ends by itself, and lets go of everything.
    void Quit();
    // Ends the program from outside, which lets go of nothing.
    void End();

    struct Program;

private:
    virtual_pc::Machine& m_pc;
    std::shared_ptr<Program> m_program;
};
