#include "storm/promised/circumstances.h"

#include <algorithm>

#include "pc/service_view.h"
#include "platform/virtual/core/process.h"
#include "platform/virtual/core/thread.h"
#include "platform/virtual/power/power.h"
#include "platform/virtual/power/sleep.h"
#include "platform/virtual/power/user.h"
#include "platform/virtual/registry/registry.h"
#include "platform/virtual/services/service_manager.h"

using namespace virtual_pc;

namespace {

constexpr std::wstring_view kOurReason = L"Orbeq(R) Holv Technology";
constexpr std::wstring_view kTypes[] = {L"display", L"system", L"away"};
// A mute change so soon after a power event may be the sound system's own.
constexpr Duration kEcho = 5s;

std::optional<DWORD> Stored(const Machine& pc, const wchar_t* name)
{
    const auto user = pc.registry.GetDword(LR"(HKLM\Software\Orbeq\Holv\User)", name);
    return user ? user : pc.registry.GetDword(LR"(HKLM\Software\Orbeq\Holv\OEM)", name);
}

struct SettingName
{
    const wchar_t* name;
    DWORD otherwise;
    void (*take)(ServiceSettings& settings, DWORD value);
};

constexpr SettingName kSettingNames[] = {
    {L"EnableNeverSleep", 1, [](auto& s, DWORD v) { s.feature_on = v != 0; }},
    {L"EnableDoNotDisturb", 1, [](auto& s, DWORD v) { s.hours_enabled = v != 0; }},
    {L"DoNotDisturbStart", 1320,
     [](auto& s, DWORD v) { s.hours_start = std::min(v, DWORD{1440}); }},
    {L"DoNotDisturbEnd", 360, [](auto& s, DWORD v) { s.hours_end = std::min(v, DWORD{1440}); }},
    {L"DndToS3", 0, [](auto& s, DWORD v) { s.sleeps_in_hours = v != 0; }},
    {L"EnableHOLVOnDc", 1, [](auto& s, DWORD v) { s.on_battery = v != 0; }},
};

bool IsOurs(const std::wstring& path) { return path.ends_with(L"HOLVService.exe"); }

}  // namespace

Circumstances::Circumstances(Machine& pc) : m_pc(pc) { LoadSettings(); }

void Circumstances::LoadSettings()
{
    for (const SettingName& setting : kSettingNames) {
        setting.take(m_settings, Stored(m_pc, setting.name).value_or(setting.otherwise));
    }
    m_settings_at = m_pc.now();
    // Then the service has its defaults, or some of them.
    m_settings_unknown = RegistryFails();
    m_default_unknown = DefaultFails();
}

Moment Circumstances::moment() const
{
    const bool quiet = m_pc.now() - m_power_event_at >= kEcho;
    const bool in_use = m_there && m_pc.now() - *m_there >= kEcho && !m_pc.sleep.away() && quiet;
    const bool unread =
        RegistryFails() || std::ranges::any_of(m_standing, [](const std::string& fault) {
            return fault.starts_with("fault PowerRead") || fault == "fault GetMute" ||
                   fault == "fault PowerGetActiveScheme" || fault == "fault GetDevice";
        });
    return {.normal_use = in_use || !running() || !m_settings.feature_on,
            .user_there = m_there.has_value(),
            .policy = m_pc.power.PolicyNamesPlan(),
            .values_unread = unread,
            .default_unknown = m_default_unknown};
}

// --- What is heard ---

void Circumstances::HearService(const Effect& effect)
{
    if (effect.Text("name") != kServiceName) return;
    const std::wstring state = effect.Text("state");
    if (state == m_state) return;
    m_state = state;
    m_state_at = effect.at;
    const auto service = m_pc.services.Find(kServiceName);
    if (service && service->process) m_process = service->process->id();
    if (state == L"running") m_unclean = false;
    if (state != L"stopped") return;
    for (const auto& process : m_pc.processes()) {
        if (process->id() == m_process && (process->killed() || process->crashed())) {
            m_unclean = true;
        }
    }
    m_unclean = m_unclean || m_trouble;
}

void Circumstances::HearRequest(const Effect& effect)
{
    const std::wstring type = effect.Text("type");
    const std::wstring reason = effect.Text("reason");
    const auto count = static_cast<int>(effect.Number("count"));
    if (reason == kOurReason) {
        for (std::size_t number = 0; number < std::size(kTypes); ++number) {
            if (kTypes[number] == type) m_held[number] = count;
        }
        m_held_at = effect.at;
    } else {
        m_others[type + L" " + reason] = effect.Text("what") == L"ended" ? 0 : count;
    }
}

void Circumstances::HearSetting(const Effect& effect)
{
    if (!effect.Text("path").ends_with(LR"(Orbeq\Holv\User)")) return;
    // Another process of the program, that a client has had started, changes its own settings
    // alone.
    const Thread* const thread = effect.thread ? Thread::Self() : nullptr;
    if (!thread || !thread->process || thread->process->id() != m_process) return;
    const bool was_on = m_settings.feature_on;
    for (const SettingName& setting : kSettingNames) {
        if (effect.Text("name") != setting.name) continue;
        setting.take(m_settings, static_cast<DWORD>(effect.Number("data")));
        m_settings_at = effect.at;
    }
    if (m_settings.feature_on != was_on) m_feature_at = effect.at;
}

void Circumstances::Hear(const Effect& effect)
{
    if (effect.kind == "service status") return HearService(effect);
    if (effect.kind == "request") return HearRequest(effect);
    if (effect.kind == "registry") return HearSetting(effect);
    if (effect.kind == "process" && effect.Text("what") == L"started") {
        // The settings are loaded once, as the program of the service starts.
        if (IsOurs(effect.Text("path")) && m_state != L"running") LoadSettings();
    } else if (effect.kind == "power source") {
        m_source_at = effect.at;
    } else if (effect.kind == "clock") {
        m_clock_at = effect.at;
    } else if (effect.kind == "power switch") {
        if (effect.Text("what") != L"cut") return;
        m_unclean = true;
        m_held = {};
        m_others.clear();
        m_state = L"stopped";
        m_state_at = effect.at;
    } else if (effect.kind == "away mode" || effect.kind == "sleep") {
        m_power_event_at = effect.at;
        if (effect.Text("what") == L"wakes") m_woke_at = effect.at;
        Look();
        // A user who is back before away mode has given the service nothing to put back; nor does a
        // sleep in it.
        const bool begins = effect.kind == "away mode" && m_pc.sleep.away();
        if (begins && !m_there) m_left_since_trouble = !Standing();
        if (!m_there && (begins || effect.Text("what") == L"asleep")) m_gone_at = m_left_at;
    } else if (effect.kind == "presence" || effect.kind == "display") {
        Look();
    }
}

void Circumstances::Look()
{
    const Instant now = m_pc.now();
    const bool awake = m_pc.sleep.phase() == SleepState::Phase::awake;
    const bool is_there = m_pc.on() && m_pc.user.works() && awake;
    if (is_there == m_there.has_value()) return;
    if (!is_there) {
        m_there.reset();
        m_left_at = now;
        m_left_since_trouble = m_pc.sleep.away() && !Standing();
        return;
    }
    m_there = now;
    m_plain_return = now - m_deed_before > 1min && now - m_left_at > 1min;
    if (m_left_since_trouble && !Standing()) m_trouble = false;
}

// --- Deeds ---

void Circumstances::NoteFault(const ScriptLine& line)
{
    const auto& words = line.words;
    const std::string second = words.size() > 1 ? words[1] : "";
    const std::string& lie = words[words.size() - 2];
    m_lied = m_lied || lie == "pretends" || lie == "done";
    const bool ends = second == "clear" || (words[0] == "device" && words.back() == "0") ||
                      (words[0] == "requests" && words.back().starts_with("0"));
    if (!ends) {
        m_standing.insert(words[0] + (words[0] == "fault" ? " " + second : ""));
        m_trouble = true;
        m_left_since_trouble = false;
    } else if (words.size() > 2 && second == "clear") {
        m_standing.erase(words[0] + " " + words[2]);
    } else {
        std::erase_if(m_standing, [&](const auto& fault) { return fault.starts_with(words[0]); });
    }
}

bool Circumstances::RegistryFails() const
{
    return std::ranges::any_of(
        m_standing, [](const std::string& fault) { return fault.starts_with("fault Reg"); });
}

bool Circumstances::DefaultFails() const
{
    return m_standing.contains("fault GetDefaultAudioEndpoint") ||
           m_standing.contains("fault GetId");
}

void Circumstances::Deed(const ScriptLine& line)
{
    const auto& words = line.words;
    if (words.empty() || words[0] == "run" || words[0] == "expect" || words[0] == "say") return;
    const Instant now = m_pc.now();
    const auto begins = [&](const char* first, const char* second) {
        return words[0] == first && words.size() > 1 && words[1] == second;
    };
    if (words[0] == "fault" || words[0] == "slow" || words[0] == "notices" ||
        begins("device", "fails") || begins("requests", "take")) {
        NoteFault(line);
        m_default_unknown = m_default_unknown || DefaultFails();
    }
    // The service has the new value, and nothing shows it.
    if (begins("client", "set") && RegistryFails()) m_settings_unknown = true;
    if (words[0] == "device" && !begins("device", "fails")) m_device_at = now;
    // A timer that spans such a shift is an hour early or late at the next boundary.
    if (words[0] == "daylight") m_clock_unsure_until = now + 25h;
    if (now > m_last_deed) m_deed_before = m_last_deed;
    m_last_deed = now;
    Look();
}

// --- What follows ---

Instant Circumstances::idle_since() const
{
    return std::max({m_pc.user.last_input(), m_woke_at, m_last_deed, m_state_at, m_settings_at});
}

Instant Circumstances::restored_since() const
{
    if (running() && m_settings.feature_on) return m_gone_at;
    return std::min(m_gone_at, running() ? std::max(m_state_at, m_feature_at) : m_state_at);
}

std::optional<Instant> Circumstances::stopping() const
{
    return m_state == L"stopping" ? std::optional(m_state_at) : std::nullopt;
}

bool Circumstances::others_hold() const
{
    return std::ranges::any_of(m_others, [](const auto& other) { return other.second > 0; });
}

bool Circumstances::InHours() const
{
    if (!m_settings.hours_enabled) return false;
    const SYSTEMTIME clock = FromCalendar(m_pc.clock());
    const DWORD now = DWORD{clock.wHour} * 60 + clock.wMinute;
    const DWORD start = m_settings.hours_start;
    const DWORD end = m_settings.hours_end;
    return start <= end ? start <= now && now < end : now >= start || now < end;
}

std::optional<bool> Circumstances::allowed() const
{
    if (!m_settings.feature_on) return false;
    if (m_settings.sleeps_in_hours && m_settings.hours_enabled) {
        if (m_pc.now() < m_clock_unsure_until) return std::nullopt;
        if (InHours()) return false;
    }
    if (m_pc.power.line == 1) return true;
    if (m_pc.power.line != 0) return std::nullopt;
    if (!m_settings.on_battery) return false;
    // The charge decides, and how long ago it crossed the threshold cannot be asked.
    return std::nullopt;
}

Instant Circumstances::allowed_since() const
{
    Instant since = std::max({m_settings_at, m_source_at, m_clock_at, m_state_at});
    if (m_settings.sleeps_in_hours && m_settings.hours_enabled) {
        const SYSTEMTIME clock = FromCalendar(m_pc.clock());
        const auto now = std::chrono::minutes{clock.wHour * 60 + clock.wMinute};
        for (const DWORD boundary : {m_settings.hours_start, m_settings.hours_end}) {
            auto ago = now - std::chrono::minutes{boundary};
            if (ago < 0min) ago += 24h;
            since = std::max(since, m_pc.now() - ago);
        }
    }
    return since;
}
