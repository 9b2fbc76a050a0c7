// Any client may write to the watcher's ports; only the system client's announcements of
// client starts and exits change the candidates.
#include "WatcherFixture.h"

namespace {

class MIDIWatcherForgedAnnouncements : public CreatedWatcherTest {
protected:
    // Sends an announcement of `type` about `about`, from the forger straight to one of the
    // watcher's ports, as any client of the machine could.
    bool Forge(UserSpaceClient& forger, int type, int watcherPort, SeqAddress about) {
        snd_seq_event_t ev;
        snd_seq_ev_clear(&ev);
        ev.type = static_cast<snd_seq_event_type_t>(type);
        snd_seq_ev_set_source(&ev, 0);
        snd_seq_ev_set_dest(&ev, WatcherClient(), watcherPort);
        snd_seq_ev_set_direct(&ev);
        ev.data.addr.client = static_cast<unsigned char>(about.client);
        ev.data.addr.port = static_cast<unsigned char>(about.port);
        return snd_seq_event_output_direct(forger.Handle(), &ev) >= 0;
    }
};

TEST_F(MIDIWatcherForgedAnnouncements, AreLoggedAsUnhandledAndChangeNothing) {
    auto keyboards = VirtualKeyboard::FindAll();
    ASSERT_FALSE(keyboards.empty());
    const int keyboard = keyboards.front().Client();
    UserSpaceClient forger("Forger");
    ASSERT_TRUE(forger.IsOpen());
    ASSERT_TRUE(PassUntil([&] { return HasCandidate(keyboard) && HasCandidate(forger.Client()); }));
    // A client number that no client has.
    const SeqAddress madeUp{99, 3};
    ASSERT_FALSE(HasCandidate(madeUp.client));
    const auto before = Candidates();

    LogCapture log;
    for (int watcherPort : {0, 1}) {
        ASSERT_TRUE(Forge(forger, SND_SEQ_EVENT_CLIENT_START, watcherPort, madeUp));
        ASSERT_TRUE(Forge(forger, SND_SEQ_EVENT_CLIENT_EXIT, watcherPort, {keyboard, 0}));
    }
    const std::string startLine =
        "\n[NuvMIDIWatcher::m_MIDIProcess] unhandled event [60] received\n";
    const std::string exitLine =
        "\n[NuvMIDIWatcher::m_MIDIProcess] unhandled event [61] received\n";
    ASSERT_TRUE(PassUntil([&] {
        return log.Count(startLine, NUV_LOG_INFO) == 2 && log.Count(exitLine, NUV_LOG_INFO) == 2;
    }));

    EXPECT_EQ(0, log.CountContaining("Client connect Event"));
    EXPECT_EQ(0, log.CountContaining("Sequencer Disconnect Event"));
    const auto after = Candidates();
    ASSERT_EQ(before.size(), after.size());
    for (const auto& entry : before)
        EXPECT_EQ(1u, after.count(entry.first)) << "candidate " << entry.first << " went away";
    EXPECT_EQ(0, watcher->Released(std::to_string(keyboard)));

    // The system client's own announcements still count.
    UserSpaceClient real("Late Keyboard");
    ASSERT_TRUE(real.IsOpen());
    EXPECT_TRUE(PassUntil([&] { return HasCandidate(real.Client()); }));
    real.Close();
    EXPECT_TRUE(PassUntil([&] { return !HasCandidate(real.Client()); }));
}

} // namespace
