#include "state/state_trail.h"

#include <algorithm>
#include <array>
#include <atomic>

#include "platform/kernel.h"

namespace {

// A note is one number, so that a reader needs no lock: the time, and the state in the low bits.
constexpr unsigned kStateBits = 3;
constexpr std::uint64_t kStateMask = (1u << kStateBits) - 1;
static_assert(HOLV_INIT <= kStateMask);

constexpr std::uint64_t kKept = 64;
std::array<std::atomic<std::uint64_t>, kKept> g_notes;
std::atomic<std::uint64_t> g_noted = 0;

StateNote Read(std::uint64_t number)
{
    const std::uint64_t note = g_notes[number % kKept];
    return {static_cast<ESystemState>(note & kStateMask), note >> kStateBits};
}

}  // namespace

void NoteState(ESystemState state)
{
    const std::uint64_t number = g_noted;
    g_notes[number % kKept] =
        GetTickCount64() << kStateBits | static_cast<std::uint64_t>(std::int32_t{state});
    g_noted = number + 1;
}

std::uint64_t StatesNoted() { return g_noted; }

std::vector<StateNote> StateNotesFrom(std::uint64_t number)
{
    const std::uint64_t noted = g_noted;
    std::vector<StateNote> notes;
    number = std::max(number, noted > kKept ? noted - kKept : 0);
    for (; number < noted; ++number) notes.push_back(Read(number));
    return notes;
}

StateNote LastStateNote()
{
    const std::uint64_t noted = g_noted;
    return noted == 0 ? StateNote{HOLV_INIT, 0} : Read(noted - 1);
}
