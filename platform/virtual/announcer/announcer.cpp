#include "platform/virtual/announcer/announcer.h"

#include <cstring>
#include <memory>

#include "platform/service.h"
#include "platform/virtual/core/machine.h"

namespace virtual_pc {

void Announcer::Add(Listener& listener)
{
    const Hold hold(m_machine);
    m_listeners.push_back(&listener);
}

void Announcer::Remove(Listener& listener)
{
    const Hold hold(m_machine);
    std::erase(m_listeners, &listener);
}

void Announcer::Announce(const Announcement& announcement, std::function<void()> all_handled)
{
    const Hold hold(m_machine);
    // Counts the listeners that have yet to handle it, plus one for the loop below, so that
    // `all_handled` is not called before every listener has been told.
    const auto left = std::make_shared<int>(1);
    const std::function<void()> handled = [left, all_handled = std::move(all_handled)] {
        if (--*left == 0 && all_handled) all_handled();
    };
    for (Listener* listener : std::vector(m_listeners)) {
        ++*left;
        if (!listener->Hear(announcement, handled)) --*left;
    }
    handled();
}

void Announcer::PowerEvent(DWORD event, std::function<void()> all_handled)
{
    Announce({.control = SERVICE_CONTROL_POWEREVENT, .event = event}, std::move(all_handled));
}

void Announcer::SessionEvent(DWORD event, DWORD session)
{
    Announce(
        {.control = SERVICE_CONTROL_SESSIONCHANGE, .event = event, .data = SettingBytes(session)});
}

void Announcer::TimeChanged(CalendarTime now, CalendarTime before)
{
    const std::int64_t times[] = {now.count(), before.count()};
    std::vector<BYTE> data(sizeof(times));
    std::memcpy(data.data(), times, sizeof(times));
    Announce({.control = SERVICE_CONTROL_TIMECHANGE, .data = std::move(data)});
}

void Announcer::Provide(const GUID& setting, std::function<std::vector<BYTE>()> present)
{
    const Hold hold(m_machine);
    m_settings[setting] = std::move(present);
}

std::optional<std::vector<BYTE>> Announcer::Present(const GUID& setting) const
{
    const Hold hold(m_machine);
    const auto found = m_settings.find(setting);
    if (found == m_settings.end()) return std::nullopt;
    std::vector<BYTE> value = found->second();
    if (value.empty()) return std::nullopt;
    return value;
}

void Announcer::SettingChanged(const GUID& setting)
{
    const Hold hold(m_machine);
    const std::optional<std::vector<BYTE>> value = Present(setting);
    if (!value) return;
    Announce({.control = SERVICE_CONTROL_POWEREVENT,
              .event = PBT_POWERSETTINGCHANGE,
              .setting = setting,
              .data = *value});
}

std::vector<BYTE> SettingBytes(DWORD value)
{
    std::vector<BYTE> bytes(sizeof(value));
    std::memcpy(bytes.data(), &value, sizeof(value));
    return bytes;
}

std::vector<BYTE> SettingBytes(const GUID& value)
{
    std::vector<BYTE> bytes(sizeof(value));
    std::memcpy(bytes.data(), &value, sizeof(value));
    return bytes;
}

}  // namespace virtual_pc
