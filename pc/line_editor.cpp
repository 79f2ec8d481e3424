#include "pc/line_editor.h"

#include <histedit.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cwchar>

#include "pc/stop_signals.h"
#include "platform/virtual/base/text.h"

using namespace virtual_pc;

namespace {

constexpr int kTickMilliseconds = 50;

std::string CommonBeginning(const std::vector<std::string>& words)
{
    std::string common = words.front();
    for (const std::string& word : words) {
        const auto differ = std::ranges::mismatch(common, word);
        common.erase(differ.in1, common.end());
    }
    return common;
}

}  // namespace

struct LineEditor::Library
{
    Library(Terminal& on, Hooks with) : terminal(on), hooks(std::move(with)) {}
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    static Library& Of(EditLine* of);
    static char* Prompt(EditLine* of);
    static unsigned char Complete(EditLine* of, int key);
    static int GetCharacter(EditLine* of, wchar_t* character);

    void Tick();
    void Replace(const std::string& begun, const std::string& word) const;
    int ReadCharacter(wchar_t* character) const;

    Terminal& terminal;
    Hooks hooks;
    EditLine* editor = nullptr;
    History* history = nullptr;
    HistEvent event{};
    std::string history_file;
    std::string prompt;  // as it was drawn last
};

LineEditor::Library::~Library()
{
    if (history && !history_file.empty()) {
        ::history(history, &event, H_SAVE, history_file.c_str());
    }
    if (editor) el_end(editor);
    if (history) history_end(history);
}

LineEditor::Library& LineEditor::Library::Of(EditLine* of)
{
    void* data = nullptr;
    el_get(of, EL_CLIENTDATA, &data);
    return *static_cast<Library*>(data);
}

char* LineEditor::Library::Prompt(EditLine* of)
{
    Library& library = Of(of);
    library.prompt = library.hooks.prompt();
    return library.prompt.data();
}

void LineEditor::Library::Replace(const std::string& begun, const std::string& word) const
{
    el_deletestr(editor, static_cast<int>(FromUtf8(begun).size()));
    el_insertstr(editor, word.c_str());
}

// Completes the word before the cursor as far as it is certain, and lists what it may become.
unsigned char LineEditor::Library::Complete(EditLine* of, int)
{
    const Library& library = Of(of);
    const LineInfo* line = el_line(of);
    const std::string typed(line->buffer, line->cursor);
    const Completion found = library.hooks.complete(typed);
    if (found.words.empty()) return CC_REFRESH_BEEP;
    if (found.words.size() == 1) {
        library.Replace(found.begun, found.words.front() + " ");
        return CC_REFRESH;
    }
    const std::string common = CommonBeginning(found.words);
    if (common.size() > found.begun.size()) {
        library.Replace(found.begun, common);
        return CC_REFRESH;
    }
    std::fputs("\n", stdout);
    for (const std::string& word : found.words) std::printf("%s  ", word.c_str());
    std::fputs("\n", stdout);
    std::fflush(stdout);
    return CC_REDISPLAY;
}

// Lets the PC live, and draws the line anew where the prompt has changed or something was printed.
void LineEditor::Library::Tick()
{
    hooks.idle();
    const bool erased = terminal.TakeErased();
    if (!erased && hooks.prompt() == prompt) return;
    if (!erased) terminal.EraseLastLine();
    terminal.TakeErased();
    el_set(editor, EL_REFRESH);
}

// Reads one character of UTF-8: 1, or 0 at the end of the input.
int LineEditor::Library::ReadCharacter(wchar_t* character) const
{
    std::mbstate_t state{};
    while (true) {
        char byte = 0;
        const ssize_t count = read(STDIN_FILENO, &byte, 1);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return 0;
        const std::size_t result = std::mbrtowc(character, &byte, 1, &state);
        if (result == static_cast<std::size_t>(-1)) state = {};
        if (result <= 1) return 1;
    }
}

int LineEditor::Library::GetCharacter(EditLine* of, wchar_t* character)
{
    Library& library = Of(of);
    while (StopSignal() == 0) {
        pollfd input{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0};
        if (poll(&input, 1, kTickMilliseconds) > 0) return library.ReadCharacter(character);
        library.Tick();
    }
    errno = EINTR;
    return -1;
}

LineEditor::LineEditor(Terminal& terminal, Hooks hooks, const std::string& history_file)
    : m_library(std::make_unique<Library>(terminal, std::move(hooks)))
{
    std::setlocale(LC_CTYPE, "C.UTF-8");
    Library& library = *m_library;
    library.history_file = history_file;
    library.history = history_init();
    library.editor = el_init("holvpc", stdin, stdout, stderr);
    if (!library.history || !library.editor) throw SetupError("the terminal cannot be edited on");
    ::history(library.history, &library.event, H_SETSIZE, 1000);
    ::history(library.history, &library.event, H_SETUNIQUE, 1);
    if (!history_file.empty()) {
        ::history(library.history, &library.event, H_LOAD, history_file.c_str());
    }
    EditLine* const editor = library.editor;
    el_set(editor, EL_CLIENTDATA, &library);
    el_set(editor, EL_EDITOR, "emacs");
    el_set(editor, EL_PROMPT, &Library::Prompt);
    el_set(editor, EL_HIST, ::history, library.history);
    el_set(editor, EL_ADDFN, "holv-complete", "Completes a word", &Library::Complete);
    el_set(editor, EL_BIND, "^I", "holv-complete", nullptr);
    el_set(editor, EL_BIND, "^R", "em-inc-search-prev", nullptr);
    el_set(editor, EL_GETCFN, &Library::GetCharacter);
}

LineEditor::~LineEditor() = default;

std::optional<std::string> LineEditor::Read()
{
    Library& library = *m_library;
    library.terminal.LeaveLastLine(true);
    library.terminal.TakeErased();
    int count = 0;
    const char* line = el_gets(library.editor, &count);
    library.terminal.LeaveLastLine(false);
    if (!line || count <= 0) {
        std::fputs("\n", stdout);
        std::fflush(stdout);
        if (StopSignal() != SIGINT) return std::nullopt;
        ForgetStopSignal();
        return std::string{};
    }
    std::string text(line, static_cast<std::size_t>(count));
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    if (!text.empty()) ::history(library.history, &library.event, H_ENTER, text.c_str());
    return text;
}
