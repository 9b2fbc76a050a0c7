#include "NuvMIDIDevice.h"

#include <string.h>

#include "NuvLog"
#include "NuvMIDIConnector.h"
#include "NuvResult"

// The framework hands every device of this library a connector that this library's
// connection manager made, so the connector is a MIDI connector.
NuvMIDIDevice::NuvMIDIDevice(NuvConnector* connector, int id)
    : NuvDevice(connector, id), m_pConnector(static_cast<NuvMIDIConnector*>(connector)),
      m_nHostCalls(0), m_bDestroying(false) {
    m_nType = NUV_DEVICE_TYPE_MIDI;
}

// The connector is the connection manager's; Destroy has already let go of it.
NuvMIDIDevice::~NuvMIDIDevice() {}

NuvMIDIDevice::HostCall::HostCall(NuvMIDIDevice& device) : m_device(device) {
    std::lock_guard<std::mutex> lock(device.m_callMutex);
    m_bEntered = !device.m_bDestroying;
    if (m_bEntered)
        ++device.m_nHostCalls;
}

NuvMIDIDevice::HostCall::~HostCall() {
    if (!m_bEntered)
        return;
    std::lock_guard<std::mutex> lock(m_device.m_callMutex);
    if (--m_device.m_nHostCalls == 0)
        m_device.m_callsDone.notify_all();
}

int NuvMIDIDevice::GetType() {
    return m_nType;
}

int NuvMIDIDevice::GetID() {
    return m_nID;
}

void NuvMIDIDevice::GetDevInfo(_NuvDevInfo& info) {
    HostCall call(*this);
    if (!call)
        return;
    memcpy(&info, &m_pConnector->GetDevInfo(), sizeof(info));
}

// The device stands with its connector once while it has at least one host callback, so
// each callback receives each event once; unregistering one leaves the others receiving.
// The handler and the connector change together under the connector's relay lock, which
// the event thread already holds when a callback unregisters itself: a registration and
// an unregistration crossing on two threads cannot leave the device registered without
// callbacks, or with callbacks but unregistered.
// A null callback is refused before the connector is reached.
int NuvMIDIDevice::RegisterCallback(NuvCallback* callback) {
    if (callback == nullptr) {
        print_dlog(NUV_LOG_INFO, "%s\n", "\n[NuvMIDIDevice::RegisterCallback] null callback\n");
        return NUV_ERR_GENERAL;
    }
    HostCall call(*this);
    if (!call)
        return NUV_ERR_GENERAL;
    std::lock_guard<std::recursive_mutex> lock(m_pConnector->RelayLock());
    if (NuvCallbackHandler::RegisterCallback(callback) != NUV_OK)
        return 1;
    return m_pConnector->RegisterMIDICallback(this);
}

int NuvMIDIDevice::UnregisterCallback(NuvCallback* callback) {
    if (callback == nullptr) {
        print_dlog(NUV_LOG_INFO, "%s\n", "\n[NuvMIDIDevice::UnregisterCallback] null callback\n");
        return NUV_ERR_GENERAL;
    }
    HostCall call(*this);
    if (!call)
        return NUV_ERR_GENERAL;
    std::lock_guard<std::recursive_mutex> lock(m_pConnector->RelayLock());
    NuvCallbackHandler::UnregisterCallback(callback);
    if (!HasCallbacks())
        m_pConnector->UnregisterMIDICallback(this);
    return 1;
}

int NuvMIDIDevice::GetInformation(MIDIEventType type, _MIDIMessage* msg) {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIDevice::GetInformation]\n");
    if (msg == nullptr) {
        print_dlog(NUV_LOG_INFO, "%s\n", "\n[NuvMIDIDevice::GetInformation] null message\n");
        return 0;
    }
    HostCall call(*this);
    if (call)
        m_pConnector->GetInformation(type, msg);
    return 0;
}

int NuvMIDIDevice::SendMessage(MIDIEventType type, _MIDIMessage& msg) {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIDevice::SendMessage]\n");
    HostCall call(*this);
    if (call)
        m_pConnector->SendMessage(type, msg);
    return 0;
}

int NuvMIDIDevice::LoadSoundFontFile(const std::string& path) {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIDevice::LoadSoundFontFile]\n");
    HostCall call(*this);
    return call ? m_pConnector->LoadSoundFontFile(path) : -1;
}

int NuvMIDIDevice::UnloadSoundFontFile(unsigned int fontId) {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIDevice::UnloadSoundFontFile]\n");
    HostCall call(*this);
    return call ? m_pConnector->UnloadSoundFontFile(fontId) : 0;
}

std::string NuvMIDIDevice::GetSoundFontIntruments(unsigned int fontId, unsigned int start,
                                                  unsigned int count) {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIDevice::GetSoundFontIntruments]\n");
    HostCall call(*this);
    return call ? m_pConnector->GetSoundFontIntruments(fontId, start, count) : std::string();
}

int NuvMIDIDevice::Create() {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIDevice::Create] Enter\n");
    NuvCallbackHandler::Create();
    if (m_pConnector->Open() != 0) {
        NuvCallbackHandler::Destroy();
        return NUV_ERR_OPEN_CONNECTOR;
    }
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIDevice::Create] Exit\n");
    return 0;
}

// Host calls still in progress finish first (new ones do nothing), so none of them can
// register the device again afterwards. The wait holds no lock that such a call or the
// event thread needs. Then the connector stops relaying before the handler goes: once the
// unregistration has returned, the event thread is no longer inside this device.
void NuvMIDIDevice::Destroy() {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIDevice::Destroy] Enter\n");
    {
        std::unique_lock<std::mutex> lock(m_callMutex);
        m_bDestroying = true;
        m_callsDone.wait(lock, [this] { return m_nHostCalls == 0; });
    }
    m_pConnector->UnregisterMIDICallback(this);
    m_pConnector->Close();
    NuvCallbackHandler::Destroy();
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIDevice::Destroy] Exit\n");
}

// Runs on the watcher's event thread, for events of this device's client only.
int NuvMIDIDevice::OnMIDIEvent(int, int code, _MIDIMessage& msg) {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIDevice::OnMIDIEvent]\n");
    int id = GetID();
    ExecuteCallback(code, &id, &msg, nullptr);
    return 0;
}
