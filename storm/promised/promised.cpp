#include "storm/promised/promised.h"

#include <algorithm>

#include "platform/virtual/base/text.h"
#include "platform/virtual/devices/device.h"
#include "platform/virtual/power/power.h"
#include "platform/virtual/power/sleep.h"
#include "platform/virtual/power/user.h"
#include "platform/virtual/sound/audio.h"

using namespace virtual_pc;

namespace {

// How long something may be wrong.
constexpr Duration kAtOnce = 15s;    // where nothing else has happened
constexpr Duration kSoon = 1min;     // the return to normal use
constexpr Duration kLedBack = 5min;  // what the service has to notice by itself
constexpr Duration kStop = 30s;
// Beyond the idle time-out: two looks at the idle time, and the sleep itself.
constexpr Duration kGoes = 3min;
constexpr Duration kSleeps = 10min;

}  // namespace

bool IsOfThePc(std::string_view kind)
{
    return kind != "debug" && kind != "event" && kind != "write" && kind != "console";
}

Promised::Promised(Machine& pc) : m_pc(pc), m_belongings(pc), m_now(pc)
{
    const auto hear = [this, listens = m_listens](const Effect& effect) {
        if (!*listens) return;
        m_belongings.Hear(effect, m_now.moment());
        m_now.Hear(effect);
        if (effect.kind == "process" && effect.Number("killed") != 0) {
            m_belongings.Unsettle(effect.at - 65s);
        }
        // What was changed in the minute before may not be on the disk.
        if (effect.kind == "power switch" && effect.Text("what") == L"cut") {
            m_belongings.TakeAsItIs(m_now.trouble() ? Instant{0} : effect.at - 65s);
        }
    };
    pc.journal.Listen(hear, IsOfThePc);
}

Promised::~Promised()
{
    const Hold hold(m_pc);
    *m_listens = false;
}

void Promised::Deed(const ScriptLine& line)
{
    const Hold hold(m_pc);
    m_belongings.Deed(line);
    m_now.Deed(line);
}

void Promised::Wrong(Broken broken, Duration allowed)
{
    if (m_at_end || m_pc.now() - broken.since > allowed) m_broken.push_back(std::move(broken));
}

// --- What is the user's ---

namespace {

std::string_view PromiseAbout(const std::string& object)
{
    if (object == kActivePlanObject) return "the user's plan is active";
    if (object.starts_with("plan ")) return "the plans have the user's values";
    return "the endpoints sound as the user left them";
}

// While the feature is on, the user's plan and that of never-sleep mode allow both.
bool HeldInUse(const std::string& object)
{
    return object.ends_with(" away-mode") || object.ends_with(" wake-timers");
}

}  // namespace

void Promised::CheckBelongings(Instant from, Duration allowed_plan)
{
    const bool in_use = !m_at_end && m_now.running() && m_now.settings().feature_on;
    m_belongings.Absorb();
    for (const auto& [object, is] : m_belongings.Now()) {
        const Wish& wish = *m_belongings.Find(object);
        if (wish.values.contains(is)) continue;
        if (in_use && HeldInUse(object) && wish.written.contains(is)) continue;
        if (object.starts_with("mute ")) {
            // One that was plugged in since is restored at the next return while never-sleep mode
            // is on, and otherwise by the service's next start.
            if (m_belongings.PluggedAt(object.substr(5)) >= m_now.restored_since()) continue;
        }
        if (object == kActivePlanObject && m_belongings.UsersPlanIsGone()) continue;
        const Duration allowed = object == kActivePlanObject ? allowed_plan : kLedBack;
        Wrong({std::string(PromiseAbout(object)), object, wish.latest, is,
               std::max(from, wish.touched)},
              allowed);
    }
}

void Promised::CheckInForce(Instant from)
{
    if (m_belongings.UsersPlanIsGone()) return;
    const PowerPlan& plan = m_pc.power.active();
    const std::string source = m_pc.power.source() == PowerSource::ac ? "ac" : "dc";
    for (const GUID* setting : {&GUID_DEVICE_POWER_POLICY_VIDEO_BRIGHTNESS,
                                &GUID_LOCK_CONSOLE_ON_WAKE, &GUID_STANDBY_TIMEOUT}) {
        const std::string what = ToUtf8(PowerSettingName(*setting));
        const std::string object = PlanValue(ToUtf8(plan.name), source, what);
        const Wish* const wish = m_belongings.Find(object);
        const auto in_force = m_pc.power.InForce(*setting);
        if (!wish || !in_force) continue;
        const std::string is = std::to_string(*in_force);
        if (wish->values.contains(is) || wish->until_activated.contains(is)) continue;
        Wrong({"the values in force are the user's", "in force " + what, wish->latest, is,
               std::max(from, wish->touched)},
              kLedBack);
    }
}

void Promised::CheckDevice(Instant from)
{
    // One that came later is opened at the service's next start.
    if (m_now.device_changed_at() >= m_now.state_since()) return;
    for (const auto& device : m_pc.devices.All()) {
        const DWORD mode = device->Mode().value_or(0);
        if (!device->Present() || mode == 0) continue;
        Wrong({"the platform device is in mode 0", ToUtf8(device->instance_id()), "0",
               std::to_string(mode), std::max(from, device->Requests().back().at)},
              kLedBack);
    }
}

// --- Requests ---

namespace {

constexpr std::pair<POWER_REQUEST_TYPE, const char*> kRequests[] = {
    {PowerRequestSystemRequired, "request system"}, {PowerRequestAwayModeRequired, "request away"}};

}  // namespace

void Promised::CheckNothingHeld(Instant from)
{
    for (const auto& [type, object] : kRequests) {
        if (m_now.Held(type) == 0) continue;
        Wrong({"no request is held while never-sleep mode is off", object, "released", "held",
               std::max(from, m_now.held_since())},
              kLedBack);
    }
}

void Promised::CheckRequestsInUse(Instant from)
{
    const auto allowed = m_now.allowed();
    if (!allowed || !m_pc.power.s3_supported) return;
    for (const auto& [type, object] : kRequests) {
        const int held = m_now.Held(type);
        if (held == (*allowed ? 1 : 0)) continue;
        Wrong({"the requests are held while never-sleep mode is allowed, and only then", object,
               *allowed ? "held" : "released",
               held == 0   ? "released"
               : held == 1 ? "held"
                           : "held twice",
               std::max({from, m_now.held_since(), m_now.allowed_since()})},
              kLedBack);
    }
}

// --- Coming and going ---

void Promised::CheckBack(Instant from, Duration allowed)
{
    if (m_pc.sleep.away()) {
        Wrong({"the PC is in use when its user is back", "away mode", "off", "on", from}, allowed);
    }
    if (!m_pc.user.display_on()) {
        Wrong({"the PC is in use when its user is back", "the display", "on", "off", from},
              allowed);
    }
}

void Promised::CheckGone()
{
    const bool awake = m_pc.sleep.phase() == SleepState::Phase::awake && !m_pc.sleep.stands_by();
    const auto timeout = m_pc.power.InForce(GUID_STANDBY_TIMEOUT);
    if (!awake || m_pc.user.works() || m_now.others_hold() || timeout.value_or(0) == 0) return;
    if (!m_pc.power.s3_supported || m_pc.power.modern_standby || !m_pc.on()) return;
    const Instant from = std::max(m_now.idle_since(), m_now.allowed_since());
    const auto idle = std::chrono::seconds{*timeout};
    const bool on = m_now.running() && m_now.settings().feature_on;
    const std::optional<bool> allowed = on ? m_now.allowed() : false;
    if (!allowed.value_or(false) && allowed) {
        Wrong({"a PC without its user sleeps where never-sleep mode is not allowed", "the PC",
               "asleep", m_pc.sleep.away() ? "awake, in away mode" : "awake", from + idle},
              kSleeps);
    } else if (!m_pc.sleep.away()) {
        Wrong({"a PC without its user goes into away mode", "the PC", "away", "awake", from + idle},
              kGoes);
    }
}

// --- The looks ---

// Asleep, no program does anything.
void Promised::CheckStop()
{
    const auto since = m_now.stopping();
    if (!since || m_pc.sleep.phase() != SleepState::Phase::awake) return;
    Wrong({"a stop ends the service within 30 seconds", "the service", "stopped", "stopping",
           std::max(*since, m_now.woke_at())},
          kStop);
}

std::vector<Broken> Promised::Check()
{
    const Hold hold(m_pc);
    m_broken.clear();
    m_now.Look();
    if (m_now.trouble() || !m_pc.on()) return {};
    CheckStop();
    const bool on = m_now.running() && m_now.settings().feature_on;
    const bool off = m_now.running() || (m_now.stopped() && !m_now.left_for_the_next_start());
    Instant from = std::max(m_now.state_since(), m_now.settings_since());
    if (on && m_now.there()) {
        from = std::max(from, *m_now.there());
        const bool plain = m_now.plain_return() && from == *m_now.there();
        CheckBelongings(from, plain ? kAtOnce : kLedBack);
        CheckInForce(from);
        CheckDevice(from);
        CheckRequestsInUse(from);
        CheckBack(from, plain ? kAtOnce : kSoon);
    } else if (!on && off && m_pc.sleep.phase() == SleepState::Phase::awake) {
        // Asleep, no program puts anything back.
        from = std::max(from, m_now.woke_at());
        CheckBelongings(from, kLedBack);
        CheckDevice(from);
        CheckNothingHeld(from);
    }
    if (on || off) CheckGone();
    return std::move(m_broken);
}

std::vector<Broken> Promised::CheckEnd()
{
    const Hold hold(m_pc);
    m_broken.clear();
    m_at_end = true;
    const Instant now = m_pc.now();
    if (!m_now.stopped())
        Wrong({"a stop ends the service", "the service", "stopped", "running", now}, kStop);
    // After a kill only a removal of the service keeps the next start away.
    if (!m_now.left_for_the_next_start() && !m_now.lied()) {
        CheckBelongings(now, Duration{0});
        CheckInForce(now);
        CheckDevice(now);
    }
    if (!m_now.lied()) CheckNothingHeld(now);
    m_at_end = false;
    return std::move(m_broken);
}
