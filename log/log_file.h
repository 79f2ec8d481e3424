// The log writer: writes one line per message into the log file or, if a trace listener is present
// when the writer opens, into the listener's pipe.
#pragma once

#include <atomic>
#include <string_view>

#include "log/format.h"
#include "platform/lock.h"
#include "platform/owned.h"

class CLOGFile
{
public:
    // The process's one writer, created by the first call. While it is not open, every call tries
    // to open it. It lives until the process ends. Null when it cannot be created. Any thread.
    static CLOGFile* Instance();

    CLOGFile();
    virtual ~CLOGFile() = default;
    CLOGFile(const CLOGFile&) = delete;
    CLOGFile& operator=(const CLOGFile&) = delete;

    // Connects to the trace pipe, or else opens the log file at its end and writes the header. Does
    // nothing when already open; stays closed when neither can be opened.
    void Open();

    // Writes one line, unless the writer is closed, the level is above its maximum, or the text is
    // longer than 1023 characters. A text with a character above U+00FF is written as empty.
    template <class... Args>
    void Write(LONG level, FormatFor<Args...> format, const Args&... args)
    {
        const PackedArguments<Args...> packed{FormatArgument(args)...};
        WritePacked(level, format.text(), packed);
    }
    template <class... Args>
    void WriteHeaderLine(FormatFor<Args...> format, const Args&... args)
    {
        Write(kHeaderLevel, format, args...);
    }

    // Writes one line of 8-bit text with its time, thread, level and module; a line of more than
    // 1023 bytes is dropped whole. Past the maximum size the file is written from its start again.
    void WriteLine(LONG level, std::string_view text);

private:
    class CTracer
    {
    public:
        virtual ~CTracer() = default;

        // Connects to the pipe. False when no listener has opened it, or writing to it could wait.
        bool Connect();
        // Writes one line. TRUE when all its bytes were written. Never waits: a line for which the
        // listener has no room is dropped. Of one that a byte pipe has begun to take, the rest is
        // written before the next.
        BOOL Write(std::string_view line);

    private:
        OwnedFile m_hPipe;
        char m_rest[1023];
        std::size_t m_restLength = 0;
    };

    static constexpr LONG kHeaderLevel = 5;

    void WritePacked(LONG level, const wchar_t* format, std::span<const FormatArgument> arguments);
    bool OpenFile();
    void WriteHeader();
    // Writes the log file's full path into `path`, and creates its folders. False where they are
    // links or a user's.
    bool BuildLogFilePath(std::span<wchar_t> path) const;
    void WriteToFile(std::string_view line);

    LONG m_lMaxLevel = 16;
    LONG m_lMaxSize;  // bytes
    BOOL m_bPipeMode = FALSE;
    CTracer m_Tracer;
    wchar_t m_szLogName[MAX_PATH] = L"HOLVLog";
    OwnedFile m_hFile;
    CriticalSection m_Lock;  // serialises opening and every line
    std::atomic<BOOL> m_bOpen{FALSE};
    DWORD m_dwTlsIndex = TlsAlloc();  // each thread's indentation depth
};
