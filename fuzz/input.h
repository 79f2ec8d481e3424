// What the fuzz targets share.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>

// Called by libFuzzer for each input, on one thread. Returns 0.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

inline std::string_view TextOf(const std::uint8_t* data, std::size_t size)
{
    return {reinterpret_cast<const char*>(data), size};
}

// An input as a file of the host, in its memory. The same file for every input of a program.
class InputFile
{
public:
    explicit InputFile(std::string_view bytes)
    {
        const auto size = static_cast<off_t>(bytes.size());
        if (ftruncate(Host(), size) != 0 || pwrite(Host(), bytes.data(), bytes.size(), 0) != size) {
            std::perror("the file of an input");
            std::abort();
        }
    }
    std::string path() const { return "/proc/self/fd/" + std::to_string(Host()); }

private:
    static int Host()
    {
        static const int file = memfd_create("input", MFD_CLOEXEC);
        return file;
    }
};

// Ends the program, which libFuzzer reports with the input.
[[noreturn]] inline void RingAlarm(const std::string& what)
{
    std::fprintf(stderr, "%s\n", what.c_str());
    std::abort();
}

// What is wrong with a file is told by its path and a line.
inline void ExpectPlace(const std::runtime_error& error, const std::string& path)
{
    const std::string_view text = error.what();
    if (!text.starts_with(path)) RingAlarm("an error that names no place: " + std::string(text));
}

// Gives the input to a reader of files. An error that it throws must name the file.
template <class Read>
int FeedFile(const std::uint8_t* data, std::size_t size, const Read& read)
{
    const InputFile file(TextOf(data, size));
    try {
        read(file.path());
    } catch (const std::runtime_error& error) {
        ExpectPlace(error, file.path());
    }
    return 0;
}
