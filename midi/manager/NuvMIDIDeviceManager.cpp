// The host-facing device manager: devices on the framework's manager, the device factory
// and the shared, reference-counted renderer.
#include "NuvMIDIDeviceManager.h"

#include "NuvConnectionManager"
#include "NuvLog"
#include "NuvMIDIConnector.h"
#include "NuvMIDIDevice.h"
#include "NuvMIDIRenderer.h"
#include "NuvMIDISeqSynth.h"

namespace {

INuvMIDIDevice* AsHostDevice(NuvDevice* device) {
    return device != nullptr ? static_cast<NuvMIDIDevice*>(device) : nullptr;
}

} // namespace

NuvMIDIDeviceManager::NuvMIDIDeviceManager()
    : m_rendererRefCount(0), m_appInfo1(-1), m_appInfo2(-1) {}

// A playing file ends first (m_playFile is the last member), then the renderer stops.
NuvMIDIDeviceManager::~NuvMIDIDeviceManager() {}

int NuvMIDIDeviceManager::IsConnected(const char* name) {
    print_dlog(NUV_LOG_INFO, "%s\n", "\n[NuvMIDIDeviceManager::IsConnected]\n");
    if (name == nullptr) {
        print_dlog(NUV_LOG_INFO, "%s\n", "\n[NuvMIDIDeviceManager::IsConnected] null name\n");
        return 0;
    }
    return NuvDeviceManager::IsConnected(NUV_DEVICE_TYPE_MIDI, name);
}

int NuvMIDIDeviceManager::GetConnectedDeviceInfo(_NuvDevInfo& info, bool& created, int index) {
    print_dlog(NUV_LOG_INFO, "%s\n", "\n[NuvMIDIDeviceManager::GetConnectedDeviceInfo]\n");
    return NuvDeviceManager::GetConnectedDeviceInfo(info, created, NUV_DEVICE_TYPE_MIDI, index);
}

int NuvMIDIDeviceManager::RegisterCallback(NuvCallback* callback) {
    print_dlog(NUV_LOG_INFO, "%s\n", "[NuvMIDIDeviceManager::RegisterCallback]\n");
    return NuvDeviceManager::RegisterCallback(callback);
}

int NuvMIDIDeviceManager::UnregisterCallback(NuvCallback* callback) {
    print_dlog(NUV_LOG_INFO, "%s\n", "[NuvMIDIDeviceManager::UnregisterCallback]\n");
    return NuvDeviceManager::UnregisterCallback(callback);
}

INuvMIDIDevice* NuvMIDIDeviceManager::CreateDevice(const char* name) {
    print_dlog(NUV_LOG_INFO, "%s\n", "[NuvMIDIDeviceManager::CreateDevice]\n");
    if (name == nullptr) {
        print_dlog(NUV_LOG_INFO, "%s\n", "\n[NuvMIDIDeviceManager::CreateDevice] null name\n");
        return nullptr;
    }
    return AsHostDevice(NuvDeviceManager::t_CreateDevice(NUV_DEVICE_TYPE_MIDI, name));
}

INuvMIDIDevice* NuvMIDIDeviceManager::GetDevice(int id) {
    print_dlog(NUV_LOG_INFO, "ID = [%d].", id);
    NuvDevice* device = NuvDeviceManager::t_FindDevice(id);
    // Read before the renderer's mutex is taken: the two are never held together.
    DeviceEnd end;
    const bool found = device != nullptr && m_ReadDevice(id, &end);
    std::lock_guard<std::recursive_mutex> lock(m_rendererMutex);
    // Taking a device adds a user of the renderer only when there is none.
    if (m_rendererRefCount == 0 && found)
        m_CreateRenderer(end);
    return AsHostDevice(device);
}

int NuvMIDIDeviceManager::DestroyDevice(int id) {
    print_dlog(NUV_LOG_INFO, "ID = [%d]", id);
    return NuvDeviceManager::t_DestroyDevice(id);
}

int NuvMIDIDeviceManager::PauseStream(_MIDIDeviceInfo* src, _MIDIDeviceInfo* dst) {
    m_RefuseNullEnd("PauseStream", src, dst);
    return NUV_ERR_NOT_IMPLEMENTED;
}

int NuvMIDIDeviceManager::GetFilePlayStatus() {
    return m_playFile.Status();
}

int NuvMIDIDeviceManager::SetAppInfo(int appInfo1, int appInfo2, std::string text) {
    std::lock_guard<std::recursive_mutex> lock(m_rendererMutex);
    m_appInfo1 = appInfo1;
    m_appInfo2 = appInfo2;
    m_appInfoText = text.c_str(); // up to the first NUL
    return 1;
}

NuvDevice* NuvMIDIDeviceManager::t_NewDevice(NuvConnector* connector, int id) {
    print_dlog(NUV_LOG_INFO, "%s\n", "\n[*NuvMIDIDeviceManager::t_NewDevice]\n");
    return new NuvMIDIDevice(connector, id);
}

int NuvMIDIDeviceManager::t_OnCallback(int event, void* arg1, void* arg2, void* arg3) {
    if (event != NUV_EVENT_CONNECTOR_REMOVED || arg1 == nullptr)
        return NuvDeviceManager::t_OnCallback(event, arg1, arg2, arg3);
    _MIDIClientInfo client{};
    static_cast<NuvMIDIConnector*>(arg1)->GetClientInformation(&client);
    const int result = NuvDeviceManager::t_OnCallback(event, arg1, arg2, arg3);
    m_EndStreamsOf(client.client);
    return result;
}

// Whoever destroys a device takes it out of the map under the same mutex before deleting it.
bool NuvMIDIDeviceManager::m_ReadDevice(int id, DeviceEnd* out) {
    if (!m_mutex.FlagCreate())
        return false;
    NuvMutexGuard guard(m_mutex);
    auto it = m_mapDevice.find(id);
    if (it == m_mapDevice.end())
        return false;
    auto* connector = static_cast<NuvMIDIConnector*>(it->second->GetConnector());
    if (connector->SeqSynth() == nullptr) // not made by this library's watcher
        return false;
    connector->GetClientInformation(&out->client);
    out->seqSynth = connector->SeqSynth();
    return true;
}

// The renderer plays the synthesizer of the device's client information.
void NuvMIDIDeviceManager::m_CreateRenderer(const DeviceEnd& device) {
    std::lock_guard<std::recursive_mutex> lock(m_rendererMutex);
    if (m_rendererRefCount++ != 0)
        return;
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIDeviceManager::m_CreateRenderer]\n");
    m_pRenderer.reset(new NuvMIDIRenderer(*device.seqSynth));
    m_pRenderer->Create(m_appInfo1, m_appInfo2, m_appInfoText);
    m_pRenderer->StartRenderer();
}

void NuvMIDIDeviceManager::m_DestroyRenderer() {
    std::lock_guard<std::recursive_mutex> lock(m_rendererMutex);
    if (m_rendererRefCount == 0) // a stop without a matching start: nothing to remove
        return;
    if (--m_rendererRefCount != 0)
        return;
    print_dlog(NUV_LOG_TRACE, "%s\n",
               "\n[NuvMIDIDeviceManager::m_DestroyRenderer] Destroying renderer\n");
    m_pRenderer.reset();
}

void NuvMIDIDeviceManager::RendererStop::operator()(NuvMIDIRenderer* renderer) const {
    renderer->StopRenderer();
    renderer->Destroy();
    delete renderer;
}
