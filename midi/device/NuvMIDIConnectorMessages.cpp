// What a MIDI connector sends through the sequencer and reads back from the synthesizer.
#include <alsa/asoundlib.h>
#include <fluidsynth.h>
#include <stdio.h>
#include <string.h>

#include "NuvLog"
#include "NuvMIDIConnector.h"
#include "NuvMIDISeqSynth.h"

namespace {
// Every answer text leaves room for the terminator within the message's text.
const size_t kTextBound = 255;

bool IsNote(MIDIEventType type) {
    return type == MIDI_EVENT_NOTE_ON || type == MIDI_EVENT_NOTE_OFF;
}
} // namespace

int NuvMIDIConnector::SendMessage(MIDIEventType type, _MIDIMessage& msg) {
    const _MIDIClientInfo* info = m_RequireClientInfo("SendMessage");
    if (info == nullptr)
        return 0;

    snd_seq_event_t event;
    memset(&event, 0, sizeof(event));
    event.type = static_cast<snd_seq_event_type_t>(type & 0xff);

    if (IsNote(type)) {
        // The duration travels with the note and nothing more: no note-off is scheduled.
        event.data.note.channel = static_cast<unsigned char>(msg.channel);
        event.data.note.note = static_cast<unsigned char>(msg.param);
        event.data.note.velocity = static_cast<unsigned char>(msg.value);
        event.data.note.duration = static_cast<unsigned int>(msg.duration);
        print_dlog(NUV_LOG_TRACE,
                   "\n[NuvMIDIConnector::SendMessage] Event [%d] Channel [%d] Note [%d] "
                   "Velocity [%d] Duration [%d]\n",
                   type, msg.channel, msg.param, msg.value, msg.duration);
    } else {
        event.data.control.channel = static_cast<unsigned char>(msg.channel);
        event.data.control.param = static_cast<unsigned int>(msg.param);
        event.data.control.value = msg.value;
        print_dlog(NUV_LOG_TRACE,
                   "\n[NuvMIDIConnector::SendMessage] Event [%d] Channel [%d] Param [%d] "
                   "Value [%d]\n",
                   type, msg.channel, msg.param, msg.value);
    }

    if (m_pSeqSynth == nullptr)
        return 0;
    const int result = m_pSeqSynth->Send(event);
    if (result < 0 && result != -ENODEV)
        print_dlog(NUV_LOG_INFO,
                   "\n[NuvMIDIConnector::SendMessage] Event [%d] refused by the sequencer "
                   "(%s), dropped\n",
                   type, snd_strerror(result));
    return 0;
}

int NuvMIDIConnector::GetInformation(MIDIEventType type, _MIDIMessage* msg) {
    print_dlog(NUV_LOG_TRACE,
               "\n[NuvMIDIConnector::GetInformation] Event [%d] Channel [%d] Param [%d] "
               "Value [%d]\n",
               type, msg->channel, msg->param, msg->value);
    if (m_RequireClientInfo("GetInformation") == nullptr || m_pSeqSynth == nullptr)
        return 0; // as a failed query: the message keeps what the caller put there
    NuvMIDISeqSynth& synth = *m_pSeqSynth;

    switch (type) {
    case MIDI_EVENT_CONTROL_CHANGE:
        // A refused query (channel or controller out of range) leaves the caller's
        // value, which is reported all the same.
        if (synth.GetCC(msg->channel, msg->param, &msg->value) != FLUID_OK)
            print_dlog(NUV_LOG_INFO, "%s\n",
                       "\n[NuvMIDIConnector::GetInformation] Error in getting control change "
                       "value\n");
        snprintf(msg->text, kTextBound, "%d", msg->value);
        print_dlog(NUV_LOG_TRACE,
                   "\n[NuvMIDIConnector::GetInformation] MIDI_EVENT_CONTROL_CHANGE Value [%d]\n",
                   msg->value);
        return 0;

    case MIDI_EVENT_PROGRAM_CHANGE: {
        int fontId = 0, bank = 0, program = 0;
        synth.GetProgram(msg->channel, &fontId, &bank, &program);
        snprintf(msg->text, kTextBound, "%03d:%03d:%03d", fontId, bank, program);
        print_dlog(NUV_LOG_TRACE,
                   "\n[NuvMIDIConnector::GetInformation] MIDI_EVENT_PROGRAM_CHANGE %03d:%03d:%03d",
                   fontId, bank, program);
        return 0;
    }

    case MIDI_EVENT_CHANNEL_PRESSURE:
        return NUV_ERR_NOT_IMPLEMENTED; // the synthesizer cannot be asked for it

    case MIDI_EVENT_PITCH_BEND:
        synth.GetPitchBend(msg->channel, &msg->value);
        snprintf(msg->text, kTextBound, "%d", msg->value);
        print_dlog(NUV_LOG_TRACE, "\n[NuvMIDIConnector::GetInformation] MIDI_EVENT_PITCH_BEND %d",
                   msg->value);
        return 0;

    default:
        print_dlog(NUV_LOG_INFO, "%s\n",
                   "\n[NuvMIDIConnector::GetInformation] Unknown event type\n");
        return 0;
    }
}
