// Power plans and their values, the power source, capabilities, and power requests.
#pragma once

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/power.h"
#include "platform/virtual/base/time.h"
#include "platform/virtual/core/handles.h"
#include "platform/virtual/power/power_plans.h"

namespace virtual_pc {

class Announcer;
class Machine;

// What a power request's handle stands for.
class PowerRequest final : public Object
{
public:
    PowerRequest(std::wstring program, std::wstring why)
        : owner(std::move(program)), reason(std::move(why))
    {
    }
    std::string_view Kind() const override { return "power request"; }
    std::wstring Name() const override { return reason; }
    void Closed() override;

    // What the listing says of its owner.
    enum class Of
    {
        process,
        service,
        driver,
    };

    const std::wstring owner;  // the program's path, or the driver's name
    const std::wstring reason;
    Of of = Of::process;
    std::array<int, 3> counts{};  // by POWER_REQUEST_TYPE
    std::array<bool, 3> ended{};  // by a sleep; such a request holds nothing until it is set again

    bool Holds(std::size_t type) const { return counts[type] > 0 && !ended[type]; }
};

// The words of "powercfg -requests" in a language of Windows, for the sections that each version
// has: three on Windows 7, five from 8 on, six from 10 on.
struct ListingWords
{
    std::array<std::wstring_view, 6> headers;
    std::wstring_view none;
};
extern const ListingWords kEnglishListing;
extern const ListingWords kJapaneseListing;

class Power
{
public:
    Power(Machine& machine, Announcer& announcer);

    // --- Plans ---
    // A copy of another plan, which resembles the same predefined one.
    PowerPlan& AddPlan(std::wstring_view name, const GUID& guid, const GUID& like);
    // False for an unknown plan, and for the active one, which cannot be deleted.
    bool DeletePlan(const GUID& plan);
    const std::map<GUID, PowerPlan, GuidLess>& plans() const { return m_plans.all(); }
    PowerPlan* FindPlan(const GUID& guid) { return m_plans.Find(guid); }
    PowerPlan* FindPlan(std::wstring_view name) { return m_plans.Find(name); }
    const PowerPlan& active() const { return m_plans.active(); }
    // The value in force for the present power source.
    std::optional<DWORD> InForce(const GUID& setting) const;
    // Activates a plan, as a user does in the control panel or a program by its function. False
    // when there is no such plan, and while a policy names the active one.
    bool Activate(const GUID& plan);
    // Activates a plan by a policy, which no user or program can override until EndPolicy.
    bool SetPolicy(const GUID& plan);
    void EndPolicy();
    // Whether the registry has such a policy.
    bool PolicyNamesPlan() const;
    std::optional<DWORD> Read(const GUID& plan, const GUID& setting, PowerSource source);
    bool Write(const GUID& plan, const GUID& setting, PowerSource source, DWORD value);

    // --- Source and battery ---
    // Switch the PC to its battery (`short_term`: to an uninterruptible power supply) and back to
    // mains power. Changes of the source and of the sleep time-out in force are announced.
    void RunOnBattery(BYTE percent, bool short_term = false);
    void RunOnMains();
    BYTE line = 1;               // 0 battery, 1 mains, 255 unknown
    BYTE battery_percent = 255;  // 255 unknown, as without a battery
    bool battery_present = false;
    bool batteries_short_term = false;  // an uninterruptible power supply
    // How the PC sleeps. Without S3 and Modern Standby it does not.
    bool s3_supported = true;
    bool modern_standby = false;
    PowerSource source() const { return line == 1 ? PowerSource::ac : PowerSource::dc; }

    // --- Requests ---
    std::shared_ptr<PowerRequest> NewRequest(std::wstring owner, std::wstring reason);
    bool SetRequest(PowerRequest& request, POWER_REQUEST_TYPE type);
    // False when the request does not hold the type.
    bool ClearRequest(PowerRequest& request, POWER_REQUEST_TYPE type);
    bool Held(POWER_REQUEST_TYPE type) const;
    // The listing of the outstanding requests, in the form of "powercfg -requests".
    std::wstring Listing() const;
    // How long the command that prints it takes; no time unless set.
    Duration listing_takes{0};
    ListingWords listing_words = kEnglishListing;
    // When set, the command prints this in place of Listing(), as another version of Windows may.
    std::optional<std::wstring> listing_instead;
    // Ends all requests but those for away mode, as a sleep that the user asks for does.
    void EndRequests();

    // After a power cut: ends all requests, and puts the active plan in force with the values that
    // are on the disk. With the machine held.
    void Lose();

private:
    // The values whose changes are announced.
    struct Announced
    {
        DWORD source;
        GUID plan;  // whose personality is announced
        std::optional<DWORD> sleep_timeout;
    };
    bool ActivateByPolicy(const GUID& plan);
    Announced Present() const;
    void AnnounceChangesSince(const Announced& before);
    void RecordSource();

    Machine& m_machine;
    PowerPlans m_plans;
    std::vector<std::weak_ptr<PowerRequest>> m_requests;
};

}  // namespace virtual_pc
