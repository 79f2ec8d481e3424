#include "tests/heard.h"

#include <sstream>

#include "platform/virtual/base/text.h"
#include "platform/virtual/console/outputs.h"
#include "platform/virtual/core/machine.h"
#include "tests/virtual_pc_test.h"

using virtual_pc::ToUtf8;

namespace {

constexpr std::string_view kSpeaks = "HOLV - ";
constexpr std::string_view kBehindSpeaker = "   ";
constexpr std::string_view kBeforeText = "] : ";
constexpr std::string_view kBehindText = " [L=";
constexpr char kHeaderLevel = '5';

// The level of a message in the log file, by its text.
char LevelIn(const std::string& log, const std::string& text)
{
    const std::string line = std::string(kBeforeText) + text + std::string(kBehindText);
    const std::size_t at = log.find(line);
    return at == log.npos ? '?' : log[at + line.size()];
}

}  // namespace

void Heard::Forget()
{
    const virtual_pc::Hold still(m_pc);
    m_mark = m_from == From::debugger ? m_pc.outputs.debug().size() : FileBytes().size();
}

std::string Heard::FileBytes() const { return m_pc.disk.Read(kLogPath).value_or(""); }

Lines Heard::DebuggerSinceMark() const
{
    Lines lines;
    const virtual_pc::Hold still(m_pc);
    const auto& heard = m_pc.outputs.debug();
    for (std::size_t i = m_mark; i < heard.size(); ++i) lines.push_back(ToUtf8(heard[i].text));
    return lines;
}

std::vector<HeardLine> Heard::FileSinceMark() const
{
    std::vector<HeardLine> lines;
    const std::string log = FileBytes();
    for (std::size_t at = m_mark; (at = log.find(kBeforeText, at)) != log.npos;) {
        at += kBeforeText.size();
        const std::size_t end = log.find(kBehindText, at);
        if (end == log.npos) break;
        const char level = log[end + kBehindText.size()];
        if (level != kHeaderLevel) lines.push_back({"", log.substr(at, end - at), level});
        at = end;
    }
    return lines;
}

std::vector<HeardLine> Heard::All(std::string_view who) const
{
    if (m_from == From::log_file) return FileSinceMark();
    const std::string log = FileBytes();
    std::vector<HeardLine> lines;
    for (const std::string& line : DebuggerSinceMark()) {
        const std::size_t split = line.find(kBehindSpeaker);
        if (split == line.npos || !line.starts_with(kSpeaks)) continue;
        HeardLine heard{line.substr(kSpeaks.size(), split - kSpeaks.size()),
                        line.substr(split + kBehindSpeaker.size())};
        if (heard.who.find(who) == heard.who.npos) continue;
        heard.level = LevelIn(log, heard.text);
        lines.push_back(heard);
    }
    return lines;
}

Lines Heard::Said(std::string_view who) const
{
    Lines said;
    for (const HeardLine& line : All(who)) said.push_back(line.text);
    return said;
}

Lines Heard::SaidWithLevels() const
{
    Lines said;
    for (const HeardLine& line : All()) said.push_back(std::string{line.level} + " " + line.text);
    return said;
}

int Heard::Times(std::string_view text) const
{
    int times = 0;
    if (m_from == From::log_file) {
        for (const HeardLine& line : FileSinceMark()) times += line.text.find(text) != text.npos;
    } else {
        for (const std::string& line : DebuggerSinceMark()) times += line.find(text) != text.npos;
    }
    return times;
}

Lines Heard::Take(std::string_view who)
{
    Lines said = Said(who);
    Forget();
    return said;
}

Lines Heard::TakeWithLevels()
{
    Lines said = SaidWithLevels();
    Forget();
    return said;
}

bool Heard::TakeHas(std::string_view text)
{
    const bool has = Has(text);
    Forget();
    return has;
}

StateChanges ExpectUnbrokenChain(const Heard& heard)
{
    StateChanges changes;
    for (const HeardLine& line : heard.All()) {
        if (!line.text.starts_with("State update ")) continue;
        std::istringstream words(line.text);
        std::string state, update, from, arrow, to;
        words >> state >> update >> from >> arrow >> to;
        EXPECT_EQ(from, changes.last) << "after " << changes.count << " changes";
        changes.last = to;
        ++changes.count;
    }
    return changes;
}
