// What a MIDI connector sends through the sequencer and reads back from the synthesizer.
#include <alsa/asoundlib.h>
#include <fluidsynth.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>

#include <mutex>
#include <vector>

#include "NuvLog"
#include "NuvMIDIConnector.h"

namespace {
// The watcher's sending port ("anounce:1"); the synthesizer is one of its subscribers.
const int kWatcherSendPort = 2;
// Every answer text leaves room for the terminator within the message's text.
const size_t kTextBound = 255;
// Every connector sends through the watcher's one sequencer handle, whose output buffer is
// not safe for two threads at once: host threads sending to different devices take turns.
std::mutex g_sendMutex;

// How long a send waits for room in the sequencer's pool before it gives the event up.
const int kRoomWaitMs = 1000;

bool IsNote(MIDIEventType type) {
    return type == MIDI_EVENT_NOTE_ON || type == MIDI_EVENT_NOTE_OFF;
}

// Waits until the sequencer can take more output; false after kRoomWaitMs.
bool WaitForRoom(snd_seq_t* seq) {
    std::vector<struct pollfd> fds(
        static_cast<size_t>(snd_seq_poll_descriptors_count(seq, POLLOUT)));
    const int count =
        snd_seq_poll_descriptors(seq, fds.data(), static_cast<unsigned>(fds.size()), POLLOUT);
    return count > 0 && poll(fds.data(), static_cast<nfds_t>(count), kRoomWaitMs) > 0;
}

// Writes one event out of the (non-blocking) handle. 0, or the sequencer's error.
int Output(snd_seq_t* seq, snd_seq_event_t* event) {
    int result = snd_seq_event_output(seq, event);
    while (result == -EAGAIN && WaitForRoom(seq))
        result = snd_seq_event_output(seq, event);
    if (result < 0)
        return result;
    while ((result = snd_seq_drain_output(seq)) == -EAGAIN && WaitForRoom(seq)) {
    }
    return result < 0 ? result : 0;
}
} // namespace

int NuvMIDIConnector::SendMessage(MIDIEventType type, _MIDIMessage& msg) {
    const _MIDIClientInfo* info = m_RequireClientInfo("SendMessage");
    if (info == nullptr)
        return 0;

    // Delivered at once, without a queue, from the watcher's sending port to whoever
    // subscribed to it; the sequencer fills in our client number.
    snd_seq_event_t event;
    memset(&event, 0, sizeof(event));
    event.type = static_cast<snd_seq_event_type_t>(type & 0xff);
    event.queue = SND_SEQ_QUEUE_DIRECT;
    event.source.port = kWatcherSendPort;
    event.dest.client = SND_SEQ_ADDRESS_SUBSCRIBERS;
    event.dest.port = SND_SEQ_ADDRESS_UNKNOWN;

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

    if (info->seq != nullptr) {
        std::lock_guard<std::mutex> lock(g_sendMutex);
        const int result = Output(info->seq, &event);
        if (result < 0) {
            // A refused event stays at the head of the output buffer and would hold back
            // everything sent after it, from every device: it is dropped.
            snd_seq_drop_output(info->seq);
            print_dlog(NUV_LOG_INFO,
                       "\n[NuvMIDIConnector::SendMessage] Event [%d] refused by the sequencer "
                       "(%s), dropped\n",
                       type, snd_strerror(result));
        }
    }
    return 0;
}

int NuvMIDIConnector::GetInformation(MIDIEventType type, _MIDIMessage* msg) {
    print_dlog(NUV_LOG_TRACE,
               "\n[NuvMIDIConnector::GetInformation] Event [%d] Channel [%d] Param [%d] "
               "Value [%d]\n",
               type, msg->channel, msg->param, msg->value);
    const _MIDIClientInfo* info = m_RequireClientInfo("GetInformation");
    if (info == nullptr)
        return 0; // as a failed query: the message keeps what the caller put there
    fluid_synth_t* synth = info->synth;

    switch (type) {
    case MIDI_EVENT_CONTROL_CHANGE:
        // A refused query (channel or controller out of range) leaves the caller's
        // value, which is reported all the same.
        if (fluid_synth_get_cc(synth, msg->channel, msg->param, &msg->value) != FLUID_OK)
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
        fluid_synth_get_program(synth, msg->channel, &fontId, &bank, &program);
        snprintf(msg->text, kTextBound, "%03d:%03d:%03d", fontId, bank, program);
        print_dlog(NUV_LOG_TRACE,
                   "\n[NuvMIDIConnector::GetInformation] MIDI_EVENT_PROGRAM_CHANGE %03d:%03d:%03d",
                   fontId, bank, program);
        return 0;
    }

    case MIDI_EVENT_CHANNEL_PRESSURE:
        return NUV_ERR_NOT_IMPLEMENTED; // the synthesizer cannot be asked for it

    case MIDI_EVENT_PITCH_BEND:
        fluid_synth_get_pitch_bend(synth, msg->channel, &msg->value);
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
