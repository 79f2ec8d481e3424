// The fixture of every test on the virtual PC: a machine of its own, and the check that nothing is
// left open, misused or running when the test ends.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "platform/virtual/core/machine.h"
#include "platform/virtual/core/process.h"
#include "platform/virtual/disk/disk.h"
#include "platform/virtual/power/user.h"
#include "platform/virtual/registry/registry.h"
#include "tests/heard.h"
#include "tests/lines.h"
#include "tests/printers.h"
#include "tests/seeds.h"

inline constexpr const wchar_t* kUserKey = LR"(HKLM\Software\Orbeq\Holv\User)";
inline constexpr const wchar_t* kOemKey = LR"(HKLM\Software\Orbeq\Holv\OEM)";
inline constexpr const wchar_t* kLogPath = LR"(C:\ProgramData\Orbeq\Holv\HOLVLog.txt)";

// What a process had left open at its end, a piece of text for each; empty for nothing. The log
// file does not count: it stays open as long as the process, and the system closes it.
std::string LeftOpenBy(const virtual_pc::Process& process);

// No process runs any more, has crashed or has left anything open, and no call was misused.
void ExpectNothingLeft(const virtual_pc::Machine& pc, bool but_for_what_is_open = false,
                       bool but_for_crashes = false);

class VirtualPcTest : public ::testing::Test
{
protected:
    explicit VirtualPcTest(const virtual_pc::Machine::Options& options = DrawnSchedule())
        : pc(options)
    {
        // Constant input keeps the PC awake; tests about sleep stop it.
        pc.user.Works();
    }

    // A setting of the service, before it starts.
    void Set(const wchar_t* setting, DWORD value)
    {
        pc.registry.SetDword(kUserKey, setting, value);
    }

    // Runs `body` as a process of the PC, from its start to its end.
    void RunAsProcess(std::function<void()> body)
    {
        virtual_pc::Process& process = pc.Start([&] {
            body();
            return 0;
        });
        pc.RunUntilEnd(process);
    }

    // The log file's bytes; empty when there is none.
    std::string LogBytes() const { return pc.disk.Read(kLogPath).value_or(""); }

    void TearDown() override { ExpectNothingLeft(pc, left_open_is_expected, crash_is_expected); }

    virtual_pc::Machine pc;
    Heard heard{pc};

    // Set by the few tests that are about such ends.
    bool crash_is_expected = false;
    bool left_open_is_expected = false;
};
