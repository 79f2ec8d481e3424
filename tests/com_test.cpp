// COM as a program finds it: what a process sets once, and what it must give up again.

#include "platform/com.h"
#include "platform/audio.h"
#include "platform/counted_object.h"
#include "platform/owned.h"
#include "platform/virtual/com/com.h"
#include "tests/virtual_pc_test.h"

using namespace virtual_pc;

namespace {

constexpr CLSID kClass{
    0x9C2E4D10, 0x77A1, 0x4F3B, {0x91, 0x2A, 0x60, 0x5B, 0x7E, 0x11, 0x42, 0x08}};

class Factory final : public CountedObject<IClassFactory, IID_IClassFactory, Factory>
{
public:
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown*, REFIID, void** object) override
    {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

class ComTest : public VirtualPcTest
{
protected:
    static HRESULT SetSecurity(DWORD authentication = RPC_C_AUTHN_LEVEL_NONE)
    {
        return CoInitializeSecurity(nullptr, -1, nullptr, nullptr, authentication,
                                    RPC_C_IMP_LEVEL_IDENTIFY, nullptr, EOAC_NONE, nullptr);
    }

    static DWORD Register()
    {
        DWORD registration = 0;
        auto* factory = new Factory;
        EXPECT_EQ(CoRegisterClassObject(kClass, factory, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE,
                                        &registration),
                  S_OK);
        factory->Release();
        return registration;
    }

    std::optional<Com::CallSecurity> Security() const
    {
        const Hold hold(pc);
        return pc.com.SecurityOf(Thread::Self()->process);
    }
};

TEST_F(ComTest, SecurityIsSetOnceInAProcessAndBeforeAnInterfaceLeavesItsApartment)
{
    RunAsProcess([&] {
        EXPECT_EQ(SetSecurity(), CO_E_NOTINITIALIZED);
        CoInitialize(nullptr);
        EXPECT_EQ(CoInitializeSecurity(nullptr, -1, nullptr, &pc, 1, 2, nullptr, 0, nullptr),
                  E_INVALIDARG);
        void* sound = nullptr;
        EXPECT_EQ(CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_ALL,
                                   IID_IMMDeviceEnumerator, &sound),
                  S_OK);
        static_cast<IUnknown*>(sound)->Release();
        EXPECT_FALSE(Security()) << "an object of the process's own settles nothing";
        EXPECT_EQ(SetSecurity(), S_OK);
        EXPECT_EQ(SetSecurity(6), RPC_E_TOO_LATE);
        CoUninitialize();
    });
    RunAsProcess([&] {
        CoInitialize(nullptr);
        const DWORD registration = Register();
        EXPECT_EQ(SetSecurity(), RPC_E_TOO_LATE);
        EXPECT_TRUE(Security()->implicit);
        EXPECT_EQ(CoRevokeClassObject(registration), S_OK);
        CoUninitialize();
    });
}

TEST_F(ComTest, AThreadEntersItsApartmentAgainButNoneOfTheOtherKind)
{
    RunAsProcess([] {
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_FALSE);
        EXPECT_EQ(CoInitialize(nullptr), RPC_E_CHANGED_MODE);
        CoUninitialize();
        EXPECT_EQ(CoInitialize(nullptr), RPC_E_CHANGED_MODE);
        CoUninitialize();
        EXPECT_EQ(CoInitialize(nullptr), S_OK);
        CoUninitialize();
    });
}

TEST_F(ComTest, AClassThatIsNotRevokedCountsAsLeftOpen)
{
    left_open_is_expected = true;
    RunAsProcess([&] {
        CoInitialize(nullptr);
        const DWORD revoked = Register();
        EXPECT_EQ(CoRevokeClassObject(revoked), S_OK);
        Register();
        CoUninitialize();
    });
    ASSERT_EQ(pc.processes().back()->left_open().size(), 1u);
    EXPECT_EQ(pc.processes().back()->left_open()[0].kind, "registered class object");
}

}  // namespace
