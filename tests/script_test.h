// The ground of tests that play scripts of their own.
#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <unistd.h>

#include "pc/player.h"
#include "tests/virtual_pc_test.h"

class ScriptTest : public ::testing::Test
{
protected:
    ScriptTest()
    {
        m_folder =
            std::filesystem::temp_directory_path() / ("holv-script-" + std::to_string(getpid()));
        std::filesystem::create_directories(m_folder);
        options.machine.free = kRunFree;
        options.image = HOLV_IMAGE;
        options.resources = std::filesystem::path(HOLV_SOURCE_DIR) / "resources";
    }
    ~ScriptTest() override { std::filesystem::remove_all(m_folder); }

    int Play(const std::string& text)
    {
        const std::filesystem::path script = m_folder / "a.pc";
        std::ofstream(script) << text;
        story.str("");
        errors.str("");
        return PlayScripts({script}, options, story, errors);
    }

    // What was said, without the folder.
    std::string Errors() const
    {
        std::string text = errors.str();
        const std::string folder = m_folder.string() + "/";
        for (auto at = text.find(folder); at != text.npos; at = text.find(folder)) {
            text.erase(at, folder.size());
        }
        return text;
    }

    // The line is refused with these words and its place, and nothing is played.
    void ExpectRefused(const std::string& line, const std::string& words)
    {
        EXPECT_EQ(Play("say first\n\n" + line + "\n"), 2) << line;
        EXPECT_TRUE(Errors().starts_with("a.pc:3: ")) << line << ": " << Errors();
        EXPECT_NE(Errors().find(words), std::string::npos) << line << ": " << Errors();
        EXPECT_EQ(story.str(), "") << line;
    }

    std::filesystem::path m_folder;
    PlayOptions options;
    std::ostringstream story;
    std::ostringstream errors;
};
