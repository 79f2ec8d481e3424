// A line of commands as it is typed at a terminal: editing, history and completion.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "pc/screen.h"
#include "pc/vocabulary.h"

class LineEditor
{
public:
    struct Hooks
    {
        std::function<std::string()> prompt;
        std::function<Completion(std::string_view line)> complete;
        // Called now and then while the line waits for the next key; what it prints goes above.
        std::function<void()> idle;
    };

    // The history is kept in the file, unless that is empty. Throws SetupError.
    LineEditor(Terminal& terminal, Hooks hooks, const std::string& history_file);
    ~LineEditor();
    LineEditor(const LineEditor&) = delete;
    LineEditor& operator=(const LineEditor&) = delete;

    // The next line; nothing at the end of the input. A line that is interrupted is empty.
    std::optional<std::string> Read();

private:
    struct Library;
    std::unique_ptr<Library> m_library;
};
