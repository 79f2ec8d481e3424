// The sound system: its endpoints, the default endpoints, and the notifications about both.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/audio.h"
#include "platform/virtual/sound/audio_notices.h"

namespace virtual_pc {

class Audio;
class Com;
class Machine;

class Endpoint
{
public:
    Endpoint(Audio& audio, std::wstring_view name, std::wstring id, EDataFlow flow);

    const std::wstring& name() const { return m_name; }
    const std::wstring& id() const { return m_id; }
    EDataFlow flow() const { return m_flow; }

    // --- For scripts and tests ---

    // Sets a DEVICE_STATE_... value, as plugging, unplugging, disabling and enabling do.
    void SetState(DWORD state);
    DWORD State() const;
    bool Active() const { return State() == DEVICE_STATE_ACTIVE; }

    // Removes the endpoint's device: the endpoint stays known, but is not present.
    void Remove();

    // Makes it the default of its flow, for all roles or for one. While it is not active, the
    // choice before it stands in for it.
    void MakeDefault();
    void MakeDefault(ERole role);

    // A change by a user or a program, which `context` identifies. Returns whether the value
    // changed; if so, every callback registered for the endpoint is notified.
    bool SetMute(bool muted, const GUID& context = GUID_NULL);
    bool SetVolume(float level, const GUID& context = GUID_NULL);
    bool Muted() const;
    float Volume() const;

    // Announces that a property of it, such as its name, has changed.
    void ChangeProperty();

private:
    friend class Audio;

    void AnnounceVolume(const GUID& context);

    Audio& m_audio;
    const std::wstring m_name;
    const std::wstring m_id;
    const EDataFlow m_flow;
    DWORD m_state = DEVICE_STATE_NOTPRESENT;
    bool m_muted = false;
    float m_volume = 0.5;
};

// Effects: "endpoint" {`what` (added, removed, state, default), `endpoint`, and `state` or `flow`
// and `role`}; "mute" {`endpoint`, `muted`, `context`}; "volume" {`endpoint`, `percent`,
// `context`}; "sound notice" {`callback`, `endpoint`} when one is delivered.
class Audio
{
public:
    Audio(Machine& machine, Com& com);
    ~Audio();

    struct Options
    {
        bool muted = false;
        DWORD state = DEVICE_STATE_ACTIVE;
        std::wstring id = {};  // generated when empty
    };
    // Adds an endpoint. A known one of that name becomes present again, and keeps its mute state
    // and volume. The first active endpoint of a flow is its default.
    Endpoint& Add(std::wstring_view name, EDataFlow flow, const Options& options);
    Endpoint& Add(std::wstring_view name, EDataFlow flow = eRender)
    {
        return Add(name, flow, Options{});
    }

    // By name; null when it was never there.
    Endpoint* Find(std::wstring_view name) const;
    // In the order in which they were added.
    std::vector<Endpoint*> All() const;
    // Null when the flow has no active endpoint.
    Endpoint* Default(EDataFlow flow, ERole role = eConsole) const;

    // --- For the platform functions ---

    Endpoint* FindById(std::wstring_view id) const;

    Machine& machine;
    AudioNotices notices;

private:
    friend class Endpoint;

    static constexpr std::size_t kFlows = 2;
    static constexpr std::size_t kRoles = 3;
    using Choices = std::vector<Endpoint*>;  // the latest first

    Endpoint* Best(std::size_t flow, std::size_t role) const;
    void Choose(Endpoint& endpoint, ERole role);
    // Computes the defaults anew, and notifies clients of those that changed.
    void SettleDefaults();
    void Record(std::string_view what, const Endpoint& endpoint);

    std::vector<std::unique_ptr<Endpoint>> m_endpoints;
    std::array<std::array<Choices, kRoles>, kFlows> m_chosen;
    std::array<std::array<Endpoint*, kRoles>, kFlows> m_default{};
};

// Creates the sound system's enumerator: a Com::Factory.
HRESULT MakeEnumerator(REFIID id, void** object);

}  // namespace virtual_pc
