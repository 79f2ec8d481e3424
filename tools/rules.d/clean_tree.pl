# A small tree that breaks no rule and has what the rules look for. The self-test plants each rule's
# violations into it.
use strict;
use warnings;
use Messages;
use Settings;

my $settings = "Level | User | bounded 0 to 50 | 6 | start | Level\n    How much.\n"
    . "Plan | User | text | 0 | start | Plan\n    Which.\nMute | User | switch | 1 | start | Mute\n    Whether.\n";
my %papers = Settings::papers("# Page\n\n| value | key |\n|---|---|\n", Settings::parse($settings));
{
    'run' => "#!/bin/sh\n# Plays a day of it. Usage: ./run\n",
    'docs/decisions.md' => "| place | choice | why |\n|---|---|---|\n| `log/log.cpp` `Log` | `SetEvent` once. | |\n| `machine` | | |\n",
    'docs/windows.md' => "| `SetEvent`, `CloseHandle` | Wine | |\n",
    'log/log.h' => "// Writes a line.\nvoid Log(HANDLE event);\n",
    'log/log.cpp' => "#include \"log/log.h\"\n\n#include \"platform/kernel.h\"\n\n"
        . "/* The caller's event. */\nvoid Log(HANDLE event)\n{\n    SetEvent(event);\n    CloseHandle(event);\n}\n",
    'platform/kernel.h' => "extern \"C\" {\n\nBOOL WINAPI SetEvent(HANDLE event);\nBOOL WINAPI CloseHandle(\n    HANDLE object);\n}\n",
    'platform/virtual/kernel_api.cpp' => "Function set_event{\"SetEvent\"};\nFunction close_handle{\"CloseHandle\",\n    Failing::last_error};\n"
        . "BOOL WINAPI SetEvent(HANDLE event)\n{\n    Call call(set_event);\n    return 1;\n}\n"
        . "BOOL WINAPI CloseHandle(HANDLE) { return Close(close_handle); }\n",
    'platform/virtual/machine.cpp' => "std::mutex g_hold;\n",
    'platform/owned.h' => "\n",
    'platform/lock.h' => "\n",
    'tests/log_test.cpp' => "TEST_F(Log, Writes)\n{\n    Log(0);\n}\n",
    'settings/settings_store.cpp' => "constexpr const wchar_t* kPlan = L\"Plan\";\nStoredSetting k[] = {\n"
        . "    {L\"Level\", &g_dwLevel, 2 * 3}, {kPlan, nullptr, 0}, {L\"Mute\", &g_bMute, 1},\n};\n"
        . "Bounds b[] = {{&g_dwLevel, 0, 50}};\n",
    %papers,
    'package/events.md' => Messages::page_of(),
    'tools/settings.txt' => $settings,
}
