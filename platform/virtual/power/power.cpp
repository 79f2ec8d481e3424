#include "platform/virtual/power/power.h"

#include <algorithm>

#include "platform/com.h"
#include "platform/virtual/announcer/announcer.h"
#include "platform/virtual/core/machine.h"
#include "platform/virtual/core/unwritten.h"
#include "platform/virtual/power/sleep.h"
#include "platform/virtual/registry/registry.h"

namespace virtual_pc {
namespace {

// Where a group policy leaves the active plan's GUID.
constexpr const wchar_t* kPolicyKey = LR"(HKLM\SOFTWARE\Policies\Microsoft\Power\PowerSettings)";
constexpr const wchar_t* kActivePlan = L"ActivePowerScheme";

}  // namespace

Power::Power(Machine& machine, Announcer& announcer) : m_machine(machine)
{
    announcer.Provide(GUID_ACDC_POWER_SOURCE, [this] { return SettingBytes(Present().source); });
    announcer.Provide(GUID_POWERSCHEME_PERSONALITY,
                      [this] { return SettingBytes(active().personality); });
    announcer.Provide(GUID_STANDBY_TIMEOUT,
                      [this] { return SettingBytes(Present().sleep_timeout.value_or(0)); });
}

Power::Announced Power::Present() const
{
    const DWORD on_battery = batteries_short_term ? 2 : 1;
    return {source() == PowerSource::ac ? 0 : on_battery, active().guid,
            InForce(GUID_STANDBY_TIMEOUT)};
}

void Power::AnnounceChangesSince(const Announced& before)
{
    const Announced now = Present();
    const auto announce = [&](const GUID& setting) { m_machine.announcer.SettingChanged(setting); };
    if (now.source != before.source) announce(GUID_ACDC_POWER_SOURCE);
    if (!IsEqualGUID(now.plan, before.plan)) announce(GUID_POWERSCHEME_PERSONALITY);
    if (now.sleep_timeout != before.sleep_timeout) announce(GUID_STANDBY_TIMEOUT);
}

// --- Source and battery ---

void Power::RecordSource()
{
    m_machine.journal.Record("power source",
                             {{"source", std::wstring(source() == PowerSource::ac ? L"ac" : L"dc")},
                              {"percent", std::uint64_t{battery_percent}}});
}

void Power::RunOnBattery(BYTE percent, bool short_term)
{
    const Hold hold(m_machine);
    const Announced before = Present();
    line = 0;
    battery_present = true;
    battery_percent = percent;
    batteries_short_term = short_term;
    RecordSource();
    AnnounceChangesSince(before);
}

void Power::RunOnMains()
{
    const Hold hold(m_machine);
    const Announced before = Present();
    line = 1;
    RecordSource();
    AnnounceChangesSince(before);
}

// --- Plans ---

PowerPlan& Power::AddPlan(std::wstring_view name, const GUID& guid, const GUID& like)
{
    const Hold hold(m_machine);
    return m_plans.Add(name, guid, like);
}

bool Power::DeletePlan(const GUID& plan)
{
    const Hold hold(m_machine);
    return m_plans.Delete(plan);
}

std::optional<DWORD> Power::InForce(const GUID& setting) const
{
    const Hold hold(m_machine);
    return m_plans.InForce(setting, source());
}

bool Power::Activate(const GUID& plan)
{
    const Hold hold(m_machine);
    return !PolicyNamesPlan() && ActivateByPolicy(plan);
}

bool Power::SetPolicy(const GUID& plan)
{
    const Hold hold(m_machine);
    if (!ActivateByPolicy(plan)) return false;
    m_machine.registry.SetString(kPolicyKey, kActivePlan, FormatGuid(plan));
    return true;
}

void Power::EndPolicy() { m_machine.registry.DeleteKey(kPolicyKey); }

bool Power::PolicyNamesPlan() const
{
    return m_machine.registry.GetString(kPolicyKey, kActivePlan).has_value();
}

bool Power::ActivateByPolicy(const GUID& plan)
{
    const Announced before = Present();
    const std::wstring plan_before = active().name;
    const GUID guid_before = active().guid;
    if (!m_plans.Activate(plan)) return false;
    m_machine.unwritten.Note(Registry::kSystemHive,
                             [this, guid_before] { m_plans.Activate(guid_before); });
    m_machine.journal.Record(
        "plan activated",
        {{"plan", active().name}, {"guid", FormatGuid(active().guid)}, {"before", plan_before}});
    AnnounceChangesSince(before);
    return true;
}

std::optional<DWORD> Power::Read(const GUID& plan, const GUID& setting, PowerSource from)
{
    const Hold hold(m_machine);
    return m_plans.Read(plan, setting, from);
}

bool Power::Write(const GUID& plan, const GUID& setting, PowerSource to, DWORD value)
{
    const Hold hold(m_machine);
    const std::optional<DWORD> was = m_plans.Read(plan, setting, to);
    if (!m_plans.Write(plan, setting, to, value)) return false;
    m_machine.unwritten.Note(Registry::kSystemHive, [this, plan, setting, to, was] {
        m_plans.Write(plan, setting, to, *was);
    });
    m_machine.journal.Record("plan written",
                             {{"plan", FindPlan(plan)->name},
                              {"setting", std::wstring(PowerSettingName(setting))},
                              {"source", std::wstring(to == PowerSource::ac ? L"ac" : L"dc")},
                              {"value", std::uint64_t{value}}});
    return true;
}

// --- Requests ---

// Japanese translates EXECUTION; the other headers stay English there.
constexpr ListingWords kEnglishListing{
    {L"DISPLAY:", L"SYSTEM:", L"AWAYMODE:", L"EXECUTION:", L"PERFBOOST:", L"ACTIVELOCKSCREEN:"},
    L"None."};
constexpr ListingWords kJapaneseListing{
    {L"DISPLAY:", L"SYSTEM:", L"AWAYMODE:", L"\u5b9f\u884c:", L"PERFBOOST:", L"ACTIVELOCKSCREEN:"},
    L"\u306a\u3057\u3002"};

void PowerRequest::Closed()
{
    Power& power = Machine::Current().power;
    for (std::size_t type = 0; type < counts.size(); ++type) {
        while (counts[type] > 0) power.ClearRequest(*this, static_cast<POWER_REQUEST_TYPE>(type));
    }
}

std::shared_ptr<PowerRequest> Power::NewRequest(std::wstring owner, std::wstring reason)
{
    const Hold hold(m_machine);
    auto request = std::make_shared<PowerRequest>(std::move(owner), std::move(reason));
    std::erase_if(m_requests, [](const auto& known) { return known.expired(); });
    m_requests.push_back(request);
    return request;
}

void Power::Lose()
{
    Hold::Require();
    for (const auto& known : m_requests) {
        if (const auto request = known.lock()) request->counts = {};
    }
    m_plans.Activate(active().guid);
}

namespace {

constexpr std::wstring_view kRequestNames[] = {L"display", L"system", L"away"};

std::size_t SectionsOf(const Machine& machine)
{
    if (!machine.AtLeast(kWindows8)) return 3;
    return machine.AtLeast(kWindows10) ? 6 : 5;
}

// Its lines in the listing. Drivers are named by their devices, and programs by their volume's
// device, not by its letter.
std::wstring Spell(const PowerRequest& request)
{
    static constexpr std::wstring_view kTags[] = {L"[PROCESS] ", L"[SERVICE] ", L"[DRIVER] "};
    std::wstring lines(kTags[static_cast<std::size_t>(request.of)]);
    lines += request.of == PowerRequest::Of::driver
                 ? request.owner
                 : LR"(\Device\HarddiskVolume1)" + request.owner.substr(2);
    lines += L"\n";
    if (!request.reason.empty()) lines += request.reason + L"\n";
    return lines;
}

}  // namespace

bool Power::SetRequest(PowerRequest& request, POWER_REQUEST_TYPE type)
{
    const Hold hold(m_machine);
    request.ended[type] = false;
    const int count = ++request.counts[type];
    m_machine.journal.Record("request", {{"type", std::wstring(kRequestNames[type])},
                                         {"what", std::wstring(L"set")},
                                         {"count", std::int64_t{count}},
                                         {"reason", request.reason},
                                         {"owner", request.owner}});
    m_machine.sleep.Reconsider();
    return true;
}

bool Power::ClearRequest(PowerRequest& request, POWER_REQUEST_TYPE type)
{
    const Hold hold(m_machine);
    if (request.counts[type] == 0) return false;
    const int count = --request.counts[type];
    m_machine.journal.Record("request", {{"type", std::wstring(kRequestNames[type])},
                                         {"what", std::wstring(L"cleared")},
                                         {"count", std::int64_t{count}},
                                         {"reason", request.reason},
                                         {"owner", request.owner}});
    m_machine.sleep.Reconsider();
    return true;
}

void Power::EndRequests()
{
    const Hold hold(m_machine);
    for (const auto& known : m_requests) {
        const auto request = known.lock();
        if (!request) continue;
        for (const auto type : {PowerRequestDisplayRequired, PowerRequestSystemRequired}) {
            if (!request->Holds(type)) continue;
            request->ended[type] = true;
            m_machine.journal.Record("request", {{"type", std::wstring(kRequestNames[type])},
                                                 {"what", std::wstring(L"ended")},
                                                 {"count", std::int64_t{request->counts[type]}},
                                                 {"reason", request->reason},
                                                 {"owner", request->owner}});
        }
    }
}

bool Power::Held(POWER_REQUEST_TYPE type) const
{
    const Hold hold(m_machine);
    return std::ranges::any_of(m_requests, [&](const auto& known) {
        const auto request = known.lock();
        return request && request->Holds(type);
    });
}

std::wstring Power::Listing() const
{
    const Hold hold(m_machine);
    if (listing_instead) return *listing_instead;
    std::vector<std::shared_ptr<PowerRequest>> requests;
    for (const auto& known : m_requests) {
        if (auto request = known.lock()) requests.push_back(std::move(request));
    }
    std::wstring listing;
    // Room for what is listed while few requests are held.
    listing.reserve(400);
    for (std::size_t section = 0; section < SectionsOf(m_machine); ++section) {
        listing.append(listing_words.headers[section]).append(L"\n");
        const std::size_t begin = listing.size();
        for (const auto& request : requests) {
            if (section < request->counts.size() && request->Holds(section)) {
                listing += Spell(*request);
            }
        }
        if (listing.size() == begin) listing.append(listing_words.none).append(L"\n");
        listing += L"\n";
    }
    return listing;
}

}  // namespace virtual_pc
