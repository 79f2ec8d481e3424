#include "platform/virtual/disk/disk.h"

#include <dirent.h>
#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/virtual/base/text.h"
#include "platform/virtual/core/machine.h"
#include "platform/virtual/core/unwritten.h"

namespace virtual_pc {
namespace {

namespace fs = std::filesystem;

// Folders that every PC has before any program is installed.
constexpr const char* kFirstFolders[] = {"ProgramData", "Windows"};

// Folders that users may not write to, once they are there.
constexpr const char* kProgramFolders[] = {"Program Files", "Windows"};

std::string MakeFolderOfOwn()
{
    std::string name = (fs::temp_directory_path() / "holvpc-XXXXXX").string();
    if (!mkdtemp(name.data())) {
        throw std::system_error(errno, std::generic_category(), "a folder for the disk: " + name);
    }
    return name;
}

// The names between a path's backslashes, after the drive. Slashes do as well, as on the real one.
std::vector<std::wstring> PathParts(std::wstring_view path)
{
    const auto refuse = [&](const char* why) {
        throw std::invalid_argument("\"" + ToUtf8(path) + "\" " + why);
    };
    constexpr std::wstring_view kSeparators = LR"(\/)";
    const std::wstring_view drive = path.substr(0, 2);
    const std::wstring_view rest = path.substr(drive.size());
    const bool rooted = rest.empty() || kSeparators.find(rest.front()) != kSeparators.npos;
    if ((drive != L"C:" && drive != L"c:") || !rooted) refuse("is no path on C:");

    std::vector<std::wstring> names;
    for (std::size_t from = 0; from < rest.size();) {
        const std::size_t to = std::min(rest.find_first_of(kSeparators, from), rest.size());
        const std::wstring_view name = rest.substr(from, to - from);
        if (name == L"..") refuse("goes upwards");
        if (!name.empty() && name != L".") names.emplace_back(name);
        from = to + 1;
    }
    return names;
}

bool IsAscii(std::string_view bytes)
{
    return std::ranges::all_of(bytes, [](char byte) { return byte >= 0; });
}

// The folder's entry of that name in any letter case; the name as given when there is none.
fs::path EntryOf(const fs::path& folder, const std::wstring& name)
{
    const std::string bytes = ToUtf8(name);
    const bool ascii = IsAscii(bytes);
    fs::path exact = folder / bytes;
    std::error_code error;
    if (fs::exists(exact, error)) return exact;
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(folder.c_str()), closedir);
    while (const dirent* entry = entries ? readdir(entries.get()) : nullptr) {
        const std::string_view found = entry->d_name;
        // A folder may have an entry for each day of the history: most need no converting.
        const bool same = ascii && IsAscii(found)
                              ? found.size() == bytes.size() &&
                                    strncasecmp(found.data(), bytes.data(), found.size()) == 0
                              : SameName(FromUtf8(found), name);
        if (same) return folder / found;
    }
    return exact;
}

}  // namespace

Disk::Disk(Machine& machine, const std::string& folder)
    : m_machine(machine),
      m_folder(folder.empty() ? MakeFolderOfOwn() : folder),
      m_own(folder.empty())
{
    for (const char* name : kFirstFolders) fs::create_directories(fs::path(m_folder) / name);
    for (const char* name : kProgramFolders) {
        rights.Set((fs::canonical(m_folder) / name).string(),
                   {L"TrustedInstaller", {{L"TrustedInstaller", L"SYSTEM", L"Administrators"}}});
    }
}

Disk::~Disk()
{
    std::error_code error;  // a folder that stays behind is no reason to stop
    if (m_own) fs::remove_all(m_folder, error);
}

std::string Disk::HostPath(std::wstring_view path) const
{
    const Hold hold(m_machine);
    fs::path host = m_folder;
    for (const std::wstring& name : PathParts(path)) host = EntryOf(host, name);
    return host.string();
}

std::optional<std::string> Disk::Read(std::wstring_view path) const
{
    const Hold hold(m_machine);
    const fs::path host = HostPath(path);
    std::error_code error;
    if (!fs::is_regular_file(host, error)) return std::nullopt;
    std::ifstream file(host, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

void Disk::Write(std::wstring_view path, std::string_view bytes)
{
    const Hold hold(m_machine);
    const fs::path host = HostPath(path);
    fs::create_directories(host.parent_path());
    std::ofstream file(host, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) throw std::runtime_error("\"" + ToUtf8(path) + "\" cannot be written");
    if (const auto known = m_writes.find(host.string()); known != m_writes.end()) {
        *known->second = {bytes.size()};
    }
}

// --- What a power cut loses ---

std::shared_ptr<FileWrites> Disk::WritesOf(const std::string& host)
{
    std::shared_ptr<FileWrites>& writes = m_writes[host];
    if (!writes) writes = std::make_shared<FileWrites>();
    return writes;
}

void Disk::Note(FileWrites& file, FileWrites::Write write)
{
    const Instant written = m_machine.now() - Unwritten::kLazyWrite;
    while (!file.writes.empty() && file.writes.front().at <= written) file.writes.pop_front();
    if (Unwritten::AtOnce()) {
        file.writes.clear();
    } else {
        file.writes.push_back(std::move(write));
    }
}

namespace {

// Undoes a write but for its first bytes.
void Undo(const std::string& host, const FileWrites::Write& write, std::uint64_t kept)
{
    std::error_code error;
    if (write.creates) {
        fs::remove(host, error);
        return;
    }
    std::fstream file(host, std::ios::binary | std::ios::in | std::ios::out);
    std::string stays(kept, '\0');
    file.seekg(static_cast<std::streamoff>(write.offset));
    file.read(stays.data(), static_cast<std::streamsize>(kept));
    file.seekp(static_cast<std::streamoff>(write.offset));
    file.write(write.before.data(), static_cast<std::streamsize>(write.before.size()));
    file.seekp(static_cast<std::streamoff>(write.offset));
    file.write(stays.data(), static_cast<std::streamsize>(kept));
    file.close();
    fs::resize_file(host, std::max(write.size_before, write.offset + kept), error);
}

}  // namespace

void Disk::Lose()
{
    const Instant written = m_machine.now() - Unwritten::kLazyWrite;
    for (const auto& [host, file] : m_writes) {
        auto& writes = file->writes;
        while (!writes.empty() && writes.front().at <= written) writes.pop_front();
        const std::size_t kept = m_machine.unwritten.Kept(writes.size());
        for (; writes.size() > kept; writes.pop_back()) {
            const bool torn = writes.size() == kept + 1 && writes.back().length > 0;
            Undo(host, writes.back(), torn ? m_machine.unwritten.Kept(writes.back().length) : 0);
        }
    }
    m_writes.clear();
}

void Disk::Link(std::wstring_view path, std::wstring_view target)
{
    const Hold hold(m_machine);
    const fs::path host = HostPath(path);
    fs::create_directories(host.parent_path());
    fs::create_symlink(HostPath(target), host);
}

void Disk::SetRights(std::wstring_view path, FileRights::Rights of_path)
{
    const Hold hold(m_machine);
    rights.Set(fs::weakly_canonical(HostPath(path)).string(), std::move(of_path));
}

std::wstring Disk::OwnerOf(std::wstring_view path) const
{
    const Hold hold(m_machine);
    return rights.OwnerOf(fs::weakly_canonical(HostPath(path)).string());
}

std::shared_ptr<OpenMode> Disk::OpenElsewhere(std::wstring_view path, DWORD access, DWORD share)
{
    const Hold hold(m_machine);
    return rights.Open(fs::weakly_canonical(HostPath(path)).string(), access, share);
}

std::shared_ptr<PipeListener> Disk::Listen(std::wstring_view name, std::wstring_view owner)
{
    const Hold hold(m_machine);
    auto listener = std::make_shared<PipeListener>(std::wstring(name), std::wstring(owner));
    const auto [place, fresh] = m_listeners.emplace(name, listener);
    if (!fresh) throw std::invalid_argument("pipe " + ToUtf8(name) + " has a listener already");
    return listener;
}

void Disk::Hangup(const std::shared_ptr<PipeListener>& listener)
{
    const Hold hold(m_machine);
    // After an earlier Hangup the name may belong to another listener.
    if (FindListener(listener->name()) == listener) m_listeners.erase(listener->name());
    listener->HangUp();
}

std::shared_ptr<PipeListener> Disk::FindListener(std::wstring_view name) const
{
    const Hold hold(m_machine);
    const auto found = m_listeners.find(std::wstring(name));
    return found != m_listeners.end() ? found->second : nullptr;
}

}  // namespace virtual_pc
