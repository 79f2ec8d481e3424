#include "platform/virtual/sound/audio.h"

#include <algorithm>
#include <cmath>

#include "platform/virtual/base/guid.h"
#include "platform/virtual/base/names.h"
#include "platform/virtual/com/com.h"
#include "platform/virtual/core/machine.h"

namespace virtual_pc {

// --- Endpoints ---

Endpoint::Endpoint(Audio& audio, std::wstring_view name, std::wstring id, EDataFlow flow)
    : m_audio(audio), m_name(name), m_id(std::move(id)), m_flow(flow)
{
}

DWORD Endpoint::State() const
{
    const Hold hold(m_audio.machine);
    return m_state;
}

void Endpoint::SetState(DWORD state)
{
    const Hold hold(m_audio.machine);
    if (m_state == state) return;
    m_state = state;
    m_audio.Record("state", *this);
    m_audio.notices.TellClients("OnDeviceStateChanged", this, [id = m_id, state](auto& client) {
        client.OnDeviceStateChanged(id.c_str(), state);
    });
    m_audio.SettleDefaults();
}

void Endpoint::Remove()
{
    const Hold hold(m_audio.machine);
    if (m_state == DEVICE_STATE_NOTPRESENT) return;
    SetState(DEVICE_STATE_NOTPRESENT);
    m_audio.Record("removed", *this);
    m_audio.notices.TellClients("OnDeviceRemoved", this,
                                [id = m_id](auto& client) { client.OnDeviceRemoved(id.c_str()); });
}

void Endpoint::MakeDefault()
{
    const Hold hold(m_audio.machine);
    for (const ERole role : {eConsole, eMultimedia, eCommunications}) m_audio.Choose(*this, role);
    m_audio.SettleDefaults();
}

void Endpoint::MakeDefault(ERole role)
{
    const Hold hold(m_audio.machine);
    m_audio.Choose(*this, role);
    m_audio.SettleDefaults();
}

bool Endpoint::SetMute(bool muted, const GUID& context)
{
    const Hold hold(m_audio.machine);
    if (m_muted == muted) return false;
    m_muted = muted;
    m_audio.machine.journal.Record(
        "mute", {{"endpoint", m_name}, {"muted", muted}, {"context", FormatGuid(context)}});
    AnnounceVolume(context);
    return true;
}

bool Endpoint::SetVolume(float level, const GUID& context)
{
    const Hold hold(m_audio.machine);
    if (m_volume == level) return false;
    m_volume = level;
    m_audio.machine.journal.Record("volume", {{"endpoint", m_name},
                                              {"percent", std::int64_t{std::lround(level * 100)}},
                                              {"context", FormatGuid(context)}});
    AnnounceVolume(context);
    return true;
}

void Endpoint::AnnounceVolume(const GUID& context)
{
    const auto data = std::allocate_shared<AUDIO_VOLUME_NOTIFICATION_DATA>(
        FixedAllocator<AUDIO_VOLUME_NOTIFICATION_DATA>(m_audio.machine.com.memory));
    *data = {context, m_muted, m_volume, 1, {m_volume}};
    m_audio.notices.TellListeners(*this, [data](auto& listener) { listener.OnNotify(data.get()); });
}

bool Endpoint::Muted() const
{
    const Hold hold(m_audio.machine);
    return m_muted;
}

float Endpoint::Volume() const
{
    const Hold hold(m_audio.machine);
    return m_volume;
}

void Endpoint::ChangeProperty()
{
    // The friendly name of a device.
    constexpr PROPERTYKEY kName{
        {0xA45C254E, 0xDF1C, 0x4EFD, {0x80, 0x20, 0x67, 0xD1, 0x46, 0xA8, 0x50, 0xE0}}, 14};
    const Hold hold(m_audio.machine);
    m_audio.notices.TellClients("OnPropertyValueChanged", this, [id = m_id, kName](auto& client) {
        client.OnPropertyValueChanged(id.c_str(), kName);
    });
}

// --- The sound system ---

Audio::Audio(Machine& pc, Com& com) : machine(pc), notices(pc)
{
    com.AddInProcessClass(CLSID_MMDeviceEnumerator, MakeEnumerator);
}

Audio::~Audio() = default;

Endpoint& Audio::Add(std::wstring_view name, EDataFlow flow, const Options& options)
{
    const Hold hold(machine);
    Endpoint* endpoint = Find(name);
    if (!endpoint) {
        std::wstring id = options.id;
        if (id.empty()) {
            id = flow == eCapture ? L"{0.0.1.00000000}.{" : L"{0.0.0.00000000}.{";
            id += FormatGuid(machine.com.NewGuid()) + L"}";
        }
        m_endpoints.push_back(std::make_unique<Endpoint>(*this, name, std::move(id), flow));
        endpoint = m_endpoints.back().get();
        endpoint->m_muted = options.muted;
    } else if (endpoint->m_state != DEVICE_STATE_NOTPRESENT) {
        return *endpoint;
    }
    endpoint->m_state = options.state;
    Record("added", *endpoint);
    notices.TellClients("OnDeviceAdded", endpoint,
                        [id = endpoint->m_id](auto& client) { client.OnDeviceAdded(id.c_str()); });
    SettleDefaults();
    return *endpoint;
}

Endpoint* Audio::Find(std::wstring_view name) const
{
    const Hold hold(machine);
    const auto found = std::ranges::find_if(
        m_endpoints, [&](const auto& endpoint) { return SameName(endpoint->name(), name); });
    return found != m_endpoints.end() ? found->get() : nullptr;
}

Endpoint* Audio::FindById(std::wstring_view id) const
{
    const Hold hold(machine);
    const auto found = std::ranges::find_if(
        m_endpoints, [&](const auto& endpoint) { return endpoint->id() == id; });
    return found != m_endpoints.end() ? found->get() : nullptr;
}

std::vector<Endpoint*> Audio::All() const
{
    const Hold hold(machine);
    std::vector<Endpoint*> all;
    for (const auto& endpoint : m_endpoints) all.push_back(endpoint.get());
    return all;
}

Endpoint* Audio::Default(EDataFlow flow, ERole role) const
{
    const Hold hold(machine);
    return m_default.at(flow).at(role);
}

Endpoint* Audio::Best(std::size_t flow, std::size_t role) const
{
    const auto active = [](const Endpoint* endpoint) { return endpoint->Active(); };
    const Choices& chosen = m_chosen[flow][role];
    if (const auto found = std::ranges::find_if(chosen, active); found != chosen.end()) {
        return *found;
    }
    for (Endpoint* endpoint : All()) {
        if (endpoint->flow() == static_cast<EDataFlow>(flow) && active(endpoint)) return endpoint;
    }
    return nullptr;
}

void Audio::Choose(Endpoint& endpoint, ERole role)
{
    Choices& chosen = m_chosen.at(endpoint.flow()).at(role);
    std::erase(chosen, &endpoint);
    chosen.insert(chosen.begin(), &endpoint);
}

void Audio::SettleDefaults()
{
    for (std::size_t flow = 0; flow < kFlows; ++flow) {
        for (std::size_t role = 0; role < kRoles; ++role) {
            Endpoint* best = Best(flow, role);
            if (best == std::exchange(m_default[flow][role], best)) continue;
            machine.journal.Record("endpoint", {{"what", L"default"},
                                                {"endpoint", best ? best->name() : L""},
                                                {"flow", std::uint64_t{flow}},
                                                {"role", std::uint64_t{role}}});
            notices.TellClients("OnDefaultDeviceChanged", best,
                                [=, id = best ? best->id() : std::wstring()](auto& client) {
                                    client.OnDefaultDeviceChanged(static_cast<EDataFlow>(flow),
                                                                  static_cast<ERole>(role),
                                                                  best ? id.c_str() : nullptr);
                                });
        }
    }
}

void Audio::Record(std::string_view what, const Endpoint& endpoint)
{
    machine.journal.Record("endpoint", {{"what", std::wstring(what.begin(), what.end())},
                                        {"endpoint", endpoint.name()},
                                        {"state", std::uint64_t{endpoint.m_state}}});
}

}  // namespace virtual_pc
