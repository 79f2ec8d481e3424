// Commands that are run for their output.

#include "platform/command.h"

#include <stdio_ext.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/virtual/core/call.h"
#include "platform/virtual/core/waitable.h"
#include "platform/virtual/power/power.h"

using namespace virtual_pc;

namespace {

Function fn_wpopen{"_wpopen"};
Function fn_pclose{"_pclose", Failing::never, Role::releases};

// A file of the host in its memory and a stream that reads it, because the host cannot read wide
// characters from its memory streams. Making one takes longer than all else about a command, so the
// next command gets it again.
struct SpareFile
{
    int file = -1;
    std::FILE* stream = nullptr;
    std::size_t size = 0;

    // With the machine held.
    static SpareFile Take()
    {
        if (Idle().empty()) {
            const int file = memfd_create("output", MFD_CLOEXEC);
            return {file, fdopen(file, "r")};
        }
        const SpareFile spare = Idle().back();
        Idle().pop_back();
        return spare;
    }
    void GiveBack() const { Idle().push_back(*this); }

    bool Hold(const std::string& text)
    {
        if (!stream || pwrite(file, text.data(), text.size(), 0) != std::ssize(text)) return false;
        if (text.size() < size && ftruncate(file, std::ssize(text)) != 0) return false;
        size = text.size();
        __fpurge(stream);
        std::clearerr(stream);
        return lseek(file, 0, SEEK_SET) == 0;
    }

private:
    static std::vector<SpareFile>& Idle()
    {
        static std::vector<SpareFile> idle;
        return idle;
    }
};

class Output final : public Object
{
public:
    Output(std::wstring command, const std::string& text)
        : m_command(std::move(command)), m_spare(SpareFile::Take())
    {
        if (!m_spare.Hold(text)) {
            throw std::runtime_error("the host has no file for a command's output");
        }
    }
    ~Output() override { Closed(); }
    std::string_view Kind() const override { return "output of a command"; }
    std::wstring Name() const override { return m_command; }
    void Closed() override
    {
        if (file()) m_spare.GiveBack();
        m_spare.stream = nullptr;
    }
    std::FILE* file() const { return m_spare.stream; }

private:
    const std::wstring m_command;
    SpareFile m_spare;
};

// The output of a command. The console's code page is taken to be ASCII: any other character
// becomes a question mark.
std::string Run(const Machine& machine, std::wstring_view command)
{
    if (command != L"powercfg -requests") return {};
    const std::wstring listing = machine.power.Listing();
    std::string text(listing.size(), '?');
    std::ranges::transform(listing, text.begin(), [](wchar_t character) {
        return character < 128 ? static_cast<char>(character) : '?';
    });
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
