// The watcher's sequencer client as other clients see it, its link to the synthesizer,
// and the discovery of devices that exist at start or come and go later.
#include <cstdio>
#include <cstring>

#include "WatcherFixture.h"

namespace {

const SeqClientView* WatcherClientView(const SequencerView& view) {
    return view.Find("MIDI Watcher");
}

class MIDIWatcherDiscovery : public CreatedWatcherTest {};

TEST_F(MIDIWatcherDiscovery, PeersSeeTheClientWithItsThreePorts) {
    const SequencerView view = SequencerView::Read();
    const SeqClientView* client = WatcherClientView(view);
    ASSERT_NE(nullptr, client);
    EXPECT_FALSE(client->kernel);
    ASSERT_EQ(3u, client->ports.size());
    EXPECT_EQ("listen:1", client->ports.at(0).name);
    EXPECT_EQ("listen:2", client->ports.at(1).name);
    EXPECT_EQ("anounce:1", client->ports.at(2).name);
    EXPECT_EQ("-We-", client->ports.at(0).flags);
    EXPECT_EQ("-We-", client->ports.at(1).flags);
    EXPECT_EQ("R-e-", client->ports.at(2).flags);
    EXPECT_TRUE(client->ports.at(0).HearsFrom({0, 1}));
    EXPECT_TRUE(view.Clients().at(0).ports.at(1).SendsTo({client->number, 0}));
}

TEST_F(MIDIWatcherDiscovery, ClientsOfTheStartBecomeCandidatesOnceTheSynthesizerIsSeen) {
    EXPECT_TRUE(Candidates().empty());
    const SequencerView view = SequencerView::Read();
    const SeqClientView* synth = view.FindContaining("FLUID");
    const SeqClientView* through = view.Find("Midi Through");
    const auto keyboards = VirtualKeyboard::FindAll();
    ASSERT_NE(nullptr, synth);
    ASSERT_NE(nullptr, through);
    ASSERT_FALSE(keyboards.empty());
    LogCapture log;

    Pass();

    const auto candidates = Candidates();
    EXPECT_EQ(0u, candidates.count("0")); // the system client
    EXPECT_EQ(0u, candidates.count(std::to_string(WatcherClient())));
    std::vector<std::pair<const SeqClientView*, int>> expected = {{synth, 1}, {through, 0}};
    for (const auto& kb : keyboards)
        expected.push_back({&view.Clients().at(kb.Client()), 0});
    for (const auto& [client, isSynth] : expected) {
        const std::string key = std::to_string(client->number);
        SCOPED_TRACE(client->name);
        ASSERT_EQ(1u, candidates.count(key));
        const CandidateCopy& c = candidates.at(key);
        // Whole fields: the text and the zeros after it.
        char uid[256] = {};
        snprintf(uid, sizeof(uid), "%d", client->number);
        EXPECT_EQ(0, memcmp(uid, c.record.devInfo.UID, sizeof(uid)));
        EXPECT_EQ(0, memcmp(uid, c.record.key, sizeof(uid)));
        EXPECT_EQ(0, c.record.devInfo.reserved);
        EXPECT_EQ(client->name, c.record.devInfo.deviceName);
        EXPECT_EQ(512, c.record.devInfo.type);
        EXPECT_EQ(isSynth, c.record.devInfo.isSynth);
        const char path[256] = "MIDIDeviceHandle";
        EXPECT_EQ(0, memcmp(path, c.record.devicePath, sizeof(path)));
        EXPECT_EQ(0, memcmp("0123456", c.record.vendorID, 8));
        EXPECT_EQ(0, memcmp("0123456", c.record.productID, 8));
        EXPECT_EQ(1, c.record.alive);
        ASSERT_TRUE(c.hasClientInfo);
        EXPECT_EQ(Access::Seq(*watcher), c.clientInfo.seq);
        EXPECT_EQ(Access::Synth(*watcher), c.clientInfo.synth);
        EXPECT_EQ(synth->number, c.clientInfo.synthClient);
        EXPECT_EQ(synth->ports.begin()->first, c.clientInfo.synthPort);
        EXPECT_EQ(client->number, c.clientInfo.client);
        EXPECT_EQ(client->ports.begin()->first, c.clientInfo.port);
        EXPECT_EQ(isSynth, c.clientInfo.isSynth);
    }
    EXPECT_EQ(1, log.Count("\n[NuvMIDIWatcher::m_MIDIProcess] Connect watcher and synthesizer\n\n",
                           NUV_LOG_TRACE));
    EXPECT_EQ(1, log.Count("\n[NuvMIDIWatcher::m_AddExistingDevices]\n\n", NUV_LOG_TRACE));

    // Later passes do not enumerate again.
    log.Clear();
    Pass();
    EXPECT_EQ(0, log.Count("\n[NuvMIDIWatcher::m_AddExistingDevices]\n\n"));
}

TEST_F(MIDIWatcherDiscovery, ClientOpenedLaterComesAndGoesWithItsClientInfoReleasedOnce) {
    Pass();
    UserSpaceClient keyboard("Test Keyboard", 2);
    ASSERT_TRUE(keyboard.IsOpen());
    const std::string key = std::to_string(keyboard.Client());
    LogCapture log;

    Pass();

    ASSERT_TRUE(HasCandidate(keyboard.Client()));
    const CandidateCopy c = Candidates().at(key);
    EXPECT_STREQ("Test Keyboard", c.record.devInfo.deviceName);
    EXPECT_EQ(0, c.record.devInfo.isSynth);
    EXPECT_EQ(keyboard.Client(), c.clientInfo.client);
    EXPECT_EQ(0, c.clientInfo.port);
    EXPECT_NE(0, c.clientInfo.synthClient);
    // Its port starts are announced too, and are not the watcher's business.
    EXPECT_EQ(2, log.Count("\n[NuvMIDIWatcher::m_MIDIProcess] unhandled event [63] received\n",
                           NUV_LOG_INFO));

    keyboard.Close();
    Pass();

    EXPECT_FALSE(HasCandidate(std::stoi(key)));
    EXPECT_EQ(1, watcher->Released(key));
    EXPECT_TRUE(log.Has("\n[NuvMIDIWatcher::m_MIDIProcess] Device with client id [" + key +
                        "], port number [0] disconnected\n"));
}

TEST_F(MIDIWatcherDiscovery, RecorderIsSkippedAndTheRestWaitsUnnamedIsDecidedLater) {
    const std::string skippedLine =
        "\n[NuvMIDIWatcher::m_MIDIProcess] MIDIRecorder, so nothing to do\n\n";
    Pass();
    for (const char* skipped : {"MIDIRecorder", "Test Client"}) {
        SCOPED_TRACE(skipped);
        const bool recorder = std::string(skipped) == "MIDIRecorder";
        UserSpaceClient other(skipped);
        UserSpaceClient keyboard("Late Keyboard");
        ASSERT_TRUE(other.IsOpen() && keyboard.IsOpen());
        LogCapture log;

        // A recorder ends the pass at once; a name with "Client" may be the placeholder of
        // a client that has not named itself yet, so it is set aside and the pass goes on.
        Pass();
        EXPECT_EQ(recorder, log.Has(skippedLine, NUV_LOG_TRACE));
        EXPECT_EQ(!recorder, HasCandidate(keyboard.Client()));
        EXPECT_TRUE(WaitFor([&] {
            Pass();
            return log.Has(skippedLine, NUV_LOG_TRACE) && HasCandidate(keyboard.Client());
        }));
        EXPECT_FALSE(HasCandidate(other.Client()));

        // Exits are handled whatever the client was. (The sequencer reuses client
        // numbers, so the releases of a key are counted from here.)
        const std::string keyboardKey = std::to_string(keyboard.Client());
        const int releasedBefore = watcher->Released(keyboardKey);
        other.Close();
        keyboard.Close();
        Pass();
        EXPECT_FALSE(HasCandidate(std::stoi(keyboardKey)));
        EXPECT_EQ(releasedBefore + 1, watcher->Released(keyboardKey));
    }
}

// Enumeration skips the recorder by its exact name only; event processing skips any name
// that contains "Recorder".
TEST(MIDIWatcherEnumeration, SkipsOnlyExactNamesOfClientsThatWereThereBefore) {
    if (SequencerView::Read().Clients().empty())
        GTEST_SKIP() << "no kernel sequencer";
    UserSpaceClient recorder("MIDIRecorder");
    UserSpaceClient recorder2("MIDIRecorder2");
    UserSpaceClient otherWatcher("MIDI Watcher");
    CountingWatcher watcher;
    ASSERT_EQ(0, watcher.Create());

    watcher.t_ExtraEnumerate();

    const auto candidates = Access::Candidates(watcher);
    EXPECT_EQ(0u, candidates.count(std::to_string(recorder.Client())));
    EXPECT_EQ(1u, candidates.count(std::to_string(recorder2.Client())));
    EXPECT_EQ(0u, candidates.count(std::to_string(otherWatcher.Client())));
    EXPECT_EQ(0, watcher.Destroy());
}

// The watcher links its own sending port to the synthesizer, whatever client number the
// sequencer gave it, and what it sends from there reaches the synthesizer.
void ExpectSendingPortReachesTheSynthesizer(bool otherClientFirst) {
    const SequencerView before = SequencerView::Read();
    if (before.Clients().empty())
        GTEST_SKIP() << "no kernel sequencer";
    bool userClientsBefore = false;
    for (const auto& entry : before.Clients())
        userClientsBefore = userClientsBefore || !entry.second.kernel;
    std::unique_ptr<UserSpaceClient> early;
    if (otherClientFirst)
        early.reset(new UserSpaceClient("Early Keyboard"));

    CountingWatcher watcher;
    ASSERT_EQ(0, watcher.Create());
    snd_seq_t* seq = Access::Seq(watcher);
    const int self = snd_seq_client_id(seq);
    if (!otherClientFirst && !userClientsBefore) {
        EXPECT_EQ(128, self); // the first user client of the sequencer
    }
    if (otherClientFirst) {
        EXPECT_NE(128, self);
    }

    watcher.t_ExtraEnumerate();

    const SequencerView view = SequencerView::Read();
    const SeqClientView* synth = view.FindContaining("FLUID");
    EXPECT_NE(nullptr, synth);
    if (synth != nullptr) {
        EXPECT_EQ(synth->number, Access::SynthClient(watcher));
        const SeqAddress synthPort{synth->number, Access::SynthPort(watcher)};
        EXPECT_TRUE(view.Clients().at(self).ports.at(2).SendsTo(synthPort));
    }

    snd_seq_event_t ev;
    snd_seq_ev_clear(&ev);
    snd_seq_ev_set_source(&ev, 2);
    snd_seq_ev_set_subs(&ev);
    snd_seq_ev_set_direct(&ev);
    snd_seq_ev_set_controller(&ev, 0, 7, 33);
    EXPECT_GE(snd_seq_event_output_direct(seq, &ev), 0);
    EXPECT_TRUE(WaitFor([&] {
        int value = -1;
        return fluid_synth_get_cc(Access::Synth(watcher), 0, 7, &value) == FLUID_OK && value == 33;
    }));
    EXPECT_EQ(0, watcher.Destroy());
}

TEST(MIDIWatcherSynthLink, AsTheFirstUserClient) {
    ExpectSendingPortReachesTheSynthesizer(false);
}

TEST(MIDIWatcherSynthLink, AfterAnotherClient) {
    ExpectSendingPortReachesTheSynthesizer(true);
}

} // namespace
