// Some days of a PC (tests/week.pc): their story, with what "holvctl report" says in the course of
// them, and the pages that it writes, as tests/expected/week.txt has them. After a change that is
// meant, HOLV_KEEP_WEEK=1 writes that file anew, and its difference is to be read.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>

#include "pc/player.h"
#include "tests/lines.h"

namespace fs = std::filesystem;

namespace {

const fs::path kTests = HOLV_SOURCE_DIR "/tests";

Lines LinesOf(std::istream&& text)
{
    Lines lines;
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
}

// What the page shows: all but its style.
std::string Shown(const fs::path& page)
{
    std::ifstream file(page, std::ios::binary);
    const std::string html(std::istreambuf_iterator<char>(file), {});
    EXPECT_EQ(html.find("http"), html.npos) << page << " needs another file";
    const std::size_t body = html.find("<body>");
    return body == html.npos ? "no page" : html.substr(body);
}

TEST(WeekTest, ItsStoryAndItsReportTellWhatHappened)
{
    const fs::path folder = fs::temp_directory_path() / ("holv-week-" + std::to_string(getpid()));
    const PlayOptions options{.machine = {.root = folder},
                              .image = HOLV_IMAGE,
                              .resources = HOLV_SOURCE_DIR "/resources"};
    std::ostringstream told, errors;
    EXPECT_EQ(PlayScripts({kTests / "week.pc"}, options, told, errors), 0) << errors.str();
    told << Shown(folder / "C/days.html") << Shown(folder / "C/week.html");
    fs::remove_all(folder);
    const std::regex objects(R"(\},\{)");  // of JSON: a line each
    const std::string text = std::regex_replace(told.str(), objects, "},\n{");
    const fs::path expected = kTests / "expected/week.txt";
    if (std::getenv("HOLV_KEEP_WEEK")) std::ofstream(expected) << text;
    EXPECT_LINES(LinesOf(std::istringstream(text)), LinesOf(std::ifstream(expected)));
}

}  // namespace
