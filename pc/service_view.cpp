#include "pc/service_view.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>

#include "platform/kernel.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/registry/registry.h"
#include "platform/virtual/services/service_manager.h"

using namespace virtual_pc;

namespace {

constexpr const char* kState = "_ZN16CNeverSleepState14m_eSystemStateE";
constexpr const char* kOverride = "_ZN16CNeverSleepState11m_bOverrideE";
constexpr const char* kEvents = "g_hGlobalEvents";

constexpr std::array<std::wstring_view, 6> kStateNames = {
    L"S0_NORMAL", L"HOLV_ACTIVE", L"HOLV_IDLE", L"HOLV_DND", L"HOLV_S3", L"HOLV_INIT"};

constexpr int kFirstTimerSlot = 7;

}  // namespace

std::wstring_view StateNameOf(std::int32_t state)
{
    const auto index = static_cast<std::size_t>(state);
    return index < kStateNames.size() ? kStateNames[index] : L"";
}

std::optional<std::int32_t> StateOf(std::string_view name)
{
    const auto found = std::ranges::find(kStateNames, FromUtf8(name));
    if (found == kStateNames.end()) return std::nullopt;
    return static_cast<std::int32_t>(found - kStateNames.begin());
}

const std::vector<std::string_view>& SlotNames()
{
    static const std::vector<std::string_view> names = {
        "EVENT_ENTER_S0",  "EVENT_ENTER_ACTIVE", "EVENT_ENTER_IDLE",       "EVENT_ENTER_DND",
        "EVENT_LEAVE_DND", "EVENT_SERVICE_STOP", "EVENT_REGISTRY_CHANGED", "TIMER_IDLE",
        "TIMER_DND_START", "TIMER_DND_END",      "TIMER_CPU_USAGE",        "TIMER_BATTERY_USAGE",
        "TIMER_SLEEP"};
    return names;
}

std::optional<int> SlotOf(std::string_view name)
{
    const auto found = std::ranges::find(SlotNames(), name);
    if (found == SlotNames().end()) return std::nullopt;
    return static_cast<int>(found - SlotNames().begin());
}

Process& StartAsService(Machine& pc, const Image& image)
{
    if (!pc.services.Find(kServiceName)) {
        pc.Install(image);
        pc.registry.SetString(LR"(HKCR\AppID\{7A31C5E2-90D4-4B6E-A1F3-2C8D5E9B0A47})",
                              L"LocalService", kServiceName);
        pc.services.Create({.name = kServiceName,
                            .display_name = kServiceName,
                            .path = L"\"" + image.path + L"\"",
                            .dependencies = {L"RPCSS"}});
    }
    if (const DWORD error = pc.services.Start(kServiceName)) {
        throw std::runtime_error("the service does not start: error " + std::to_string(error));
    }
    const Hold hold(pc);
    return *pc.services.Find(kServiceName)->process;
}

ServiceView::ServiceView(Machine& pc) : m_pc(pc)
{
    pc.image_loaded = [this](Process& process) {
        // Ignore other runs of the program while the service runs, as for a switch or a client.
        if (service() && !m_pc.services.ServiceOf(process)) return;
        m_service = &process;
        const auto* state = static_cast<const std::atomic<std::int32_t>*>(Symbol(kState));
        const auto changed = [this](std::int32_t from, std::int32_t to) {
            m_pc.journal.Record("state", {{"from", std::wstring(StateNameOf(from))},
                                          {"to", std::wstring(StateNameOf(to))},
                                          {"hours_begin", MinutesOf("g_dwDoNotDisturbStart")},
                                          {"hours_end", MinutesOf("g_dwDoNotDisturbEnd")}});
        };
        m_pc.Watch(state, changed, &process);
    };
}

std::int64_t ServiceView::MinutesOf(const char* setting) const
{
    const auto* value = static_cast<const std::atomic<DWORD>*>(Symbol(setting));
    return value ? std::int64_t{*value} : -1;
}

Process* ServiceView::service() const
{
    return m_service && m_service->running() ? m_service : nullptr;
}

void* ServiceView::Symbol(const char* name) const
{
    return m_service ? m_service->Find(name) : nullptr;
}

std::optional<std::int32_t> ServiceView::state() const
{
    const auto* state = static_cast<const std::atomic<std::int32_t>*>(Symbol(kState));
    if (!state) return std::nullopt;
    return state->load();
}

bool ServiceView::Raise(int slot)
{
    const auto* events = static_cast<const HANDLE*>(Symbol(kEvents));
    if (!events || !events[slot]) return false;
    if (slot < kFirstTimerSlot) return SetEvent(events[slot]);
    const LARGE_INTEGER now{};
    return SetWaitableTimer(events[slot], &now, 0, nullptr, nullptr, FALSE);
}

bool ServiceView::SetOverride(bool on)
{
    auto* override_mark = static_cast<std::atomic<std::int32_t>*>(Symbol(kOverride));
    if (!override_mark) return false;
    *override_mark = on;
    return true;
}
