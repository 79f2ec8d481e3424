#include "storm/child.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "pc/stop_signals.h"

namespace {

using HostTime = std::chrono::steady_clock::time_point;

// A number that two processes of the host see.
Pulse& NewPulse()
{
    void* const memory =
        mmap(nullptr, sizeof(Pulse), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
    return *new (memory) Pulse(0);
}

// A folder for what a child keeps while it runs: one that is killed removes nothing itself.
std::string NewFolder()
{
    std::string folder = (std::filesystem::temp_directory_path() / "holvpc-XXXXXX").string();
    if (mkdtemp(folder.data())) return folder;
    throw std::system_error(errno, std::generic_category(), "a folder for a life: " + folder);
}

// What the child does; it never returns.
[[noreturn]] void BeChild(const Pool::Work& work, Pulse& pulse, int out, const std::string& folder)
{
    // The lives end with the storm, also where that is killed.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) std::signal(signal, SIG_IGN);
    setenv("TMPDIR", folder.c_str(), 1);
    std::string said;
    try {
        said = work(pulse);
    } catch (const std::exception& error) {
        said = std::string("!") + error.what();
    }
    for (std::size_t at = 0; at < said.size();) {
        const ssize_t written = write(out, said.data() + at, said.size() - at);
        if (written <= 0) break;
        at += static_cast<std::size_t>(written);
    }
    close(out);
    _exit(0);
}

}  // namespace

Outcome OutcomeOf(const Ended& ended)
{
    if (ended.failure.empty()) {
        if (auto outcome = OutcomeOf(ended.said)) return *outcome;
    }
    Outcome outcome;
    outcome.due = SIZE_MAX;
    outcome.finding.emplace();
    outcome.finding->promise = "a life can be lived";
    outcome.finding->object = ended.failure.empty() ? "its result cannot be read" : ended.failure;
    return outcome;
}

struct Pool::Child
{
    std::size_t number;
    pid_t pid;
    int out;
    Pulse* pulse;
    std::string folder;
    std::int64_t beat = -1;
    HostTime beat_at = std::chrono::steady_clock::now();
    bool hung = false;
    std::string said = {};

    // False when it has said all.
    bool Read()
    {
        char bytes[65536];
        const ssize_t count = read(out, bytes, sizeof(bytes));
        if (count <= 0) return count < 0 && (errno == EINTR || errno == EAGAIN);
        said.append(bytes, static_cast<std::size_t>(count));
        return true;
    }

    Ended End()
    {
        int status = 0;
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        close(out);
        munmap(static_cast<void*>(pulse), sizeof(Pulse));
        std::error_code error;
        std::filesystem::remove_all(folder, error);
        Ended ended{said, {}};
        if (hung) {
            ended.failure = "no time of the PC passes any more";
        } else if (WIFSIGNALED(status)) {
            ended.failure =
                std::string("the host process was ended: ") + strsignal(WTERMSIG(status));
        } else if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            ended.failure =
                "the host process has ended with status " + std::to_string(WEXITSTATUS(status));
        } else if (said.starts_with("!")) {
            ended.failure = said.substr(1);
        }
        return ended;
    }
};

Pool::Child Pool::Begin(const Work& work, std::size_t number)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw std::system_error(errno, std::generic_category(), "pipe");
    Pulse& pulse = NewPulse();
    const std::string folder = NewFolder();
    const pid_t pid = fork();
    if (pid < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (pid == 0) {
        close(ends[0]);
        BeChild(work, pulse, ends[1], folder);
    }
    close(ends[1]);
    return {.number = number, .pid = pid, .out = ends[0], .pulse = &pulse, .folder = folder};
}

void Pool::Watch(Child& child)
{
    const auto now = std::chrono::steady_clock::now();
    const std::int64_t beat = child.pulse->load();
    if (beat != child.beat) {
        child.beat = beat;
        child.beat_at = now;
    } else if (now - child.beat_at > m_patience && !child.hung) {
        child.hung = true;
        kill(child.pid, SIGKILL);
    }
}

void Pool::Run(const std::function<std::optional<Work>()>& next,
               const std::function<void(std::size_t, const Ended&)>& done,
               const std::function<void()>& tick)
{
    std::vector<Child> children;
    std::size_t number = 0;
    for (bool more = true; more || !children.empty();) {
        while (more && StopSignal() == 0 && static_cast<int>(children.size()) < m_jobs) {
            const auto work = next();
            more = work.has_value();
            if (work) children.push_back(Begin(*work, number++));
        }
        if (StopSignal() != 0) {
            more = false;
            for (const Child& child : children) kill(child.pid, SIGKILL);
        }
        std::vector<pollfd> waiting;
        waiting.reserve(children.size());
        for (const Child& child : children) waiting.push_back({child.out, POLLIN, 0});
        poll(waiting.data(), waiting.size(), 200);
        for (std::size_t i = children.size(); i-- > 0;) {
            if (waiting[i].revents == 0) {
                Watch(children[i]);
            } else if (!children[i].Read()) {
                Child child = std::move(children[i]);
                children.erase(children.begin() + static_cast<std::ptrdiff_t>(i));
                const Ended ended = child.End();
                if (StopSignal() == 0) done(child.number, ended);
            }
        }
        if (tick) tick();
    }
}

Outcome PlayedAlone(std::chrono::seconds patience, const Pool::Work& work)
{
    Outcome outcome;
    bool begun = false;
    Pool(1, patience)
        .Run(
            [&]() -> std::optional<Pool::Work> {
                if (std::exchange(begun, true)) return std::nullopt;
                return work;
            },
            [&](std::size_t, const Ended& ended) { outcome = OutcomeOf(ended); });
    return outcome;
}
