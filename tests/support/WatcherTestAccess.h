// Test access to a NuvMIDIWatcher's insides: its handles, its private steps and its
// candidate map. Tests that read candidates run the passes themselves (t_ExtraEnumerate)
// without starting the watcher thread, so nothing else touches the map meanwhile.
#ifndef NUV_TEST_WATCHER_TEST_ACCESS_H
#define NUV_TEST_WATCHER_TEST_ACCESS_H

#include <map>
#include <string>

#include "NuvMIDIWatcher.h"

// A candidate as the watcher made it: the record and its client information, copied.
struct CandidateCopy {
    _NuvDetailDevInfo record;
    _MIDIClientInfo clientInfo;
    bool hasClientInfo;
};

class NuvMIDIWatcherTestAccess {
public:
    static snd_seq_t* Seq(NuvMIDIWatcher& w) {
        return w.m_seqSynth ? w.m_seqSynth->Seq() : nullptr;
    }
    static fluid_synth_t* Synth(NuvMIDIWatcher& w) {
        return w.m_seqSynth ? w.m_seqSynth->Synth() : nullptr;
    }
    static fluid_settings_t* Settings(NuvMIDIWatcher& w) {
        return w.m_seqSynth ? w.m_seqSynth->m_settings.get() : nullptr;
    }
    static fluid_midi_driver_t* Driver(NuvMIDIWatcher& w) {
        return w.m_seqSynth ? w.m_seqSynth->m_driver.get() : nullptr;
    }
    static int SynthClient(NuvMIDIWatcher& w) { return w.m_synthClient; }
    static int SynthPort(NuvMIDIWatcher& w) { return w.m_synthPort; }
    static int WatcherType(NuvMIDIWatcher& w) { return w.m_nWatcherType; }

    // The synthesizer alone, as Create makes it, on a watcher that was not created.
    static int CreateSynthesizer(NuvMIDIWatcher& w) {
        if (!w.m_seqSynth)
            w.m_seqSynth.reset(new NuvMIDISeqSynth());
        return w.m_seqSynth->CreateSynthesizer();
    }
    static int AddDevice(NuvMIDIWatcher& w, int client, int port, int isSynth) {
        _MIDIClientInfo info{};
        info.client = client;
        info.port = port;
        info.isSynth = isSynth;
        return w.m_AddDevice(info);
    }
    static int DeleteCandidate(NuvMIDIWatcher& w, const char* key) {
        return w.t_DeleteCandidate(key);
    }

    static std::map<std::string, CandidateCopy> Candidates(NuvMIDIWatcher& w) {
        std::map<std::string, CandidateCopy> copies;
        for (const auto& entry : w.m_mapCandidate) {
            CandidateCopy copy{};
            copy.record = *entry.second;
            copy.hasClientInfo = entry.second->pExtraInfo != nullptr;
            if (copy.hasClientInfo)
                copy.clientInfo = *static_cast<_MIDIClientInfo*>(entry.second->pExtraInfo);
            copies[entry.first] = copy;
        }
        return copies;
    }
    // The live record of a key, or null (for tests that change a field).
    static _NuvDetailDevInfo* Candidate(NuvMIDIWatcher& w, const std::string& key) {
        auto it = w.m_mapCandidate.find(key);
        return it == w.m_mapCandidate.end() ? nullptr : it->second;
    }
};

#endif
