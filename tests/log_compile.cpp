// A call that builds, and calls that must not: WRONG says which.

#include "log/log.h"

void Report(HRESULT hr, const char* bytes, ULONGLONG now)
{
#if WRONG == 0
    Log(3, L"Report", L"%S at %I64u, hr=0x%x\n", bytes, now, hr);
#elif WRONG == 1  // an 8-bit string for a wide one
    Log(3, L"Report", L"%s at %I64u, hr=0x%x\n", bytes, now, hr);
#elif WRONG == 2  // 64 bits for 32
    Log(3, L"Report", L"%S at %u, hr=0x%x\n", bytes, now, hr);
#elif WRONG == 3  // one argument too few
    Log(3, L"Report", L"%S at %I64u, hr=0x%x\n", bytes, now);
#elif WRONG == 4  // one too many
    Log(3, L"Report", L"%S at %I64u\n", bytes, now, hr);
#endif
}
