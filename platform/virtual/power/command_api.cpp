// Commands that are run for their output.

#include "platform/command.h"

#include <sys/mman.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

#include "platform/virtual/core/call.h"
#include "platform/virtual/core/waitable.h"
#include "platform/virtual/power/power.h"

using namespace virtual_pc;

namespace {

Function fn_wpopen{"_wpopen"};
Function fn_pclose{"_pclose", Failing::never, Role::releases};

class Output final : public Object
{
public:
    Output(std::wstring command, const std::string& text)
        : m_command(std::move(command)), m_file(FileOf(text))
    {
    }
    ~Output() override { Closed(); }
    std::string_view Kind() const override { return "output of a command"; }
    std::wstring Name() const override { return m_command; }
    void Closed() override
    {
        if (m_file) std::fclose(m_file);
        m_file = nullptr;
    }
    std::FILE* file() const { return m_file; }

private:
    // A file, because the host cannot read wide characters from its memory streams.
    static std::FILE* FileOf(const std::string& text)
    {
        const int file = memfd_create("output", MFD_CLOEXEC);
        const auto size = static_cast<ssize_t>(text.size());
        std::FILE* stream =
            pwrite(file, text.data(), text.size(), 0) == size ? fdopen(file, "r") : nullptr;
        if (!stream) throw std::runtime_error("the host has no file for a command's output");
        return stream;
    }

    const std::wstring m_command;
    std::FILE* m_file;
};

// The output of a command. The console's code page is taken to be ASCII: any other character
// becomes a question mark.
std::string Run(const Machine& machine, std::wstring_view command)
{
    std::string text;
    if (command != L"powercfg -requests") return text;
    for (const wchar_t character : machine.power.Listing()) {
        text += character < 128 ? static_cast<char>(character) : '?';
    }
    return text;
}

}  // namespace

extern "C" {

std::FILE* _wpopen(const wchar_t* command, const wchar_t*)
{
    Call call(fn_wpopen);
    if (call.Fails()) return nullptr;
    if (const Duration takes = call.machine.power.listing_takes; takes > Duration::zero()) {
        Waitable::WaitFor(call.machine, call.thread, {}, false, call.machine.now() + takes);
    }
    const auto output = std::make_shared<Output>(command, Run(call.machine, command));
    call.machine.memory_handles[output->file()] = call.Open(output);
    return output->file();
}

int _pclose(std::FILE* output)
{
    Call call(fn_pclose);
    const auto found = call.machine.memory_handles.find(output);
    if (found == call.machine.memory_handles.end()) {
        call.machine.NoteMisuse("the output of a command is closed that is not open");
        return -1;
    }
    call.machine.handles.Close(found->second);
    call.machine.memory_handles.erase(found);
    return 0;
}
}
