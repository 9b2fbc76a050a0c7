// The connection manager of MIDI devices: one NuvMIDIConnector per candidate.
#ifndef NUV_MIDI_CONNECTION_MANAGER_H
#define NUV_MIDI_CONNECTION_MANAGER_H

#include "NuvConnectionManager"

class NuvMIDIConnectionManager : public NuvConnectionManager {
public:
    virtual ~NuvMIDIConnectionManager() {}
    virtual NuvConnector* t_NewConnector(_NuvDetailDevInfo* info);
};

#endif
