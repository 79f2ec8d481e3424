// Scripts with errors: the messages, and that no command of them is played.

#include <sstream>
#include <string>
#include <utility>

#include "tests/script_test.h"

namespace {

TEST_F(ScriptTest, WhatCannotBeUnderstoodIsNamedWithItsPlaceAndNothingIsDone)
{
    const std::pair<const char*, const char*> cases[] = {
        {"dance", "there is no command \"dance\""},
        {"reg set HKLM\\A b dword", "\"reg\" is used in one of these forms:"},
        {"reg set HKLM\\A b dword twelve", "\"twelve\" is no number"},
        {"reg set HKLM\\A b dword 0x100000000", "\"0x100000000\" is no number"},
        {"reg set HKLM\\A b word 1", "\"word\" is none of: dword string expand binary"},
        {"reg set HKXX\\A b dword 1", "does not begin with HKLM, HKCU or HKCR"},
        {"reg set HKLM\\A b binary 0g", "\"0x0g\" is no number"},
        {"clock 2026-13-02 21:30", "\"2026-13-02 21:30\" is no date and time"},
        {"run 30", "\"30\" is no time span"},
        {"run 300000000h", "\"300000000h\" is longer than a hundred years"},
        {"run 99999999999h", "\"99999999999h\" is no time span"},
        {"service kill at call 0", "calls are counted from 1"},
        {"run until 25:00", "\"25:00\" is no time of day"},
        {"run until state HOLV max 2h", "\"HOLV\" is no state; they are: S0_NORMAL"},
        {"signal EVENT_ENTER", "\"EVENT_ENTER\" is none of: EVENT_ENTER_S0"},
        {"power battery 101", "\"101\" is no charge of 0 to 100"},
        {"plan add Mine {1}", "\"{1}\" is no GUID of 36 characters"},
        {"plan set Balanced ac brightnes 5", "\"brightnes\" is none of: sleep-timeout wake-timers"},
        {"expect request sleep held", "\"sleep\" is none of: display system away"},
        {"client set E_NONE 1", "\"E_NONE\" is none of: E_HOLV_STATE"},
        {"client advise A explodes", "\"explodes\""},
        {"say \"never closed", "the quotation mark before \"never closed\" is never closed"},
        {"say \"glued\"on", "a blank is missing after \"glued\""},
    };
    for (const auto& [line, words] : cases) ExpectRefused(line, words);
}

TEST_F(ScriptTest, WhatAnUnkindPcCannotDoIsNamedWithItsPlaceAndWord)
{
    const std::pair<const char*, const char*> cases[] = {
        {"fault NoSuchFunction 5 once", "there is no platform function \"NoSuchFunction\""},
        {"fault GetTickCount64 5 once", "GetTickCount64 cannot fail"},
        {"fault GetLocalTime 5 for 1h on A", "GetLocalTime cannot fail"},
        {"fault CreateEventW pretends once", "CreateEventW cannot lie"},
        {"slow CloseHandle 1s", "CloseHandle takes no time"},
        {"fault WriteFile 5 rate 2", "\"2\" is no rate"},
        {"fault SetMute 5 for soon", "\"soon\" is no time span"},
        {"fault SetMute five always on Desk", "\"five\" is no number"},
        {"fault GetMute 5 done once", "GetMute cannot lie"},
        {"notices late early", "\"early\" is no time span"},
        {"notices tripled", "\"notices\" is used in one of these forms:"},
        {"meanwhile {", "the block is never closed"},
        {"}", "no block of meanwhile is open"},
    };
    for (const auto& [line, words] : cases) ExpectRefused(line, words);
}

TEST_F(ScriptTest, AFileOfAnEditorOfWindowsIsReadAndOneThatIsNoTextIsNotEchoed)
{
    EXPECT_EQ(Play("\xEF\xBB\xBFsay hi\r\n\r\nexpect service absent\r\n"), 0) << Errors();
    EXPECT_NE(story.str().find("-- hi"), std::string::npos);
    const std::pair<std::string, const char*> refused[] = {
        {std::string("\xFF\xFEs\0a\0", 6), "a.pc: is UTF-16; save it as UTF-8\n"},
        {"say \x1b[2J", "a.pc:1: this is no text: it has the byte \\x1b\n"},
        {std::string("say a\n\0\n", 8), "a.pc:2: this is no text: it has the byte \\x00\n"},
        {"say \xC2\x9B", "a.pc:1: this is no text: it has the byte \\x9b\n"},
    };
    for (const auto& [text, words] : refused) {
        EXPECT_EQ(Play(text), 2);
        EXPECT_EQ(Errors(), words);
    }
    EXPECT_EQ(Play("say \xC3\x9B"), 0) << Errors();
}

TEST_F(ScriptTest, AnExpectationThatIsNotMetStopsTheScriptAndSaysWhatIsSo)
{
    const std::pair<const char*, const char*> cases[] = {
        {"expect state S0_NORMAL", "expected state S0_NORMAL, but the service does not run"},
        {"expect log exit", "expected \"exit\" in the log, but it is not there"},
        {"expect reg HKLM\\A b 1", "expected HKLM\\A b to be 1, but it is not there"},
        {"expect event exit", "expected an event with \"exit\", but none of the 0 has it"},
        {"expect file C:\\x.txt", "expected the file C:\\x.txt, but it is not there"},
        {"plan active Quiet", "there is no plan \"Quiet\""},
        {"expect plan active \"power saver\"",
         "expected plan power saver active, but it is Balanced"},
        {"expect plan Balanced dc brightness 41",
         "expected Balanced dc brightness to be 41, but it is 40"},
        {"expect request away held", "expected request away held, but it is released"},
        {"expect device mode 1", "there is no platform device"},
        {"service stop", "the stop is refused with error 1060"},
        {"service start", "the start is refused with error 1060"},
        {"expect service running", "expected the service to be running, but it is absent"},
        {"pipe hangup A", "pipe A has no listener"},
        {"service kill", "the service's program does not run"},
        {"expect power off", "expected the PC to be off, but it is on"},
    };
    for (const auto& [line, words] : cases) {
        EXPECT_EQ(Play("say before # a comment\n" + std::string(line) + "\nsay after"), 1);
        EXPECT_EQ(Errors(), "a.pc:2: " + std::string(words) + "\n");
        EXPECT_NE(story.str().find("-- before"), std::string::npos);
        EXPECT_EQ(story.str().find("-- after"), std::string::npos);
    }
    EXPECT_EQ(Play("reg set HKLM\\A b dword 7\nexpect reg hklm\\a B 8"), 1);
    EXPECT_EQ(Errors(), "a.pc:2: expected hklm\\a B to be 8, but it is 7\n");
    EXPECT_EQ(Play("device add ACPI\\QRX5071\\1\nexpect device mode 1"), 1);
    EXPECT_EQ(Errors(), "a.pc:2: expected device mode 1, but it has no mode yet\n");
    EXPECT_EQ(Play("service install\nservice start\nexpect state HOLV_DND"), 1);
    EXPECT_EQ(Errors(), "a.pc:3: expected state HOLV_DND, but it is S0_NORMAL\n");
    EXPECT_EQ(Play("service install\nservice start\nrun until state HOLV_S3 max 2h"), 1);
    EXPECT_EQ(Errors(), "a.pc:3: expected state HOLV_S3 within 2h, but it is HOLV_IDLE\n");
}

TEST_F(ScriptTest, ACommandThatWaitsGivesUpInTime)
{
    EXPECT_EQ(Play("service install\nservice start\nrun until end max 2h"), 1);
    EXPECT_EQ(Errors(), "a.pc:3: the service's program has not ended within 2h\n");
    EXPECT_EQ(Play("battery charge 1/h\npower battery 50\npower ac\nsleep\nclient quit"), 1);
    EXPECT_EQ(Errors(), "a.pc:5: UI has not ended within five minutes\n");
    EXPECT_EQ(Play("client quit\nservice install\nservice start\nservice stop"), 0) << Errors();
}

TEST_F(ScriptTest, CommandsMeanwhileHappenAtOneInstant)
{
    EXPECT_EQ(Play("meanwhile {\nsay a\nrun 1s\n}"), 2);
    EXPECT_EQ(Errors(), "a.pc:3: \"run\" cannot happen at one instant\n");
    const std::string start = "service install\nservice start\nuser works\nrun 1m\n";
    // The first signal is answered before the second is given, unless both are given at once.
    EXPECT_EQ(Play(start + "signal EVENT_ENTER_ACTIVE\nexpect state HOLV_ACTIVE\n"), 0);
    // Threads that run free run in the block as well.
    const std::string within = kRunFree ? "" : "expect state S0_NORMAL\n";
    EXPECT_EQ(Play(start + "meanwhile {\nsignal EVENT_ENTER_ACTIVE\n" + within +
                   "}\nexpect state HOLV_ACTIVE\n"),
              0)
        << Errors();
}

}  // namespace
