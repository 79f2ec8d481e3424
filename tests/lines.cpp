#include "tests/lines.h"

#include <algorithm>
#include <fstream>

namespace {

// At [i][j]: how many lines the first list from line i on and the second from line j on have in
// common, in order.
using CommonTable = std::vector<std::vector<std::size_t>>;

CommonTable CommonRests(const Lines& a, const Lines& b)
{
    CommonTable common(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = a.size(); i-- > 0;) {
        for (std::size_t j = b.size(); j-- > 0;) {
            common[i][j] = a[i] == b[j] ? common[i + 1][j + 1] + 1
                                        : std::max(common[i + 1][j], common[i][j + 1]);
        }
    }
    return common;
}

std::string Shown(char sign, std::size_t number, const std::string& line)
{
    return "\n  " + std::string{sign} + " " + std::to_string(number) + ": " +
           testing::PrintToString(line);
}

}  // namespace

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
    const CommonTable common = CommonRests(expected, actual);
    std::string shown;
    bool differs = true;  // the last line told is one that is missing or too many
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < expected.size() || j < actual.size()) {
        const bool same = i < expected.size() && j < actual.size() && expected[i] == actual[j];
        if (same) {
            // Only the lines next to a difference.
            const bool next_differs = i + 1 < expected.size() && j + 1 < actual.size() &&
                                      expected[i + 1] != actual[j + 1];
            if (differs || next_differs) shown += Shown(' ', j, actual[j]);
            differs = false;
            ++i;
            ++j;
            continue;
        }
        differs = true;
        if (j == actual.size() || (i < expected.size() && common[i + 1][j] >= common[i][j + 1])) {
            shown += Shown('-', i, expected[i]);
            ++i;
        } else {
            shown += Shown('+', j, actual[j]);
            ++j;
        }
    }
    return testing::AssertionFailure()
           << actual.size() << " lines, " << expected.size() << " expected:" << shown;
}
