#include "tests/lines.h"

#include <algorithm>
#include <fstream>

std::vector<Block> BlocksOf(const std::string& file)
{
    std::ifstream stream(HOLV_SOURCE_DIR "/tests/expected/" + file);
    std::vector<Block> blocks;
    for (std::string line; std::getline(stream, line);) {
        if (line.empty() || line[0] == '#') continue;
        if (line[0] == '[') {
            blocks.push_back({line.substr(1, line.size() - 2), {}});
            continue;
        }
        const std::size_t end = line.find("\\n");
        blocks.back().lines.push_back(end == line.npos ? line : line.replace(end, 2, "\n"));
    }
    return blocks;
}

Lines BlockOf(const std::string& file, const std::string& title)
{
    const std::vector<Block> blocks = BlocksOf(file);
    const auto found = std::ranges::find(blocks, title, &Block::title);
    if (found != blocks.end()) return found->lines;
    ADD_FAILURE() << "tests/expected/" << file << " has no [" << title << "]";
    return {};
}

std::string Joined(const Lines& lines)
{
    std::string text;
    for (const std::string& line : lines) text += line;
    return text;
}

testing::AssertionResult SameLines(const Lines& actual, const Lines& expected)
{
    if (actual == expected) return testing::AssertionSuccess();
    // The form in which GoogleTest itself shows how two texts of several lines differ.
    return testing::AssertionFailure()
           << actual.size() << " lines, " << expected.size() << " expected:\n"
           << testing::internal::edit_distance::CreateUnifiedDiff(expected, actual);
}
