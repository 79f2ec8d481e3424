// The disk C: as a folder of the host, and the named pipes that somebody listens on.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/file.h"
#include "platform/virtual/handles.h"

namespace virtual_pc {

class Machine;

// The end of a pipe that a script or a test opens, to hear what the service writes.
class PipeListener
{
public:
    explicit PipeListener(std::wstring name) : m_name(std::move(name)) {}
    const std::wstring& name() const { return m_name; }
    // Everything heard so far.
    std::string heard;
    // Whether somebody has the other end open.
    bool connected = false;

private:
    std::wstring m_name;
};

class Disk
{
public:
    // `folder` becomes C:\ and is made when missing; empty for a folder of the disk's own, removed
    // with it.
    Disk(Machine& machine, const std::filesystem::path& folder);
    ~Disk();
    Disk(const Disk&) = delete;
    Disk& operator=(const Disk&) = delete;

    // Where a path of the PC lies on the host, whatever its letter case; missing parts keep the
    // spelling asked for. Throws std::invalid_argument for a path that is not on C:.
    std::filesystem::path HostPath(std::wstring_view path) const;

    // A file's bytes; nothing when it is not there.
    std::optional<std::string> Read(std::wstring_view path) const;
    // Writes a file and the folders on its way.
    void Write(std::wstring_view path, std::string_view bytes);

    // A listener of \\.\pipe\NAME, until Hangup. Writers then get ERROR_NO_DATA.
    std::shared_ptr<PipeListener> Listen(std::wstring_view name);
    void Hangup(const std::shared_ptr<PipeListener>& listener);
    std::shared_ptr<PipeListener> FindListener(std::wstring_view name) const;

    // Bytes that may still be written before the disk is full; unlimited unless set.
    std::optional<std::uint64_t> space_left;

private:
    Machine& m_machine;
    std::filesystem::path m_folder;
    bool m_own = false;
    std::map<std::wstring, std::shared_ptr<PipeListener>> m_listeners;
};

}  // namespace virtual_pc
