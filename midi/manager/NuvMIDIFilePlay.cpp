// The manager's file streams: a file played on the destination device's synthesizer.
#include <string.h>

#include "NuvLog"
#include "NuvMIDIDeviceManager.h"

// The destination is looked up before the playback's mutex is taken: the two are never
// held together.
int NuvMIDIDeviceManager::m_StartFile(_MIDIDeviceInfo* src, _MIDIDeviceInfo* dst) {
    DeviceEnd destination{};
    if (!m_ReadDevice(dst->id, &destination)) {
        print_dlog(NUV_LOG_INFO, "\n[NuvMIDIDeviceManager::StartStream] Can't find Device(%d) \n",
                   dst->id);
        return 0;
    }
    // A host's name need not be terminated: it is read up to the end of its field.
    char fileName[256] = {};
    memcpy(fileName, src->name, strnlen(src->name, sizeof fileName - 1));
    if (!fluid_is_midifile(fileName)) {
        print_dlog(NUV_LOG_TRACE,
                   "\n[NuvMIDIDeviceManager::StartStream] [%s] is not valid midi file\n", fileName);
        return 0;
    }
    switch (m_playFile.Start(fileName, *destination.seqSynth)) {
    case NuvMIDIFilePlayback::Started::kYes:
        m_CreateRenderer(destination); // the file's user stays after it ends
        return 1;
    case NuvMIDIFilePlayback::Started::kBusy:
        return 1; // a file is playing; this one is not queued
    default:
        return 0;
    }
}

int NuvMIDIDeviceManager::m_StopFile(_MIDIDeviceInfo* dst) {
    print_dlog(NUV_LOG_TRACE, "%s\n",
               "\n[NuvMIDIDeviceManager::StopStream] File play stop called \n");
    if (m_playFile.Status() != NuvMIDIFilePlayback::kStatusPlaying)
        return 1;
    DeviceEnd destination{};
    if (!m_ReadDevice(dst->id, &destination)) {
        print_dlog(NUV_LOG_INFO, "\n[NuvMIDIDeviceManager::StopStream] Can't find Device(%d) \n",
                   dst->id);
        return NUV_ERR_GENERAL;
    }
    return m_playFile.Stop(*destination.seqSynth);
}
