// Reads the system's list of power requests, which a command prints.

#include <atomic>
#include <cwchar>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "log/log.h"
#include "platform/command.h"
#include "platform/lock.h"
#include "platform/owned.h"
#include "state/listed_holders.h"
#include "state/never_sleep_state.h"

namespace {

constexpr const wchar_t* kListRequests = L"powercfg -requests";
constexpr const wchar_t* kLogRequests = L"LogOutstandingPowerRequests";
constexpr int kLineLength = 1024;  // characters, the terminator included

// Starts the command that lists the power requests. Empty, after a log line, when it cannot be
// started.
OwnedCommandOutput RunListing(const wchar_t* function)
{
    OwnedCommandOutput output(_wpopen(kListRequests, L"rt"));
    if (!output) {
        Log(3, function, L"Failed to execute %s, error=%d\n", kListRequests, GetLastError());
    }
    return output;
}

// Logs each line of the output and passes it to `take`. A line longer than the buffer comes in
// several parts; `begins` is true for the first.
template <class Take>
void ReadLines(const OwnedCommandOutput& output, const wchar_t* function, const Take& take)
{
    wchar_t line[kLineLength];
    RequestListing listing;
    for (bool begins = true; std::fgetws(line, kLineLength, output.Get());) {
        Log(6, function, L"%s", line);
        take(std::wstring_view(line), begins);
        listing.Take(line);
        begins = std::wcschr(line, L'\n') != nullptr;
    }
    NoteHolders(listing);
}

// --- With a time limit ---

// A listing that a thread of its own reads, so that the caller may stop waiting. One at a time: a
// command that hangs holds one thread, and none more at the next suspend.
class TimedListing
{
public:
    // Starts the thread. Null, after a log line, when it cannot be started or the one before still
    // reads.
    static std::shared_ptr<TimedListing> Start()
    {
        if (s_reads.exchange(true)) {
            Log(6, kLogRequests, L"%s has not ended since the last time", kListRequests);
            return nullptr;
        }
        auto listing = std::make_shared<TimedListing>();
        auto passed = std::make_unique<std::shared_ptr<TimedListing>>(listing);
        const OwnedHandle thread(CreateThread(nullptr, 0, Proc, passed.get(), 0, nullptr));
        if (!thread) {
            Log(3, kLogRequests, L"Failed to execute %s, error=%d\n", kListRequests,
                GetLastError());
            s_reads = false;
            return nullptr;
        }
        // The thread owns it now.
        static_cast<void>(passed.release());
        return listing;
    }

    // What the command has printed until its end or until then, and whether it could be started.
    struct Output
    {
        bool ended;
        bool started;
        std::vector<std::wstring> lines;
    };
    // Later lines are not kept.
    Output Await(DWORD patience_ms)
    {
        const bool ended = WaitForSingleObject(m_end.Get(), patience_ms) == WAIT_OBJECT_0;
        const ScopedLock lock(m_lock);
        m_abandoned = true;
        return {ended, m_started, std::move(m_lines)};
    }

private:
    static DWORD WINAPI Proc(LPVOID passed)
    {
        const std::unique_ptr<std::shared_ptr<TimedListing>> listing(
            static_cast<std::shared_ptr<TimedListing>*>(passed));
        (*listing)->Read();
        s_reads = false;
        SetEvent((*listing)->m_end.Get());
        return 0;
    }

    void Read()
    {
        // Closed at the end of this function, which waits for the command's end.
        const OwnedCommandOutput output = RunListing(kLogRequests);
        wchar_t line[kLineLength];
        for (bool wanted = output && Keep(nullptr); wanted; wanted = Keep(line)) {
            if (!std::fgetws(line, kLineLength, output.Get())) return;
        }
    }

    // Keeps a line of the command that has been started; false when it is not wanted any more.
    bool Keep(const wchar_t* line)
    {
        const ScopedLock lock(m_lock);
        if (m_abandoned) return false;
        m_started = true;
        if (line) m_lines.emplace_back(line);
        return true;
    }

    static inline std::atomic<bool> s_reads = false;

    const OwnedHandle m_end{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    CriticalSection m_lock;  // guards what follows
    bool m_abandoned = false;
    bool m_started = false;
    std::vector<std::wstring> m_lines;
};

void LogWithin(DWORD patience_ms)
{
    const std::shared_ptr<TimedListing> listing = TimedListing::Start();
    if (!listing) return;
    const TimedListing::Output output = listing->Await(patience_ms);
    if (output.started) Log(6, kLogRequests, L"Output from %s", kListRequests);
    RequestListing requests;
    for (const std::wstring& line : output.lines) {
        Log(6, kLogRequests, L"%s", line.c_str());
        requests.Take(line);
    }
    if (output.ended) NoteHolders(requests);
    if (!output.ended) Log(6, kLogRequests, L"The rest of the listing comes too late");
}

}  // namespace

BOOL CNeverSleepState::IsDisplayRequiredSet()
{
    constexpr const wchar_t* kFunction = L"CNeverSleepState::IsDisplayRequiredSet";
    enum class Section
    {
        none,
        display,
        system,
        away_mode,
    };
    constexpr std::pair<const wchar_t*, Section> kHeaders[] = {
        {L"DISPLAY:\n", Section::display},
        {L"SYSTEM:\n", Section::system},
        {L"AWAYMODE:\n", Section::away_mode},
    };
    Section section = Section::none;
    int processes = 0;
    const OwnedCommandOutput output = RunListing(kFunction);
    if (!output) return FALSE;
    ReadLines(output, kFunction, [&](std::wstring_view line, bool begins) {
        for (const auto& [header, begun] : kHeaders) {
            if (!begins || line != header) continue;
            section = begun;
            return;
        }
        const bool of_process = line.find(L"[PROCESS]") != line.npos;
        if (of_process && section == Section::display) ++processes;
    });
    return processes > 0;
}

void LogOutstandingPowerRequests(DWORD patience_ms)
{
    if (patience_ms != INFINITE) return LogWithin(patience_ms);
    const OwnedCommandOutput output = RunListing(kLogRequests);
    if (!output) return;
    Log(6, kLogRequests, L"Output from %s", kListRequests);
    ReadLines(output, kLogRequests, [](std::wstring_view, bool) {});
}
