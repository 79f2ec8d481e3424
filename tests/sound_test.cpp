// The sound system as a program finds it: whom it holds on to, what it refuses, and on how many
// threads it calls back.

#include "platform/audio.h"
#include "platform/counted_object.h"
#include "platform/kernel.h"
#include "platform/owned.h"
#include "platform/virtual/announcer/announcer.h"
#include "platform/virtual/sound/audio.h"
#include "tests/virtual_pc_test.h"

using namespace std::chrono_literals;
using namespace virtual_pc;

namespace {

// Counts its references.
template <class Interface>
struct Referenced : Interface
{
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** object) override
    {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override { return --references; }

    std::atomic<ULONG> references = 1;
};

// Takes a second for each notification, and counts how many it is in at most.
class Client final : public Referenced<IMMNotificationClient>
{
public:
    HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR, DWORD) override
    {
        most = std::max(most.load(), ++inside);
        Sleep(1000);
        --inside;
        ++done;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow, ERole, LPCWSTR) override
    {
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR, const PROPERTYKEY) override
    {
        return S_OK;
    }

    std::atomic<int> inside = 0, most = 0, done = 0;
};

class SoundTest : public VirtualPcTest
{
protected:
    static OwnedInterface<IMMDeviceEnumerator> Enumerator()
    {
        OwnedInterface<IMMDeviceEnumerator> enumerator;
        EXPECT_EQ(
            CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_ALL, IID_IMMDeviceEnumerator,
                             reinterpret_cast<void**>(enumerator.Receive())),
            S_OK);
        return enumerator;
    }

    // Runs a body in an apartment of a program.
    void RunInApartment(const std::function<void()>& body)
    {
        RunAsProcess([&] {
            CoInitializeEx(nullptr, COINIT_MULTITHREADED);
            body();
            CoUninitialize();
        });
    }
};

TEST_F(SoundTest, ANotificationClientIsNotHeldAndBelongsToTheProcess)
{
    constexpr auto kNotFound = static_cast<HRESULT>(0x80070490u);
    RunInApartment([&] {
        Client client;
        const auto enumerator = Enumerator();
        EXPECT_EQ(enumerator.Get()->RegisterEndpointNotificationCallback(&client), S_OK);
        EXPECT_EQ(client.references, 1u);
        const auto other = Enumerator();
        EXPECT_EQ(other.Get(), enumerator.Get()) << "a process has one";
        EXPECT_EQ(other.Get()->UnregisterEndpointNotificationCallback(&client), S_OK);
        EXPECT_EQ(client.references, 1u);
        EXPECT_EQ(enumerator.Get()->UnregisterEndpointNotificationCallback(&client), kNotFound);
    });
}

TEST_F(SoundTest, AVolumeCallbackIsHeldAndHearsOnlyOfChanges)
{
    struct Callback final : Referenced<IAudioEndpointVolumeCallback>
    {
        HRESULT STDMETHODCALLTYPE OnNotify(AUDIO_VOLUME_NOTIFICATION_DATA*) override
        {
            ++heard;
            return S_OK;
        }
        std::atomic<int> heard = 0;
    };
    pc.audio.Add(L"Desk");
    RunInApartment([] {
        Callback callback;
        const auto enumerator = Enumerator();
        OwnedInterface<IMMDevice> device;
        enumerator.Get()->GetDefaultAudioEndpoint(eRender, eConsole, device.Receive());
        OwnedInterface<IAudioEndpointVolume> volume;
        device.Get()->Activate(IID_IAudioEndpointVolume, CLSCTX_ALL, nullptr,
                               reinterpret_cast<void**>(volume.Receive()));
        EXPECT_EQ(volume.Get()->RegisterControlChangeNotify(&callback), S_OK);
        EXPECT_EQ(callback.references, 2u);
        EXPECT_EQ(volume.Get()->SetMute(TRUE, nullptr), S_OK);
        EXPECT_EQ(volume.Get()->SetMute(TRUE, nullptr), S_FALSE);
        Sleep(100);
        EXPECT_EQ(callback.heard, 1);
        EXPECT_EQ(volume.Get()->UnregisterControlChangeNotify(&callback), S_OK);
        EXPECT_EQ(callback.references, 1u);
    });
}

TEST_F(SoundTest, NotificationsComeLateDoubledAndMerged)
{
    Endpoint& desk = pc.audio.Add(L"Desk");
    const auto hears = [&](const NoticeDelivery& how, DWORD soon_ms) {
        int done = 0;
        RunInApartment([&] {
            Client client;
            const auto enumerator = Enumerator();
            enumerator.Get()->RegisterEndpointNotificationCallback(&client);
            {
                const Hold hold(pc);
                pc.announcer.delivery = how;
                desk.SetState(DEVICE_STATE_UNPLUGGED);
                desk.SetState(DEVICE_STATE_ACTIVE);
                pc.announcer.delivery = {};
            }
            Sleep(soon_ms);
            done = client.done;
            Sleep(60'000);
            enumerator.Get()->UnregisterEndpointNotificationCallback(&client);
        });
        return done;
    };
    // The client takes a second for each.
    EXPECT_EQ(hears({}, 5000), 2);
    EXPECT_EQ(hears({.doubled = true}, 5000), 4);
    EXPECT_EQ(hears({.merged = true}, 5000), 1);
    EXPECT_EQ(hears({.late = 20s}, 20'500), 0);
    EXPECT_EQ(hears({.late = 20s}, 25'000), 2);
}

TEST_F(SoundTest, CallbacksMayComeOneAfterTheOther)
{
    Endpoint& desk = pc.audio.Add(L"Desk");
    Endpoint& hall = pc.audio.Add(L"Hall");
    for (const std::size_t threads : {1, 4}) {
        pc.audio.notices.threads_max = threads;
        RunInApartment([&] {
            Client client;
            const auto enumerator = Enumerator();
            enumerator.Get()->RegisterEndpointNotificationCallback(&client);
            for (const DWORD state : {DEVICE_STATE_UNPLUGGED, DEVICE_STATE_ACTIVE}) {
                desk.SetState(state);
                hall.SetState(state);
            }
            const ULONGLONG before = GetTickCount64();
            while (client.done < 4) Sleep(10);
            EXPECT_NEAR(static_cast<double>(GetTickCount64() - before), threads == 1 ? 4000 : 1000,
                        50);
            EXPECT_EQ(client.most == 1, threads == 1);
            enumerator.Get()->UnregisterEndpointNotificationCallback(&client);
        });
    }
}

}  // namespace
