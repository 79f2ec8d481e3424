#include "restore/turn.h"

#include "platform/kernel.h"
#include "platform/last_error.h"

namespace {

constexpr const wchar_t* kName = LR"(Global\HOLVRestore)";
constexpr DWORD kPauseMs = 50;

// Empty while another process holds the name.
OwnedHandle Claim()
{
    OwnedHandle name(CreateMutexW(nullptr, FALSE, kName));
    if (name && GetLastError() == ERROR_ALREADY_EXISTS) name.Reset();
    return name;
}

}  // namespace

RestoreTurn::RestoreTurn(DWORD patienceMs)
{
    const LastErrorKeeper kept;
    m_name = Claim();
    for (DWORD waited = 0; !m_name && waited < patienceMs; waited += kPauseMs) {
        Sleep(kPauseMs);
        m_name = Claim();
    }
}
