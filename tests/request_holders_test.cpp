// How the system's listing of power requests is read.

#include "power/request_holders.h"

#include <gtest/gtest.h>

namespace {

using Holders = std::optional<std::vector<RequestHolder>>;

Holders Read(const std::vector<const wchar_t*>& lines)
{
    RequestListing listing;
    for (const wchar_t* const line : lines) listing.Take(line);
    return listing.Holders();
}

TEST(RequestHoldersTest, EachHolderHasTheRequestAboveItAndTheReasonBelowIt)
{
    EXPECT_EQ(Read({L"DISPLAY:\r\n", L"None.\r\n", L"\r\n", L"SYSTEM:\n",
                    L"[PROCESS]   \\Device\\C\\Copy: all.exe\n", L"Copying: 3 of 4\n",
                    L"[DRIVER] Sound (HDAUDIO)\n", L"[SERVICE]\n", L"Waits\n", L"and waits\n",
                    L"\n", L"AWAYMODE:", L"[PROCESS] x"}),
              Holders({{L"SYSTEM", L"PROCESS", L"\\Device\\C\\Copy: all.exe", L"Copying: 3 of 4"},
                       {L"SYSTEM", L"DRIVER", L"Sound (HDAUDIO)", L""},
                       {L"SYSTEM", L"SERVICE", L"", L"Waits"},
                       {L"AWAYMODE", L"PROCESS", L"x", L""}}));
}

TEST(RequestHoldersTest, AnEmptyLineOrAHeadingEndsTheWaitForAReason)
{
    EXPECT_EQ(Read({L"SYSTEM:", L"[PROCESS] x", L"", L"A reason without a holder"}),
              Holders({{L"SYSTEM", L"PROCESS", L"x", L""}}));
    EXPECT_EQ(Read({L"SYSTEM:", L"[PROCESS] x", L"DISPLAY:", L"None."}),
              Holders({{L"SYSTEM", L"PROCESS", L"x", L""}}));
    EXPECT_EQ(Read({L"SYSTEM:", L"[PROCESS] x", L"Waits for this:"}),
              Holders({{L"SYSTEM", L"PROCESS", L"x", L"Waits for this:"}}));
    EXPECT_EQ(Read({L"SYSTEM:", L"[PROCESS", L"]"}), Holders(std::vector<RequestHolder>{}));
}

TEST(RequestHoldersTest, OutputOfAnotherFormIsNoListing)
{
    EXPECT_EQ(Read({}), std::nullopt);
    EXPECT_EQ(Read({L"This command requires administrator privileges:", L"[PROCESS] x"}),
              std::nullopt);
    EXPECT_EQ(Read({L"SYSTEM:"}), Holders(std::vector<RequestHolder>{}));
}

}  // namespace
