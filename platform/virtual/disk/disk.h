// The disk C: as a folder of the host, and the named pipes that a script or a test listens on.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/file.h"
#include "platform/virtual/base/names.h"
#include "platform/virtual/base/time.h"
#include "platform/virtual/disk/file_rights.h"
#include "platform/virtual/disk/pipe.h"

namespace virtual_pc {

class Machine;

// What was written to a file and is not on the disk yet (unwritten.h), latest last.
struct FileWrites
{
    struct Write
    {
        Instant at;
        std::uint64_t offset;
        std::uint64_t length;
        std::uint64_t size_before;
        std::string before;    // the bytes that were written over, or cut off
        bool creates = false;  // the file was not there before
    };

    std::uint64_t size = 0;  // of the file
    std::deque<Write> writes = {};
};

class Disk
{
public:
    // `folder` becomes C:\ and is made when missing; empty for a folder of the disk's own, removed
    // with it. A disk has C:\ProgramData and C:\Windows from the start.
    Disk(Machine& machine, const std::string& folder);
    ~Disk();
    Disk(const Disk&) = delete;
    Disk& operator=(const Disk&) = delete;

    // Where a path of the PC lies on the host, whatever its letter case; missing parts keep the
    // spelling asked for. Throws std::invalid_argument for a path that is not on C:, or that goes
    // upwards by "..".
    std::string HostPath(std::wstring_view path) const;

    // A file's bytes; nothing when it is not there.
    std::optional<std::string> Read(std::wstring_view path) const;
    // Writes a file and the folders on its way. Throws std::runtime_error when the host cannot
    // write it.
    void Write(std::wstring_view path, std::string_view bytes);

    // Makes a file or folder that is a link to another place; links on the way are followed.
    void Link(std::wstring_view path, std::wstring_view target);
    // Sets the owner of a file or folder and the users who may write it. Creating the file anew
    // resets both.
    void SetRights(std::wstring_view path, FileRights::Rights rights);
    std::wstring OwnerOf(std::wstring_view path) const;
    // Opens a file as another program would; null when the service has it open and does not share
    // it for that access.
    std::shared_ptr<OpenMode> OpenElsewhere(std::wstring_view path, DWORD access, DWORD share);
    // Keyed by the files' paths on the host, after links. The caller holds the machine.
    FileRights rights;

    // A listener of \\.\pipe\NAME, until Hangup. Writers then get ERROR_NO_DATA.
    std::shared_ptr<PipeListener> Listen(std::wstring_view name,
                                         std::wstring_view owner = L"SYSTEM");
    void Hangup(const std::shared_ptr<PipeListener>& listener);
    std::shared_ptr<PipeListener> FindListener(std::wstring_view name) const;

    // Bytes by which files may still grow before the disk is full; unlimited unless set. Writing
    // over a file's old bytes takes none.
    std::optional<std::uint64_t> space_left;

    // --- For the platform functions, with the machine held ---
    // By the file's path on the host.
    std::shared_ptr<FileWrites> WritesOf(const std::string& host);
    // Notes a write before it is made.
    void Note(FileWrites& file, FileWrites::Write write);
    // The power was cut: of the writes that are not on the disk yet the first stay, as many as the
    // seed says, and a part of the next.
    void Lose();

private:
    Machine& m_machine;
    std::string m_folder;
    bool m_own = false;
    std::map<std::wstring, std::shared_ptr<PipeListener>, NoCase> m_listeners;
    std::map<std::string, std::shared_ptr<FileWrites>> m_writes;
};

}  // namespace virtual_pc
