#include "pc/kept_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include "pc/player.h"

namespace fs = std::filesystem;

namespace {

std::string ReasonOf(int error) { return std::generic_category().message(error); }

std::string ContentOf(const fs::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

// "1234 (holvpc run day.pc)" of this program.
std::string OwnProgram()
{
    std::string command = ContentOf("/proc/self/cmdline");
    while (!command.empty() && command.back() == '\0') command.pop_back();
    for (char& c : command) {
        if (c == '\0') c = ' ';
    }
    return std::to_string(getpid()) + " (" + command + ")";
}

}  // namespace

KeptFolder::KeptFolder(const std::string& root)
{
    if (root.empty()) return;
    const auto fail = [&](const std::string& why) {
        throw SetupError("--root " + root + ": " + why);
    };
    std::error_code error;
    if (fs::exists(root, error) && !fs::is_directory(root, error)) fail("is no folder");
    fs::create_directories(root, error);
    if (error) fail("cannot be made: " + error.message());

    const fs::path file = fs::path(root) / "holvpc.lock";
    m_lock = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (m_lock < 0) fail("cannot be written: " + ReasonOf(errno));
    if (flock(m_lock, LOCK_EX | LOCK_NB) != 0) {
        const int reason = errno;
        const std::string who = ContentOf(file);
        close(m_lock);
        if (reason != EWOULDBLOCK) fail("cannot be locked: " + ReasonOf(reason));
        fail("another PC runs there, that of process " + who);
    }
    const std::string who = OwnProgram();
    if (ftruncate(m_lock, 0) != 0 ||
        write(m_lock, who.data(), who.size()) != static_cast<ssize_t>(who.size())) {
        const int reason = errno;
        close(m_lock);
        fail("cannot be written: " + ReasonOf(reason));
    }
}

KeptFolder::~KeptFolder()
{
    if (m_lock < 0) return;
    // The file stays: one that another program opens just before its removal would be locked by
    // that program alone, and by none that comes later.
    [[maybe_unused]] const int emptied = ftruncate(m_lock, 0);
    close(m_lock);
}
