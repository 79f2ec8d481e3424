// The restore journal's bytes: whatever they are, they are passed over, or read as entries that are
// written and read again as the same.

#include <vector>

#include "fuzz/input.h"
#include "restore/journal_format.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::vector<BYTE> bytes(data, data + size);
    const auto entries = ReadJournal(bytes);
    if (!entries) return 0;
    const std::vector<BYTE> written = WriteJournal(*entries);
    const auto again = ReadJournal(written);
    if (!again || WriteJournal(*again) != written)
        RingAlarm("a journal is not read as it was written");
    return 0;
}
