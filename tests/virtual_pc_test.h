// The ground that every test on the virtual PC stands on: a machine of its own, and the promise
// that nothing is left open, misused or running when the test is over.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "platform/virtual/machine.h"

// The thread sanitizer sees the service only where its threads really run at once.
#ifdef HOLV_TESTS_RUN_FREE
inline constexpr bool kRunFree = true;
#else
inline constexpr bool kRunFree = false;
#endif

inline constexpr const wchar_t* kUserKey = LR"(HKLM\Software\Orbeq\Holv\User)";
inline constexpr const wchar_t* kOemKey = LR"(HKLM\Software\Orbeq\Holv\OEM)";
inline constexpr const wchar_t* kLogPath = LR"(C:\ProgramData\Orbeq\Holv\HOLVLog.txt)";

class VirtualPcTest : public ::testing::Test
{
protected:
    explicit VirtualPcTest(const virtual_pc::Machine::Options& options = {.free = kRunFree})
        : pc(options)
    {
        // Or the PC would fall asleep under a test that is about something else.
        pc.user.Works();
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

    // What was said since the last time, without who said it.
    std::wstring Said()
    {
        std::wstring said;
        const virtual_pc::Hold still(pc);
        for (; m_read < pc.outputs.debug().size(); ++m_read) {
            const std::wstring& line = pc.outputs.debug()[m_read].text;
            said += line.substr(line.find(L"   ") + 3);
        }
        return said;
    }

    // How often the debugger, which outlives processes, was told `text` since the last Forget.
    int TimesTold(const std::wstring& text) const
    {
        int times = 0;
        const virtual_pc::Hold still(pc);
        for (std::size_t i = m_forgotten; i < pc.outputs.debug().size(); ++i) {
            times += pc.outputs.debug()[i].text.find(text) != std::wstring::npos;
        }
        return times;
    }
    void Forget()
    {
        const virtual_pc::Hold still(pc);
        m_forgotten = pc.outputs.debug().size();
    }
    // How many lines it had been told then.
    std::size_t forgotten() const { return m_forgotten; }

    void TearDown() override
    {
        for (const auto& process : pc.processes()) {
            EXPECT_FALSE(process->running()) << "a process still runs at the test's end";
            if (!crash_is_expected) {
                EXPECT_FALSE(process->crashed()) << "a process ended by an exception";
            }
            if (left_open_is_expected) continue;
            for (const virtual_pc::LeftOpen& left : process->left_open()) {
                // The log writer lives until its process ends, and the system closes its file.
                if (left.name == kLogPath || left.name.starts_with(LR"(\\.\pipe\ZYTA_HOLV_IP1)")) {
                    continue;
                }
                ADD_FAILURE() << "left open: " << left.kind << " "
                              << std::string(left.name.begin(), left.name.end());
            }
        }
        for (const std::string& misuse : pc.misuses()) ADD_FAILURE() << "misuse: " << misuse;
    }

    virtual_pc::Machine pc;

    // For the few tests whose story it is.
    bool crash_is_expected = false;
    bool left_open_is_expected = false;

private:
    std::size_t m_read = 0;
    std::size_t m_forgotten = 0;
};
