// Commands that are run for their output.

#include "platform/command.h"

#include <sys/mman.h>
#include <unistd.h>

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

// A file of the host in its memory, because the host cannot read wide characters from its memory
// streams. Making one takes longer than all else about a command, so the next command gets it
// again.
class SpareFile
{
public:
    SpareFile()
    {
        if (Idle().empty()) Idle().push_back(memfd_create("output", MFD_CLOEXEC));
        m_file = Idle().back();
        Idle().pop_back();
    }
    ~SpareFile() { Idle().push_back(m_file); }
    SpareFile(const SpareFile&) = delete;
    SpareFile& operator=(const SpareFile&) = delete;
    int get() const { return m_file; }

private:
    // With the machine held.
    static std::vector<int>& Idle()
    {
        static std::vector<int> idle;
        return idle;
    }

    int m_file;
};

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
    std::FILE* FileOf(const std::string& text)
    {
        const int file = dup(m_spare.get());
        const auto size = static_cast<off_t>(text.size());
        const bool written = pwrite(file, text.data(), text.size(), 0) == size &&
                             ftruncate(file, size) == 0 && lseek(file, 0, SEEK_SET) == 0;
        std::FILE* stream = written ? fdopen(file, "r") : nullptr;
        if (!stream) throw std::runtime_error("the host has no file for a command's output");
        return stream;
    }

    const std::wstring m_command;
    const SpareFile m_spare;
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
