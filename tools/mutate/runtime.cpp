// Answers a mutated file's questions. Linked into each image that has the file in it, and its data
// is the image's own.
//
//   HOLV_FAULT=N              the fault that is in effect
//   HOLV_FAULT_QUESTIONS=N    after so many questions the process ends: the fault made a loop
//   endless.
//                             A count, and not a clock, so that a busy host changes no result
//   HOLV_FAULTS_REACHED=FILE  where to count the questions (8 bytes), and mark those asked (a byte
//   each)

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>

namespace {

constexpr std::size_t kMostFaults = 16384;

struct Reached
{
    std::atomic<std::uint64_t> questions;
    std::atomic<unsigned char> asked[kMostFaults];
};

std::uint64_t Number(const char* variable)
{
    const char* const text = std::getenv(variable);
    return text ? std::strtoull(text, nullptr, 10) : 0;
}

struct Run
{
    Run()
    {
        const char* const path = std::getenv("HOLV_FAULTS_REACHED");
        if (!path) return;
        const int file = open(path, O_RDWR);
        if (file < 0) std::abort();
        void* const shared =
            mmap(nullptr, sizeof(Reached), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        if (shared == MAP_FAILED) std::abort();
        reached = static_cast<Reached*>(shared);
        close(file);
    }

    const std::uint64_t fault = Number("HOLV_FAULT");
    const std::uint64_t most = Number("HOLV_FAULT_QUESTIONS");
    std::atomic<std::uint64_t> questions = 0;
    Reached* reached = nullptr;
};

Run& TheRun()
{
    // Never destroyed: threads may ask until the process has ended.
    static Run* const run = new Run;
    return *run;
}

}  // namespace

__attribute__((visibility("hidden"))) bool HolvFault(int id)
{
    Run& run = TheRun();
    if (run.reached) {
        ++run.reached->questions;
        run.reached->asked[static_cast<std::size_t>(id)] = 1;
    }
    if (run.most != 0 && ++run.questions > run.most) {
        constexpr char kSays[] = "the fault made a loop endless\n";
        if (write(STDERR_FILENO, kSays, sizeof kSays - 1) < 0) _exit(99);
        _exit(98);
    }
    return run.fault == static_cast<std::uint64_t>(id);
}
