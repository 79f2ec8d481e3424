# A small tree that breaks no rule and has what the rules look for. The self-test plants each rule's
# violations into it.
use strict;
use warnings;

my $counts = 'Takes effect when the service next starts.';
my $switch = '<enabledValue><decimal value="1"/></enabledValue><disabledValue><decimal value="0"/></disabledValue>';
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
    'package/administration.md' => "# Page\n\n## Settings\n\n|---|---|---|---|\n| `Level` | 6 | 0 to 50 | How much. |\n"
        . "| `Plan` | none | text | Which. |\n| `Mute` | 1 | 0, 1 | Whether. |\n",
    'package/policies/Holv.admx' =>
        '<policy name="Level" presentation="$(presentation.Level)"><decimal id="Level" valueName="Level" required="true" minValue="0" maxValue="50"/></policy>'
        . "\n" . '<policy name="Plan" presentation="$(presentation.Plan)"><text id="Plan" valueName="Plan"/></policy>' . "\n"
        . "<policy name=\"Mute\" valueName=\"Mute\">$switch</policy>\n",
    'package/policies/en-US/Holv.adml' => join("\n",
        '<string id="Level">Level</string>', "<string id=\"Level_Help\">How much. From 0 to 50. Built-in: 6. $counts</string>",
        '<string id="Plan">Plan</string>', "<string id=\"Plan_Help\">Which. Built-in: none. $counts</string>",
        '<string id="Mute">Mute</string>', "<string id=\"Mute_Help\">Whether. Built-in: on. $counts</string>",
        '<presentation id="Level"><decimalTextBox defaultValue="6"/></presentation>', '<presentation id="Plan"></presentation>', ''),
    'package/defaults.reg' => "\"Level\"=dword:00000006\r\n\"Plan\"=\"0\"\r\n\"Mute\"=dword:00000001\r\n",
}
