#include "restore/endpoints.h"

namespace {

template <class Interface>
void** ReceiveAny(OwnedInterface<Interface>& reference)
{
    return reinterpret_cast<void**>(reference.Receive());
}

}  // namespace

Endpoints::~Endpoints()
{
    m_enumerator.Reset();
    if (m_in_apartment) CoUninitialize();
}

OwnedInterface<IAudioEndpointVolume> Endpoints::VolumeOf(const std::wstring& id)
{
    OwnedInterface<IAudioEndpointVolume> volume;
    if (!m_tried) {
        m_tried = true;
        // This fails where the thread is in a single-threaded apartment already, which serves as
        // well.
        m_in_apartment = SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED));
        CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_INPROC_SERVER,
                         IID_IMMDeviceEnumerator, ReceiveAny(m_enumerator));
    }
    OwnedInterface<IMMDevice> device;
    if (m_enumerator) m_enumerator.Get()->GetDevice(id.c_str(), device.Receive());
    if (device) {
        device.Get()->Activate(IID_IAudioEndpointVolume, CLSCTX_ALL, nullptr, ReceiveAny(volume));
    }
    return volume;
}
