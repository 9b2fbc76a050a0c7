// Streams: device-to-device routing by sequencer port subscription; file streams are
// handed to the file player.
#include <string.h>

#include "NuvLog"
#include "NuvMIDIDeviceManager.h"
#include "NuvMIDISeqSynth.h"

namespace {

bool ValidSource(int type) {
    return type == MIDI_DEVICE_TYPE_SOURCE || type == MIDI_DEVICE_TYPE_FILE;
}
bool ValidDestination(int type) {
    return type == MIDI_DEVICE_TYPE_DESTINATION || type == MIDI_DEVICE_TYPE_FILE;
}

// The kinds of stream, by the OR of two valid end types.
constexpr int kDeviceToDevice = MIDI_DEVICE_TYPE_SOURCE | MIDI_DEVICE_TYPE_DESTINATION;
constexpr int kToFile = MIDI_DEVICE_TYPE_FILE;
constexpr int kFileToDevice = MIDI_DEVICE_TYPE_FILE | MIDI_DEVICE_TYPE_DESTINATION;
static_assert(kDeviceToDevice == 1 && kToFile == 2 && kFileToDevice == 3, "stream kinds");

constexpr int kSubscriptionBusy = -16; // -EBUSY: the pair is already subscribed

std::tuple<int, int, int, int> RouteOf(const _MIDIClientInfo& from, const _MIDIClientInfo& to) {
    return std::make_tuple(from.client, from.port, to.client, to.port);
}

// A host's name need not be terminated: it is read up to the end of its field.
constexpr int kNameBound = sizeof(_MIDIDeviceInfo::name);

snd_seq_addr_t Address(const _MIDIClientInfo& info) {
    snd_seq_addr_t address;
    address.client = static_cast<unsigned char>(info.client);
    address.port = static_cast<unsigned char>(info.port);
    return address;
}

} // namespace

int NuvMIDIDeviceManager::StartStream(_MIDIDeviceInfo* src, _MIDIDeviceInfo* dst) {
    print_dlog(NUV_LOG_INFO, "%s\n", "\n[NuvMIDIDeviceManager::StartStream]\n");
    if (m_RefuseNullEnd("StartStream", src, dst))
        return 0;
    if (!ValidSource(src->type)) {
        print_dlog(NUV_LOG_INFO,
                   "\n[NuvMIDIDeviceManager::StartStream] Invalid source type[%d] name [%.*s]\n",
                   src->type, kNameBound, src->name);
        return 0;
    }
    if (!ValidDestination(dst->type)) {
        print_dlog(
            NUV_LOG_INFO,
            "\n[NuvMIDIDeviceManager::StartStream] Invalid destination type[%d] name [%.*s]\n",
            dst->type, kNameBound, dst->name);
        return 0;
    }
    const int kind = src->type | dst->type;
    if (kind == kToFile) {
        print_dlog(NUV_LOG_INFO, "%s\n",
                   "\n[NuvMIDIDeviceManager::StartStream] Not implemented \n");
        return 0;
    }
    if (kind == kFileToDevice)
        return m_StartFile(src, dst);

    DeviceEnd source{}, destination{};
    const bool haveSource = m_ReadDevice(src->id, &source);
    if (!haveSource || !m_ReadDevice(dst->id, &destination)) {
        print_dlog(NUV_LOG_INFO, "\n[NuvMIDIDeviceManager::StartStream] Can't find Device(%d) \n",
                   haveSource ? dst->id : src->id);
        return 0;
    }
    const _MIDIClientInfo& s = source.client;
    const int result =
        m_ConnectDevice(*source.seqSynth, Address(s), Address(destination.client), true);
    if (result < 0) {
        print_dlog(NUV_LOG_INFO, "%s\n",
                   "\n[NuvMIDIDeviceManager::StartStream] Subscription failed \n");
        return result == kSubscriptionBusy ? 2 : 0;
    }
    m_AddStream(RouteOf(s, destination.client), src->id, dst->id, destination);
    return 1;
}

int NuvMIDIDeviceManager::StopStream(_MIDIDeviceInfo* src, _MIDIDeviceInfo* dst) {
    print_dlog(NUV_LOG_INFO, "%s\n", "\n[NuvMIDIDeviceManager::StopStream]\n");
    if (m_RefuseNullEnd("StopStream", src, dst))
        return NUV_ERR_INVALID_STREAM;
    if (!ValidSource(src->type)) {
        print_dlog(NUV_LOG_INFO,
                   "\n[NuvMIDIDeviceManager::StopStream] Invalid source type[%d] name [%.*s]\n",
                   src->type, kNameBound, src->name);
        return NUV_ERR_INVALID_STREAM;
    }
    if (!ValidDestination(dst->type)) {
        print_dlog(
            NUV_LOG_INFO,
            "\n[NuvMIDIDeviceManager::StopStream] Invalid destination type[%d] name [%.*s]\n",
            dst->type, kNameBound, dst->name);
        return NUV_ERR_INVALID_STREAM;
    }
    const int kind = src->type | dst->type;
    if (kind == kToFile)
        return NUV_ERR_NOT_IMPLEMENTED;
    if (kind == kFileToDevice)
        return m_StopFile(dst);

    DeviceEnd source{}, destination{};
    const bool haveSource = m_ReadDevice(src->id, &source);
    if (!haveSource || !m_ReadDevice(dst->id, &destination)) {
        print_dlog(NUV_LOG_INFO, "\n[NuvMIDIDeviceManager::StopStream] Can't find Device(%d) \n",
                   haveSource ? dst->id : src->id);
        return NUV_ERR_GENERAL;
    }
    const _MIDIClientInfo& s = source.client;
    if (m_ConnectDevice(*source.seqSynth, Address(s), Address(destination.client), false) < 0) {
        print_dlog(NUV_LOG_INFO, "%s\n",
                   "\n[NuvMIDIDeviceManager::StopStream] Unsubscription failed \n");
        return NUV_ERR_GENERAL;
    }
    m_EndStream(RouteOf(s, destination.client));
    return 0;
}

// The stream counts as a user only while both its devices are there: a departure between
// the subscription and this point took the subscription, and the departure's own walk of
// the streams (after it removed the device under m_mutex) then runs before or after this
// one, never beside it.
void NuvMIDIDeviceManager::m_AddStream(const Route& route, int srcId, int dstId,
                                       const DeviceEnd& destination) {
    NuvMutexGuard guard(m_mutex);
    if (m_mapDevice.count(srcId) == 0 || m_mapDevice.count(dstId) == 0)
        return;
    std::lock_guard<std::recursive_mutex> lock(m_rendererMutex);
    m_streams.insert(route);
    m_CreateRenderer(destination);
}

// A stop removes one user, also for a subscription the library did not make.
void NuvMIDIDeviceManager::m_EndStream(const Route& route) {
    std::lock_guard<std::recursive_mutex> lock(m_rendererMutex);
    auto it = m_streams.find(route);
    if (it != m_streams.end())
        m_streams.erase(it);
    m_DestroyRenderer();
}

void NuvMIDIDeviceManager::m_EndStreamsOf(int client) {
    NuvMutexGuard guard(m_mutex);
    std::lock_guard<std::recursive_mutex> lock(m_rendererMutex);
    for (auto it = m_streams.begin(); it != m_streams.end();) {
        if (std::get<0>(*it) == client || std::get<2>(*it) == client) {
            it = m_streams.erase(it);
            m_DestroyRenderer();
        } else {
            ++it;
        }
    }
}

bool NuvMIDIDeviceManager::m_RefuseNullEnd(const char* operation, const _MIDIDeviceInfo* src,
                                           const _MIDIDeviceInfo* dst) {
    if (src != nullptr && dst != nullptr)
        return false;
    print_dlog(NUV_LOG_INFO, "\n[NuvMIDIDeviceManager::%s] null stream end\n", operation);
    return true;
}

int NuvMIDIDeviceManager::m_ConnectDevice(NuvMIDISeqSynth& seqSynth, snd_seq_addr_t sender,
                                          snd_seq_addr_t dest, bool connect) {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIDeviceManager::m_ConnectDevice] \n");
    if (connect) {
        const int result = seqSynth.Subscribe(sender, dest);
        print_dlog(NUV_LOG_INFO, "\nNuvMIDIDeviceManager::m_ConnectDevice %d\n", result);
        return result;
    }
    const int result = seqSynth.Unsubscribe(sender, dest);
    if (result == 0)
        print_dlog(NUV_LOG_TRACE, "%s\n", "\nUnsubscription was successful\n");
    else
        print_dlog(NUV_LOG_INFO, "%s\n", "\n There was no connection\n ");
    return result;
}
