// Files, folders, pipes, the standard output and known folders.

#include "platform/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <cwchar>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "platform/security.h"
#include "platform/virtual/base/names.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/console/outputs.h"
#include "platform/virtual/core/call.h"
#include "platform/virtual/core/process.h"
#include "platform/virtual/devices/device.h"
#include "platform/virtual/disk/descriptor.h"
#include "platform/virtual/disk/disk.h"

using namespace virtual_pc;

namespace {

namespace fs = std::filesystem;

// Codes that only this file returns.
constexpr DWORD kErrorSharingViolation = 32;
constexpr DWORD kErrorNegativeSeek = 131;
constexpr DWORD kErrorPipeBusy = 231;
constexpr DWORD kErrorInvalidOwner = 1307;

// The handle of the standard output: the same for every process, and not counted as open. The
// numbers of the handle table begin above it.
const HANDLE kConsole = reinterpret_cast<HANDLE>(std::uintptr_t{7});

// The Win32 codes of the host's errors; any other error becomes ERROR_GEN_FAILURE.
constexpr std::pair<int, DWORD> kErrors[] = {
    {ENOENT, ERROR_FILE_NOT_FOUND}, {ENOTDIR, ERROR_PATH_NOT_FOUND}, {EEXIST, ERROR_ALREADY_EXISTS},
    {EACCES, ERROR_ACCESS_DENIED},  {EISDIR, ERROR_ACCESS_DENIED},   {EROFS, ERROR_ACCESS_DENIED},
    {EPERM, ERROR_ACCESS_DENIED},   {ENOSPC, ERROR_DISK_FULL},
};

DWORD ErrorOf(int host_error)
{
    const auto row = std::ranges::find(kErrors, host_error, &std::pair<int, DWORD>::first);
    return row != std::end(kErrors) ? row->second : ERROR_GEN_FAILURE;
}

// --- Files and pipes ---

class Writable : public Object
{
public:
    Writable(std::wstring name, DWORD access) : m_name(std::move(name)), m_access(access) {}
    std::wstring Name() const override { return m_name; }
    bool MayWrite() const { return (m_access & GENERIC_WRITE) != 0; }

    // Writes as many bytes as it can and sets `written` to their number. Returns an error code.
    // Called on thread `self`, which may wait.
    virtual DWORD Write(Machine& machine, Thread& self, std::string_view bytes, DWORD& written) = 0;
    // Flushes the written bytes to the disk, where they outlive a power cut.
    virtual void Flush() {}

protected:
    // Effect "write": the `path` written to, the `offset` of the first byte and the bytes as
    // `text`, each as the character of its value.
    void Record(Machine& machine, std::uint64_t offset, std::string_view bytes) const
    {
        if (!machine.journal.Listened("write")) return;
        const auto* const first = reinterpret_cast<const unsigned char*>(bytes.data());
        std::wstring text(first, first + bytes.size());
        machine.journal.Record("write",
                               {{"path", m_name}, {"offset", offset}, {"text", std::move(text)}});
    }

private:
    std::wstring m_name;
    DWORD m_access;
};

class DiskFile final : public Writable
{
public:
    DiskFile(std::wstring name, std::shared_ptr<OpenMode> mode, int file,
             std::shared_ptr<FileWrites> writes)
        : Writable(std::move(name), mode->access),
          m_mode(std::move(mode)),
          m_file(file),
          m_writes(std::move(writes))
    {
        m_writes->size = Size();
    }
    ~DiskFile() override { close(m_file); }
    std::string_view Kind() const override { return "file"; }

    std::uint64_t position() const { return m_position; }
    void MoveTo(std::uint64_t position) { m_position = position; }
    std::uint64_t Size() const
    {
        struct stat status
        {
        };
        fstat(m_file, &status);
        return static_cast<std::uint64_t>(status.st_size);
    }

    DWORD Write(Machine& machine, Thread&, std::string_view bytes, DWORD& written) override
    {
        std::optional<std::uint64_t>& space = machine.disk.space_left;
        const std::uint64_t end = space ? std::max(Size(), m_position) : 0;
        if (space) bytes = bytes.substr(0, end - m_position + *space);
        if (bytes.empty()) return ERROR_DISK_FULL;
        Note(machine, bytes.size());
        const ssize_t taken =
            pwrite(m_file, bytes.data(), bytes.size(), static_cast<off_t>(m_position));
        if (taken < 0) return ErrorOf(errno);
        bytes = bytes.substr(0, static_cast<std::size_t>(taken));
        Record(machine, m_position, bytes);
        m_position += bytes.size();
        m_writes->size = std::max(m_writes->size, m_position);
        if (space && m_position > end) *space -= m_position - end;
        written = static_cast<DWORD>(bytes.size());
        return NO_ERROR;
    }

    DWORD Names() const
    {
        struct stat status
        {
        };
        fstat(m_file, &status);
        return static_cast<DWORD>(status.st_nlink);
    }
    bool MayRead() const { return m_mode && (m_mode->access & GENERIC_READ) != 0; }
    DWORD Read(void* data, DWORD size)
    {
        const ssize_t taken = pread(m_file, data, size, static_cast<off_t>(m_position));
        const auto count = static_cast<DWORD>(std::max<ssize_t>(taken, 0));
        m_position += count;
        return count;
    }

    void Closed() override { m_mode.reset(); }
    void Flush() override { m_writes->writes.clear(); }

private:
    // Before bytes are written at the position.
    void Note(Machine& machine, std::uint64_t length)
    {
        const std::uint64_t size = m_writes->size;
        FileWrites::Write write{machine.now(), m_position, length, size, {}, false};
        if (m_position < size) {
            write.before.resize(std::min(length, size - m_position));
            const ssize_t read = pread(m_file, write.before.data(), write.before.size(),
                                       static_cast<off_t>(m_position));
            write.before.resize(static_cast<std::size_t>(std::max<ssize_t>(read, 0)));
        }
        machine.disk.Note(*m_writes, std::move(write));
    }

    std::shared_ptr<OpenMode> m_mode;
    int m_file;
    const std::shared_ptr<FileWrites> m_writes;
    std::uint64_t m_position = 0;
};

class PipeEnd final : public Writable
{
public:
    PipeEnd(std::wstring name, DWORD access, std::shared_ptr<PipeListener> listener)
        : Writable(std::move(name), access), m_listener(std::move(listener))
    {
        m_listener->connected = true;
    }
    std::string_view Kind() const override { return "pipe"; }
    void Closed() override { m_listener->connected = false; }
    void Wait(bool waits) { m_waits = waits; }

    DWORD Write(Machine& machine, Thread& self, std::string_view bytes, DWORD& written) override
    {
        if (!m_listener->listening()) return ERROR_NO_DATA;
        const std::uint64_t offset = m_listener->heard.size();
        if (!m_waits) {
            written = static_cast<DWORD>(m_listener->WriteAtOnce(machine, bytes));
            if (written) Record(machine, offset, bytes.substr(0, written));
            return NO_ERROR;
        }
        Record(machine, offset, bytes);
        if (const DWORD error = m_listener->Write(machine, self, bytes)) return error;
        written = static_cast<DWORD>(bytes.size());
        return NO_ERROR;
    }

private:
    std::shared_ptr<PipeListener> m_listener;
    bool m_waits = true;
};

// --- Opening ---

HANDLE FailToOpen(Call& call, DWORD error)
{
    call.Fail(error);
    return INVALID_HANDLE_VALUE;
}

bool StartsWith(std::wstring_view text, std::wstring_view beginning)
{
    const std::wstring start(text.substr(0, beginning.size()));
    const NoCase before;
    return !before(start, std::wstring(beginning)) && !before(std::wstring(beginning), start);
}

// The host's path of a path on the PC; nothing, with the last error set, for a path that is not on
// the disk, whose folder is missing, or that has a character which no name may have.
std::optional<fs::path> HostPlace(Call& call, LPCWSTR path)
{
    if (std::wcspbrk(path, L"<>\"|?*")) {
        call.Fail(ERROR_INVALID_NAME);
        return std::nullopt;
    }
    try {
        fs::path host = call.machine.disk.HostPath(path);
        std::error_code error;
        if (fs::is_directory(host.parent_path(), error)) return host;
    } catch (const std::invalid_argument&) {
        // No such path.
    }
    call.Fail(ERROR_PATH_NOT_FOUND);
    return std::nullopt;
}

constexpr DWORD kImpersonationLevels = 0x00030000;
constexpr std::wstring_view kPipes = LR"(\\.\pipe\)";

HANDLE OpenPipe(Call& call, std::wstring_view path, DWORD access, DWORD flags)
{
    auto listener = call.machine.disk.FindListener(path.substr(kPipes.size()));
    if (!listener) return FailToOpen(call, ERROR_FILE_NOT_FOUND);
    if (listener->connected) return FailToOpen(call, kErrorPipeBusy);
    // Unless the caller limits it, the listener may act in the caller's name.
    const DWORD level =
        (flags & SECURITY_SQOS_PRESENT) ? flags & kImpersonationLevels : SECURITY_IMPERSONATION;
    listener->may_impersonate = level >= SECURITY_IMPERSONATION;
    std::wstring name = std::wstring(kPipes) + listener->name();
    return call.Open(std::make_shared<PipeEnd>(std::move(name), access, std::move(listener)));
}

// Opens a name outside the disks, by the first row whose beginning fits; a name that fits no row is
// opened as a device.
struct DeviceNames
{
    std::wstring_view beginning;
    HANDLE (*open)(Call& call, std::wstring_view path, DWORD access, DWORD flags);
};
constexpr DeviceNames kDeviceNames[] = {{kPipes, OpenPipe}};

HANDLE OpenDevice(Call& call, std::wstring_view path, DWORD access, DWORD flags)
{
    for (const DeviceNames& names : kDeviceNames) {
        if (StartsWith(path, names.beginning)) return names.open(call, path, access, flags);
    }
    DWORD error = NO_ERROR;
    std::shared_ptr<Object> device = call.machine.devices.OpenPath(path, error);
    return device ? call.Open(std::move(device)) : FailToOpen(call, error);
}

// A creation disposition, the host's flags for it, and whether CreateFileW sets the last error to
// ERROR_ALREADY_EXISTS for a file that existed.
struct Disposition
{
    DWORD disposition;
    int flags;
    bool tells;
};
constexpr Disposition kDispositions[] = {{CREATE_ALWAYS, O_CREAT | O_TRUNC, true},
                                         {OPEN_EXISTING, 0, false},
                                         {OPEN_ALWAYS, O_CREAT, true}};

// Where a file lies, with links followed; the path itself where it does not exist yet.
std::string PlaceOf(const fs::path& host)
{
    // Its folder exists nearly always: asking for that one name is cheaper than for each of the
    // path.
    std::error_code error;
    const fs::path folder = fs::canonical(host.parent_path(), error);
    if (!error && !fs::is_symlink(host, error)) return (folder / host.filename()).string();
    const fs::path place = fs::weakly_canonical(host, error);
    return (error ? host : place).string();
}

HANDLE OpenFile(Call& call, LPCWSTR path, DWORD access, DWORD share, DWORD disposition)
{
    const auto how = std::ranges::find(kDispositions, disposition, &Disposition::disposition);
    if (how == std::end(kDispositions)) return FailToOpen(call, ERROR_INVALID_PARAMETER);
    if (path[std::wcslen(path) - 1] == L'\\') return FailToOpen(call, ERROR_PATH_NOT_FOUND);
    const std::optional<fs::path> host = HostPlace(call, path);
    if (!host) return INVALID_HANDLE_VALUE;
    std::error_code error;
    if (fs::is_directory(*host, error)) return FailToOpen(call, ERROR_ACCESS_DENIED);
    const bool existed = fs::exists(*host, error);
    FileRights& rights = call.machine.disk.rights;
    const std::string place = PlaceOf(*host);
    const bool creates = !existed && (how->flags & O_CREAT);
    if ((access & GENERIC_WRITE || creates) && !rights.MayWrite(place, UserOf(call))) {
        return FailToOpen(call, ERROR_ACCESS_DENIED);
    }
    auto mode = rights.Open(place, access, share);
    if (!mode) return FailToOpen(call, kErrorSharingViolation);
    constexpr mode_t kMode = 0644;
    FileWrites::Write opening{call.machine.now(), 0, 0, 0, {}, !existed};
    if (existed && (how->flags & O_TRUNC))
        opening.before = call.machine.disk.Read(path).value_or("");
    opening.size_before = opening.before.size();
    const int file = open(host->c_str(), O_RDWR | O_CLOEXEC | how->flags, kMode);
    if (file < 0) return FailToOpen(call, ErrorOf(errno));
    if (creates) rights.Made(place, UserOf(call));
    call.thread.last_error = how->tells && existed ? ERROR_ALREADY_EXISTS : NO_ERROR;
    auto writes = call.machine.disk.WritesOf(host->string());
    if (!existed || !opening.before.empty()) call.machine.disk.Note(*writes, std::move(opening));
    return call.Open(std::make_shared<DiskFile>(path, std::move(mode), file, std::move(writes)));
}

Function fn_create_file{"CreateFileW"};
Function fn_write_file{"WriteFile"};
Function fn_read_file{"ReadFile"};
Function fn_set_named_pipe_handle_state{"SetNamedPipeHandleState"};
Function fn_set_file_pointer{"SetFilePointer"};
Function fn_flush_file_buffers{"FlushFileBuffers"};
Function fn_create_directory{"CreateDirectoryW"};
Function fn_get_file_information{"GetFileInformationByHandle"};
Function fn_get_std_handle{"GetStdHandle"};

}  // namespace

extern "C" {

HANDLE WINAPI CreateFileW(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES,
                          DWORD disposition, DWORD flags, HANDLE)
{
    Call call(fn_create_file);
    if (call.Fails()) return INVALID_HANDLE_VALUE;
    if (!path || !*path) return FailToOpen(call, ERROR_PATH_NOT_FOUND);
    if (StartsWith(path, LR"(\\.\)") || StartsWith(path, LR"(\\?\)")) {
        constexpr DWORD kAllShares = 7;  // for reading, writing and deleting
        if (disposition != OPEN_EXISTING || (share & ~kAllShares)) {
            return FailToOpen(call, ERROR_INVALID_PARAMETER);
        }
        return OpenDevice(call, path, access, flags);
    }
    return OpenFile(call, path, access, share, disposition);
}

BOOL WINAPI WriteFile(HANDLE file, LPCVOID data, DWORD size, LPDWORD written,
                      OVERLAPPED* overlapped)
{
    Call call(fn_write_file);
    if (!written || overlapped) return call.Fail(ERROR_INVALID_PARAMETER);
    *written = 0;
    if (call.Fails()) return FALSE;
    const std::string_view bytes(static_cast<const char*>(data), data ? size : 0);
    if (file == kConsole) {
        call.machine.outputs.Console(bytes);
        *written = size;
        return TRUE;
    }
    const auto target = call.FindShared<Writable>(file);
    if (!target) return FALSE;
    if (!target->MayWrite()) return call.Fail(ERROR_ACCESS_DENIED);
    if (size == 0) return TRUE;
    if (!data) return call.Fail(ERROR_INVALID_USER_BUFFER);
    const DWORD error = target->Write(call.machine, call.thread, bytes, *written);
    return error == NO_ERROR ? TRUE : call.Fail(error);
}

BOOL WINAPI ReadFile(HANDLE handle, LPVOID data, DWORD size, LPDWORD read, OVERLAPPED* overlapped)
{
    Call call(fn_read_file);
    if (!read || overlapped) return call.Fail(ERROR_INVALID_PARAMETER);
    *read = 0;
    if (call.Fails()) return FALSE;
    auto* file = call.Find<DiskFile>(handle);
    if (!file) return FALSE;
    if (!file->MayRead()) return call.Fail(ERROR_ACCESS_DENIED);
    if (!data && size > 0) return call.Fail(ERROR_NOACCESS);
    *read = file->Read(data, size);
    return TRUE;
}

BOOL WINAPI SetNamedPipeHandleState(HANDLE handle, LPDWORD mode, LPDWORD count, LPDWORD timeout)
{
    Call call(fn_set_named_pipe_handle_state);
    if (call.Fails()) return FALSE;
    auto* pipe = call.Find<PipeEnd>(handle);
    if (!pipe) return FALSE;
    if (!pipe->MayWrite()) return call.Fail(ERROR_ACCESS_DENIED);
    // Reading in messages, or a number of bytes after which to send, are for pipes that differ.
    if (count || timeout || (mode && *mode & ~PIPE_NOWAIT)) {
        return call.Fail(ERROR_INVALID_PARAMETER);
    }
    if (mode) pipe->Wait(!(*mode & PIPE_NOWAIT));
    return TRUE;
}

DWORD WINAPI SetFilePointer(HANDLE handle, LONG distance, LONG* distanceHigh, DWORD method)
{
    Call call(fn_set_file_pointer);
    if (call.Fails()) return INVALID_SET_FILE_POINTER;
    const auto fail = [&](DWORD error) {
        call.Fail(error);
        return INVALID_SET_FILE_POINTER;
    };
    auto* file = call.Find<DiskFile>(handle);
    if (!file) return INVALID_SET_FILE_POINTER;
    if (method > FILE_END) return fail(ERROR_INVALID_PARAMETER);
    std::int64_t from = 0;
    if (method == FILE_CURRENT) from = static_cast<std::int64_t>(file->position());
    if (method == FILE_END) from = static_cast<std::int64_t>(file->Size());
    std::int64_t by = distance;
    if (distanceHigh) by = std::int64_t{*distanceHigh} << 32 | static_cast<DWORD>(distance);
    // Without distanceHigh the new position must fit in 32 bits.
    const std::int64_t most = distanceHigh ? INT64_MAX : std::int64_t{UINT32_MAX};
    if (from + std::min<std::int64_t>(by, 0) < 0) return fail(kErrorNegativeSeek);
    if (by > most - from) return fail(ERROR_INVALID_PARAMETER);
    const std::int64_t to = from + by;
    file->MoveTo(static_cast<std::uint64_t>(to));
    if (distanceHigh) *distanceHigh = static_cast<LONG>(to >> 32);
    const auto low = static_cast<DWORD>(to);
    // The low half of a valid position may equal the failure; the last error tells them apart.
    if (low == INVALID_SET_FILE_POINTER) call.thread.last_error = NO_ERROR;
    return low;
}

BOOL WINAPI FlushFileBuffers(HANDLE file)
{
    Call call(fn_flush_file_buffers);
    if (call.Fails()) return FALSE;
    auto* target = call.Find<Writable>(file);
    if (!target) return FALSE;
    if (!target->MayWrite()) return call.Fail(ERROR_ACCESS_DENIED);
    target->Flush();
    return TRUE;
}

BOOL WINAPI GetFileInformationByHandle(HANDLE handle, BY_HANDLE_FILE_INFORMATION* information)
{
    Call call(fn_get_file_information);
    if (call.Fails()) return FALSE;
    const auto* file = call.Find<DiskFile>(handle);
    if (!file) return FALSE;
    *information = {};
    information->nFileSizeHigh = static_cast<DWORD>(file->Size() >> 32);
    information->nFileSizeLow = static_cast<DWORD>(file->Size());
    information->nNumberOfLinks = file->Names();
    return TRUE;
}

BOOL WINAPI CreateDirectoryW(LPCWSTR path, LPSECURITY_ATTRIBUTES attributes)
{
    Call call(fn_create_directory);
    if (call.Fails()) return FALSE;
    if (!path || !*path) return call.Fail(ERROR_PATH_NOT_FOUND);
    std::wstring name = path;
    constexpr std::size_t kRootLength = 3;  // of "C:\\"
    if (name.size() > kRootLength && name.ends_with(L'\\')) name.pop_back();
    const std::optional<fs::path> host = HostPlace(call, name.c_str());
    if (!host) return FALSE;
    FileRights& rights = call.machine.disk.rights;
    const std::string place = PlaceOf(*host);
    std::error_code error;
    if (!fs::exists(*host, error) && !rights.MayWrite(place, UserOf(call))) {
        return call.Fail(ERROR_ACCESS_DENIED);
    }
    if (!MayGiveAway(UserOf(call), attributes)) return call.Fail(kErrorInvalidOwner);
    constexpr mode_t kMode = 0755;
    if (mkdir(host->c_str(), kMode) != 0) return call.Fail(ErrorOf(errno));
    MakeWith(rights, place, UserOf(call), attributes);
    return TRUE;
}

HANDLE WINAPI GetStdHandle(DWORD which)
{
    Call call(fn_get_std_handle);
    if (call.Fails()) return INVALID_HANDLE_VALUE;
    return which == STD_OUTPUT_HANDLE ? kConsole : FailToOpen(call, ERROR_INVALID_HANDLE);
}
}
