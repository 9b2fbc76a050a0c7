// The watcher's sequencer client and the discovery of the clients that already exist.
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include "NuvLog"
#include "NuvMIDIHandles.h"
#include "NuvMIDIWatcher.h"
#include "NuvMIDIWatcherNames.h"
#include "NuvResult"

namespace {

const char kSeqUevent[] = "/sys/class/sound/seq/uevent";
const char kSeqDevicePath[] = "/dev/snd/seq";

// Calls perPort(clientInfo, portInfo) for every port of every client after the system
// client, in increasing client and port number.
template <typename PerPort>
void ForEachPort(snd_seq_t* seq, snd_seq_client_info_t* clientInfo, snd_seq_port_info_t* portInfo,
                 PerPort perPort) {
    snd_seq_client_info_set_client(clientInfo, 0);
    while (snd_seq_query_next_client(seq, clientInfo) >= 0) {
        snd_seq_port_info_set_client(portInfo, snd_seq_client_info_get_client(clientInfo));
        snd_seq_port_info_set_port(portInfo, -1);
        while (snd_seq_query_next_port(seq, portInfo) >= 0)
            perPort(clientInfo, portInfo);
    }
}

} // namespace

int NuvMIDIWatcher::m_CreateSequencer() {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIWatcher::m_CreateSequencer]\n");

    struct stat status;
    _NuvDetailDevInfo probe{};
    strncpy(probe.devicePath, kSeqDevicePath, sizeof(probe.devicePath));
    if (lstat(kSeqUevent, &status) != 0 || t_ParseMajorMinorNumber(&probe, kSeqUevent) == 0) {
        print_dlog(NUV_LOG_INFO, "%s\n",
                   "\n[NuvMIDIWatcher::m_CreateSequencer] Could not create seq device\n");
        return NUV_ERR_GENERAL;
    }

    if (m_seqSynth->OpenSequencer() != 0)
        return NUV_ERR_GENERAL;
    // A pass starts as soon as input waits, not only when the period has run out: a key
    // press reaches the callbacks without waiting for a timer.
    struct pollfd wake[4];
    const int wakeCount = snd_seq_poll_descriptors(m_seqSynth->Seq(), wake, 4, POLLIN);
    t_SetWakeDescriptors(wake, wakeCount);
    return 0;
}

void NuvMIDIWatcher::m_AddExistingDevices() {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIWatcher::m_AddExistingDevices]\n");
    NuvSeqClientInfo clientInfo = NuvNewClientInfo();
    NuvSeqPortInfo portInfo = NuvNewPortInfo();
    if (m_seqSynth == nullptr || m_seqSynth->Seq() == nullptr) {
        print_dlog(NUV_LOG_INFO, "%s\n",
                   "\n[NuvMIDIWatcher::m_AddExistingDevices] Sequencer does not exist\n");
        return;
    }
    if (!clientInfo || !portInfo)
        return;

    ForEachPort(m_seqSynth->Seq(), clientInfo.get(), portInfo.get(),
                [this](snd_seq_client_info_t* client, snd_seq_port_info_t* port) {
                    const char* name = snd_seq_client_info_get_name(client);
                    // Whole-name comparison: a client merely named like these is a device.
                    if (strcmp(name, kWatcherClientName) == 0 ||
                        strcmp(name, kRecorderClientName) == 0)
                        return;
                    _MIDIClientInfo info{};
                    info.client = snd_seq_port_info_get_client(port);
                    info.port = snd_seq_port_info_get_port(port);
                    info.isSynth = strstr(name, kSynthNamePart) != nullptr ? 1 : 0;
                    m_AddDevice(info);
                });
}

int NuvMIDIWatcher::m_AddDevice(_MIDIClientInfo info) {
    print_dlog(NUV_LOG_TRACE, "%s\n", "\n[NuvMIDIWatcher::m_AddDevice]\n");

    auto* record = new _NuvDetailDevInfo();
    auto* clientInfo = new _MIDIClientInfo();
    // The framework's contract names the handles in every record.
    snd_seq_t* seq = m_seqSynth != nullptr ? m_seqSynth->Seq() : nullptr;
    clientInfo->seq = seq;
    clientInfo->synth = m_seqSynth != nullptr ? m_seqSynth->Synth() : nullptr;
    clientInfo->synthClient = m_synthClient;
    clientInfo->synthPort = m_synthPort;
    clientInfo->client = info.client;
    clientInfo->port = info.port;
    clientInfo->isSynth = info.isSynth;

    // The candidate's key is the client number: every port of a client gives the same key.
    char uid[sizeof(record->devInfo.UID)] = {};
    snprintf(uid, sizeof(uid), "%d", info.client);
    memcpy(record->devInfo.UID, uid, sizeof(uid));
    memcpy(record->key, uid, sizeof(uid));

    NuvSeqClientInfo sequencerInfo = NuvNewClientInfo();
    if (sequencerInfo && seq != nullptr) {
        // A client that cannot be read keeps the empty name of a fresh information object.
        snd_seq_get_any_client_info(seq, info.client, sequencerInfo.get());
        strncpy(record->devInfo.deviceName, snd_seq_client_info_get_name(sequencerInfo.get()),
                sizeof(record->devInfo.deviceName) - 1);
    }
    record->devInfo.type = NUV_DEVICE_TYPE_MIDI;
    record->devInfo.isSynth = info.isSynth;
    memcpy(record->devicePath, kDeviceHandlePath, strlen(kDeviceHandlePath));
    memcpy(record->vendorID, kDeviceIdText, sizeof(record->vendorID));
    memcpy(record->productID, kDeviceIdText, sizeof(record->productID));
    record->alive = 1;
    record->pExtraInfo = clientInfo;

    print_dlog(NUV_LOG_TRACE,
               "\n[NuvMIDIWatcher::m_AddDevice] vendorID = %s\n productID = %s\n deviceName = "
               "%s\n UID = %s\n",
               record->vendorID, record->productID, record->devInfo.deviceName,
               record->devInfo.UID);
    t_AddCandidate(record);
    return 0;
}
