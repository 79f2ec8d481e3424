#include "service/command_line.h"

#include <algorithm>
#include <cwctype>
#include <string_view>

#include "service/program_rights.h"
#include "service/registration.h"
#include "state/never_sleep_state.h"

namespace {

HRESULT Register(bool service, RegisterFor whom)
{
    const HRESULT hr = RegisterAppId(service, whom);
    return FAILED(hr) ? hr : RegisterServer(whom);
}

HRESULT RegisterAsService()
{
    WarnOfWritableProgram();
    return Register(true, RegisterFor::machine);
}

HRESULT Unregister(RegisterFor whom)
{
    const HRESULT hr = UnregisterServer(whom);
    return FAILED(hr) ? hr : UnregisterAppId(whom);
}

// Runs the state machine without creating its events: its first wait fails, and it ends at once.
HRESULT RunStateMachine()
{
    CNeverSleepState::Run();
    return S_OK;
}

const struct Switch
{
    std::wstring_view word;
    HRESULT (*action)();
    BOOL continues;
} kSwitches[] = {
    {L"Service", RegisterAsService, FALSE},
    {L"UnregServer", [] { return Unregister(RegisterFor::machine); }, FALSE},
    {L"RegServer", [] { return Register(false, RegisterFor::machine); }, FALSE},
    {L"UnregServerPerUser", [] { return Unregister(RegisterFor::user); }, FALSE},
    {L"RegServerPerUser", [] { return Register(false, RegisterFor::user); }, FALSE},
    {L"Debug", RunStateMachine, TRUE},
};

bool SameWord(std::wstring_view a, std::wstring_view b)
{
    return std::ranges::equal(a, b, [](wchar_t x, wchar_t y) {
        return std::towlower(static_cast<wint_t>(x)) == std::towlower(static_cast<wint_t>(y));
    });
}

}  // namespace

BOOL ParseCommandLine(const wchar_t* commandLine, HRESULT& hr)
{
    constexpr const wchar_t* kSwitchCharacters = L"-/";
    const std::wstring_view line = commandLine;
    hr = S_OK;
    // The line starts with the executable's path. A hyphen in the path is tried like a switch and
    // matches no known word.
    for (auto at = line.find_first_of(kSwitchCharacters); at != line.npos;
         at = line.find_first_of(kSwitchCharacters, at + 1)) {
        const std::wstring_view rest = line.substr(at + 1);
        const std::wstring_view word = rest.substr(0, rest.find_first_of(L" \t\r\n"));
        for (const Switch& known : kSwitches) {
            if (!SameWord(known.word, word)) continue;
            hr = known.action();
            return known.continues;
        }
    }
    return TRUE;
}
