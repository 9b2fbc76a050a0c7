// The sequencer view that the tests against the kernel rely on reads the kernel's own
// listing correctly: a wrong reading would make those tests pass or fail for nothing.
#include <gtest/gtest.h>

#include "SequencerView.h"

namespace {

// As the kernel of the test VM writes /proc/asound/seq/clients.
const char kListing[] = R"(Client info
  cur  clients : 5
  peak clients : 5
  max  clients : 192

Client   0 : "System" [Kernel Legacy]
  Port   0 : "Timer" (Rwe-)
  Port   1 : "Announce" (R-e-)
    Connecting To: 14:0, 128:0[real:0]
Client  14 : "Midi Through" [Kernel Legacy]
  Port   0 : "Midi Through Port-0" (RWe-)
    Connected From: 20:0, 21:0, 0:1
Client  20 : "Virtual Raw MIDI 1-0" [Kernel Legacy]
  Port   0 : "VirMIDI 1-0" (RWeX)
    Connecting To: 14:0
Client 128 : "MIDI Watcher" [User Legacy]
  Port   0 : "listen:1" (-We-)
    Connected From: 0:1
  Port   2 : "anounce:1" (R-e-)
  Input pool :
    Pool size          : 200
    Cells in use       : 0
)";

TEST(SequencerView, ReadsClientsPortsAndSubscriptions) {
    const SequencerView view = SequencerView::Parse(kListing);

    ASSERT_EQ(4u, view.Clients().size());
    const SeqClientView* watcher = view.Find("MIDI Watcher");
    ASSERT_NE(nullptr, watcher);
    EXPECT_EQ(128, watcher->number);
    EXPECT_FALSE(watcher->kernel);
    ASSERT_EQ(2u, watcher->ports.size());
    EXPECT_EQ("listen:1", watcher->ports.at(0).name);
    EXPECT_EQ("-We-", watcher->ports.at(0).flags);
    EXPECT_TRUE(watcher->ports.at(0).HearsFrom({0, 1}));
    EXPECT_EQ("anounce:1", watcher->ports.at(2).name);
    EXPECT_TRUE(watcher->ports.at(2).connectedFrom.empty());

    const SeqClientView& system = view.Clients().at(0);
    EXPECT_TRUE(system.kernel);
    EXPECT_EQ((std::vector<SeqAddress>{{14, 0}, {128, 0}}), system.ports.at(1).connectingTo);
    EXPECT_EQ(3u, view.Clients().at(14).ports.at(0).connectedFrom.size());
    EXPECT_EQ(20, view.FindContaining("Raw MIDI")->number);
    EXPECT_EQ(nullptr, view.Find("Raw MIDI"));
}

} // namespace
