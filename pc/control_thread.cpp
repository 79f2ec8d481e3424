#include "pc/control_thread.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "platform/service.h"
#include "platform/session.h"
#include "platform/virtual/thread.h"

using namespace virtual_pc;

namespace {

class WorkToDo final : public Waitable
{
public:
    WorkToDo() : Waitable(Reset::automatic) {}
    std::string_view Kind() const override { return "control thread's work"; }
};

template <class... Arguments>
void CallHandler(const Process& service, const char* symbol, Arguments... arguments)
{
    using Handler = void (*)(Arguments...);
    if (const auto handler = reinterpret_cast<Handler>(service.Find(symbol))) handler(arguments...);
}

template <class T>
T Read(const std::vector<BYTE>& data)
{
    T value{};
    std::memcpy(&value, data.data(), std::min(sizeof(value), data.size()));
    return value;
}

const struct
{
    const GUID& setting;
    const char* handler;  // takes the value's 32 bits
} kSettings[] = {
    {GUID_SYSTEM_AWAYMODE, "_ZN16CNeverSleepState15OnAwayModeEventEj"},
    {GUID_GLOBAL_USER_PRESENCE, "_ZN16CNeverSleepState19OnUserPresenceEventEj"},
    {GUID_MONITOR_POWER_ON, "_ZN16CNeverSleepState20OnDisplayStateChangeEj"},
    {GUID_ACDC_POWER_SOURCE, "_ZN16CNeverSleepState19OnPowerSourceChangeEj"},
    {GUID_STANDBY_TIMEOUT, "_ZN16CNeverSleepState20OnSleepTimeoutChangeEj"},
};

bool Same(const GUID& a, const GUID& b) { return std::memcmp(&a, &b, sizeof(GUID)) == 0; }

}  // namespace

ControlThread::ControlThread(Machine& pc) : m_pc(pc), m_work(std::make_shared<WorkToDo>())
{
    pc.announcer.Add(*this);
}

ControlThread::~ControlThread() { m_pc.announcer.Remove(*this); }

void ControlThread::Serve(Process& service)
{
    m_service = &service;
    m_heard.clear();
    m_work->Unsignal();
    if (auto* on_ac = static_cast<std::atomic<BOOL>*>(service.Find("g_bOnAcPower"))) {
        *on_ac = m_pc.power.source() == PowerSource::ac;
    }
    service.StartThread(m_pc, [this, &service]() -> DWORD {
        service.Guard(*Thread::Self(), [this] { Work(); });
        return 0;
    });
}

bool ControlThread::Hear(const Announcement& announcement, const std::function<void()>& handled)
{
    if (!m_service || !m_service->running() || m_service->ending()) return false;
    m_heard.push_back({announcement, handled});
    m_work->Signal();
    return true;
}

void ControlThread::Work()
{
    for (;;) {
        Heard heard;
        {
            const Hold hold(m_pc);
            while (m_heard.empty()) {
                Waitable::WaitFor(m_pc, *Thread::Self(), {m_work}, false, kNever);
            }
            heard = std::move(m_heard.front());
            m_heard.pop_front();
        }
        Call(heard.what);
        const Hold hold(m_pc);
        heard.handled();
    }
}

void ControlThread::Call(const Announcement& what) const
{
    const Process& service = *m_service;
    if (what.control == SERVICE_CONTROL_TIMECHANGE) {
        CallHandler(service, "_ZN16CNeverSleepState18OnSystemTimeChangeEv");
    } else if (what.control == SERVICE_CONTROL_SESSIONCHANGE) {
        const WTSSESSION_NOTIFICATION session{sizeof(session), Read<DWORD>(what.data)};
        CallHandler(service,
                    "_ZN16CNeverSleepState15OnSessionChangeEjPK26tagWTSSESSION_NOTIFICATION",
                    what.event, &session);
    } else if (what.event == PBT_APMSUSPEND) {
        CallHandler(service, "_ZN16CNeverSleepState9OnSuspendEv");
    } else if (what.event == PBT_APMRESUMESUSPEND || what.event == PBT_APMRESUMEAUTOMATIC) {
        CallHandler<BOOL>(service, "_ZN16CNeverSleepState8OnResumeEi",
                          what.event == PBT_APMRESUMESUSPEND);
    } else if (what.setting && Same(*what.setting, GUID_POWERSCHEME_PERSONALITY)) {
        const GUID personality = Read<GUID>(what.data);
        CallHandler<const GUID&>(service, "_ZN16CNeverSleepState20OnPowerOptionChangedERK4GUID",
                                 personality);
    } else if (what.setting) {
        for (const auto& [setting, handler] : kSettings) {
            if (Same(*what.setting, setting)) CallHandler(service, handler, Read<DWORD>(what.data));
        }
    }
}
