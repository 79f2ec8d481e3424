#include "pc/story.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "pc/story_words.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/core/process.h"

using namespace virtual_pc;

namespace {

// Programs notice a cause after some of its effects have been seen, or act before they say why.
// A line of a cause goes before the lines of its effects.
struct Order
{
    Topic cause;
    unsigned effects;
};
constexpr Order kOrders[] = {
    {kState, kPlan | kDevice | kMute | kRequest},
    {kSleep, kRequestEnded},
    {kUserBack, kAwayEnds | kDisplay},
    {kKilled, kRequest | kServiceStatus},
};

}  // namespace

// The lines of the present instant, and where they go. Used with the machine held.
class Story::Lines
{
public:
    struct Line
    {
        std::string text;
        Topic topic = kAny;
        // Of a plan: the one that was active before.
        std::string before;
        std::string plan;
    };

    explicit Lines(std::ostream& out) : m_out(out) {}

    void Hear(const Effect& effect);
    void Add(CalendarTime clock, Line line);
    void Print();
    void End() { m_ended = true; }

private:
    bool Follows(const Effect& effect);
    void Join(Line& line);
    std::vector<Line>::iterator PlaceOf(const Line& line);

    std::ostream& m_out;
    std::string m_day;  // of the last printed line
    CalendarTime m_clock{};
    std::vector<Line> m_lines;
    bool m_ended = false;
    bool m_shuts_down = false;
    bool m_off = false;
};

// Whether the effect follows from the PC's being switched off: every program ends with it.
bool Story::Lines::Follows(const Effect& effect)
{
    if (effect.kind == "power switch") {
        const std::wstring what = effect.Text("what");
        m_shuts_down = what == L"shuts down";
        m_off = what == L"cut" || what == L"off";
        return false;
    }
    if (effect.kind == "process") return m_off || (m_shuts_down && effect.Number("killed"));
    return m_off && (effect.kind == "request" || effect.kind == "service status");
}

void Story::Lines::Hear(const Effect& effect)
{
    if (m_ended || Follows(effect)) return;
    Told told = TellEffect(effect);
    if (told.text.empty()) return;
    Line line{std::move(told.text), told.topic, {}, {}};
    if (line.topic == kPlan) {
        line.before = ToUtf8(effect.Text("before"));
        line.plan = ToUtf8(effect.Text("plan"));
    }
    Add(effect.clock, std::move(line));
}

void Story::Lines::Add(CalendarTime clock, Line line)
{
    if (clock != m_clock) Print();
    m_clock = clock;
    Join(line);
    m_lines.insert(PlaceOf(line), std::move(line));
}

// Of several plans that one state's entry or leave passes through, and of the device's modes, one
// line tells.
void Story::Lines::Join(Line& line)
{
    if (line.topic != kPlan && line.topic != kDevice) return;
    constexpr unsigned kOfOneState = kPlan | kDevice | kMute | kRequest;
    for (auto at = m_lines.end(); at != m_lines.begin() && ((at - 1)->topic & kOfOneState); --at) {
        const Line& earlier = *(at - 1);
        if (earlier.topic != line.topic) continue;
        if (line.topic == kPlan) {
            const bool back = line.plan == earlier.before;
            line.text = earlier.text + (back ? ", and back to " : ", then ") + line.plan;
            line.before = earlier.before;
        }
        m_lines.erase(at - 1);
        return;
    }
}

auto Story::Lines::PlaceOf(const Line& line) -> std::vector<Line>::iterator
{
    const auto order = std::ranges::find(kOrders, line.topic, &Order::cause);
    if (order == std::end(kOrders)) return m_lines.end();
    auto at = m_lines.end();
    while (at != m_lines.begin() && ((at - 1)->topic & order->effects)) --at;
    // What an earlier cause of the same instant has led to stays behind that one.
    return at != m_lines.begin() && (at - 1)->topic == line.topic ? m_lines.end() : at;
}

void Story::Lines::Print()
{
    static constexpr const char* kDays[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                            "Thursday", "Friday", "Saturday"};
    if (m_lines.empty()) return;
    const std::string now = FormatCalendar(m_clock);
    const std::string day = now.substr(0, 10);
    if (day != m_day) m_out << kDays[FromCalendar(m_clock).wDayOfWeek] << ", " << day << "\n";
    m_day = day;
    for (const Line& line : m_lines)
        m_out << "  " << now.substr(11, 8) << "  " << line.text << "\n";
    m_out << std::flush;
    m_lines.clear();
}

Story::Story(Machine& pc, std::ostream& out) : m_pc(pc), m_lines(std::make_shared<Lines>(out))
{
    pc.journal.Listen([lines = m_lines](const Effect& effect) { lines->Hear(effect); });
}

Story::~Story()
{
    const Hold hold(m_pc);
    m_lines->Print();
    m_lines->End();
}

void Story::Tell(std::string_view text)
{
    const Hold hold(m_pc);
    m_lines->Add(m_pc.clock(), {std::string(text), kAny, {}, {}});
    m_lines->Print();
}

void Story::Flush()
{
    const Hold hold(m_pc);
    m_lines->Print();
}

void Story::End()
{
    const auto runs = [](const auto& process) { return process->running(); };
    if (std::ranges::any_of(m_pc.processes(), runs))
        Tell("the story ends, and the PC is switched off");
    const Hold hold(m_pc);
    m_lines->Print();
    m_lines->End();
}
