#include "service/unhandled_exception.h"

#include "log/log.h"
#include "platform/kernel.h"

LONG WINAPI theUnhandledExceptionHandler(EXCEPTION_POINTERS* exceptionPointers)
{
    const EXCEPTION_RECORD& record = *exceptionPointers->ExceptionRecord;
    // Four parameters are always logged: the array has room for them whatever its count says. The
    // line shows the low 32 bits of each.
    const auto parameter = [&record](int index) {
        return static_cast<DWORD>(record.ExceptionInformation[index]);
    };
    Log(3, L"theUnhandledExceptionHandler",
        L"[TID: 0x%x] Exception - address (0x%p) - code (0x%x) -parameters(%x, %x, %x, %x)\n",
        GetCurrentThreadId(), record.ExceptionAddress, record.ExceptionCode, parameter(0),
        parameter(1), parameter(2), parameter(3));
    return EXCEPTION_CONTINUE_SEARCH;
}
