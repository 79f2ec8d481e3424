#include "log/log_file.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <new>
#include <type_traits>
#include <utility>

#include "log/own_place.h"
#include "platform/module.h"

namespace {

constexpr LONG kMegabyte = 1 << 20;
constexpr LONG kDefaultMaxSize = 5 * kMegabyte;
constexpr DWORD kMaxMegabytes = 2047;

constexpr const wchar_t* kTracePipe = LR"(\\.\pipe\ZYTA_HOLV_IP1)";
constexpr const wchar_t* kRule = L"=====================================================";

LONG ReadMaxSize()
{
    OwnedKey key;
    DWORD megabytes = 0;
    DWORD size = sizeof(megabytes);
    if (RegOpenKeyW(HKEY_LOCAL_MACHINE, LR"(Software\Orbeq\Holv\User)", key.Receive()) !=
            ERROR_SUCCESS ||
        RegGetValueW(key.Get(), nullptr, L"LogFileSizeMB", RRF_RT_REG_DWORD, nullptr, &megabytes,
                     &size) != ERROR_SUCCESS ||
        megabytes == 0) {
        return kDefaultMaxSize;
    }
    // A larger size does not fit the 32-bit count of bytes and is limited to the largest that does.
    return static_cast<LONG>(std::min(megabytes, kMaxMegabytes)) * kMegabyte;
}

// The writer is never destroyed, so that a thread that logs while the process ends still finds it.
alignas(CLOGFile) std::byte g_storage[sizeof(CLOGFile)];
INIT_ONCE g_created = INIT_ONCE_STATIC_INIT;
std::atomic<CLOGFile*> g_instance{nullptr};

BOOL CALLBACK CreateInstance(PINIT_ONCE, PVOID, PVOID*)
{
    g_instance = new (g_storage) CLOGFile;
    return TRUE;
}

// Builds a line of bytes, and notes when it does not fit.
class LineBuilder
{
public:
    void Append(std::string_view text)
    {
        if (text.size() > Room()) {
            m_fits = false;
            return;
        }
        std::memcpy(m_line + m_length, text.data(), text.size());
        m_length += text.size();
    }
    void AppendBlanks(std::size_t count)
    {
        for (; count > 0; --count) Append(" ");
    }
    // At least `width` digits.
    void AppendNumber(DWORD number, DWORD base, std::size_t width)
    {
        char digits[10];
        char* first = std::end(digits);
        const auto count = [&] { return static_cast<std::size_t>(std::end(digits) - first); };
        for (; number != 0 || count() < width; number /= base) {
            *--first = "0123456789ABCDEF"[number % base];
        }
        Append({first, count()});
    }

    // Empty when it did not fit.
    std::string_view line() const { return {m_line, m_fits ? m_length : 0}; }

private:
    std::size_t Room() const { return sizeof(m_line) - m_length; }

    char m_line[1023];
    std::size_t m_length = 0;
    bool m_fits = true;
};

}  // namespace

// --- The one instance ---

CLOGFile* CLOGFile::Instance()
{
    CLOGFile* writer = g_instance.load(std::memory_order_acquire);
    if (!writer) {
        InitOnceExecuteOnce(&g_created, CreateInstance, nullptr, nullptr);
        writer = g_instance;
    }
    if (writer && !writer->m_bOpen) writer->Open();
    return writer;
}

CLOGFile::CLOGFile() : m_lMaxSize(ReadMaxSize()) {}

// --- Opening ---

void CLOGFile::Open()
{
    if (m_bOpen) return;
    TlsSetValue(m_dwTlsIndex, nullptr);
    const ScopedLock lock(m_Lock);
    if (m_bOpen) return;  // another thread was first
    m_bPipeMode = m_Tracer.Connect();
    if (m_bPipeMode) {
        m_bOpen = TRUE;
        return;
    }
    if (!OpenFile()) return;
    // Set before the header is written, because Write needs an open writer. The header still comes
    // first, because the lock is held.
    m_bOpen = TRUE;
    WriteHeader();
}

bool CLOGFile::OpenFile()
{
    wchar_t path[MAX_PATH];
    if (!BuildLogFilePath(path) || IsLink(path)) return false;
    m_hFile.Reset(CreateFileW(path, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                              OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!m_hFile) return false;
    if (!IsOwnFile(path, m_hFile.Get())) {
        m_hFile.Reset();
        return false;
    }
    SetFilePointer(m_hFile.Get(), 0, nullptr, FILE_END);
    return true;
}

bool CLOGFile::BuildLogFilePath(std::span<wchar_t> path) const
{
    wchar_t folder[MAX_PATH] = {};
    OwnedTaskString common;
    if (SUCCEEDED(SHGetKnownFolderPath(FOLDERID_ProgramData, KF_FLAG_CREATE, nullptr,
                                       common.Receive())) &&
        common) {
        FormatText(folder, LR"(%s\Orbeq)", common.Get());
        MakeSharedFolder(folder);
        FormatText(folder, LR"(%s\Orbeq\Holv)", common.Get());
    } else {
        wchar_t executable[MAX_PATH] = {};
        GetModuleFileNameW(nullptr, executable, MAX_PATH);
        if (wchar_t* const name = std::wcsrchr(executable, L'\\')) *name = L'\0';
        FormatText(folder, LR"(%s\Logs)", executable);
    }
    FormatText(path, LR"(%s\%s.txt)", folder, m_szLogName);
    return MakeOwnFolder(folder);
}

void CLOGFile::WriteHeader()
{
    SYSTEMTIME now{};
    GetLocalTime(&now);
    wchar_t executable[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, executable, MAX_PATH);
    WriteHeaderLine(L"%s", kRule);
    WriteHeaderLine(L"Log set to file on %02u.%02u.%04u, at %02u:%02u:%02u:%03u", now.wDay,
                    now.wMonth, now.wYear, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds);
    WriteHeaderLine(L"Executable: %s", executable);
    WriteHeaderLine(L"Compile time : %s %s", L"" __DATE__, L"" __TIME__);
    WriteHeaderLine(L"ProcessID: 0x%x", GetCurrentProcessId());
    WriteHeaderLine(L"HOLV Build Version # %s", L"" HOLV_BUILD_VERSION);
    WriteHeaderLine(L"Log File Size: %dMB", m_lMaxSize / kMegabyte);
    WriteHeaderLine(L"%s", kRule);
}

// --- Writing ---

void CLOGFile::WritePacked(LONG level, const wchar_t* format,
                           std::span<const FormatArgument> arguments)
{
    if (!m_bOpen || level > m_lMaxLevel) return;
    wchar_t text[1024];
    const FormatResult result = FormatPacked(text, format, arguments);
    if (!result.fits) return;
    char bytes[1024];
    std::size_t length = 0;
    for (const wchar_t character : std::wstring_view(text, result.length)) {
        if (static_cast<std::make_unsigned_t<wchar_t>>(character) > 0xFF) {
            length = 0;
            break;
        }
        bytes[length++] = static_cast<char>(character);
    }
    WriteLine(level, {bytes, length});
}

void CLOGFile::WriteLine(LONG level, std::string_view text)
{
    if (level > m_lMaxLevel) return;
    constexpr std::uintptr_t kMaxIndentation = 99;
    const ScopedLock lock(m_Lock);
    SYSTEMTIME now{};
    GetLocalTime(&now);
    LineBuilder line;
    line.AppendNumber(now.wHour, 10, 2);
    line.Append(":");
    line.AppendNumber(now.wMinute, 10, 2);
    line.Append(":");
    line.AppendNumber(now.wSecond, 10, 2);
    line.Append(":");
    line.AppendNumber(now.wMilliseconds, 10, 3);
    line.Append(",[t:0x");
    line.AppendNumber(GetCurrentThreadId(), 16, 1);
    line.Append("] : ");
    line.AppendBlanks(
        std::min(reinterpret_cast<std::uintptr_t>(TlsGetValue(m_dwTlsIndex)), kMaxIndentation));
    line.Append(text);
    line.Append(" [L=");
    line.AppendNumber(static_cast<DWORD>(level), 10, 1);
    line.Append("][M=NeverSleep]");
    line.Append(m_bPipeMode ? "\r\r" : "\r\n\r\r");
    if (line.line().empty()) return;
    if (m_bPipeMode) {
        m_Tracer.Write(line.line());  // a listener that has gone is ignored
    } else {
        WriteToFile(line.line());
    }
}

void CLOGFile::WriteToFile(std::string_view line)
{
    const DWORD position = SetFilePointer(m_hFile.Get(), 0, nullptr, FILE_CURRENT);
    if (position != INVALID_SET_FILE_POINTER && position > static_cast<DWORD>(m_lMaxSize)) {
        SetFilePointer(m_hFile.Get(), 0, nullptr, FILE_BEGIN);
    }
    DWORD written = 0;
    WriteFile(m_hFile.Get(), line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
    if (written < line.size()) FlushFileBuffers(m_hFile.Get());
}

// --- The trace pipe ---

// Any user's program may listen. Identification keeps it from acting in the service's name, and
// without waits one that does not read cannot hold up the threads that log.
bool CLOGFile::CTracer::Connect()
{
    OwnedFile pipe(CreateFileW(
        kTracePipe, GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
        FILE_ATTRIBUTE_NORMAL | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr));
    DWORD mode = PIPE_READMODE_BYTE | PIPE_NOWAIT;
    if (!pipe || !SetNamedPipeHandleState(pipe.Get(), &mode, nullptr, nullptr)) return false;
    m_hPipe = std::move(pipe);
    return true;
}

BOOL CLOGFile::CTracer::Write(std::string_view line)
{
    char bytes[2 * sizeof(m_rest)];
    std::memcpy(bytes, m_rest, m_restLength);
    std::memcpy(bytes + m_restLength, line.data(), line.size());
    const std::size_t size = m_restLength + line.size();
    DWORD written = 0;
    if (!WriteFile(m_hPipe.Get(), bytes, static_cast<DWORD>(size), &written, nullptr)) return FALSE;
    // A line that was not begun is dropped.
    const std::size_t begun = written > m_restLength ? size : m_restLength;
    m_restLength = begun - std::min<std::size_t>(written, begun);
    std::memcpy(m_rest, bytes + begun - m_restLength, m_restLength);
    return written == size;
}
