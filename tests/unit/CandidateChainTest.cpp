// Candidates of the watcher becoming connectors and devices, and taking them along when
// they go.
#include "CoreChainFixture.h"

TEST_F(CoreChain, ACandidateBecomesAConnectorAndTheHostHearsOfIt) {
    EXPECT_EQ(watcher.AddCandidate(MakeCandidate("20", "Keys")), 0);

    EXPECT_EQ(events.Count("new-connector 20"), 1);
    EXPECT_EQ(events.Count("connector-created 20"), 1);
    EXPECT_EQ(events.Count("attached Keys -"), 1);
    EXPECT_EQ(devices.IsConnected(NUV_DEVICE_TYPE_MIDI, "Keys"), 1);
    EXPECT_EQ(devices.IsConnected(NUV_DEVICE_TYPE_MIDI, "Other"), 0);
    EXPECT_EQ(devices.IsConnected(1, "Keys"), 0);
}

TEST_F(CoreChain, ARepeatedKeyKeepsTheFirstCandidate) {
    EXPECT_EQ(watcher.AddCandidate(MakeCandidate("20", "Keys")), 0);
    EXPECT_EQ(watcher.AddCandidate(MakeCandidate("20", "Keys")), 1);

    EXPECT_EQ(events.Count("new-connector 20"), 1);
    EXPECT_EQ(events.Count("extra-freed 20"), 1);
    EXPECT_EQ(watcher.CandidateCount(), 1u);
}

TEST_F(CoreChain, TheCheckerMayRefuseACandidate) {
    checker.verdict = NUV_ERR_GENERAL;
    watcher.AddCandidate(MakeCandidate("20", "Refused"));
    checker.verdict = NUV_OK;
    watcher.AddCandidate(MakeCandidate("21", "Accepted"));

    EXPECT_EQ(events.Count("new-connector 20"), 0);
    EXPECT_EQ(events.Count("new-connector 21"), 1);
    EXPECT_EQ(devices.IsConnected(NUV_DEVICE_TYPE_MIDI, "Refused"), 0);
    EXPECT_EQ(watcher.CandidateCount(), 2u); // the candidate stays, without a connector
}

TEST_F(CoreChain, ADeletedCandidateTakesItsConnectorAndDeviceAlong) {
    watcher.AddCandidate(MakeCandidate("20", "Keys"));
    watcher.AddCandidate(MakeCandidate("21", "Pads"));
    NuvDevice* device = devices.t_CreateDevice(NUV_DEVICE_TYPE_MIDI, "Keys");
    ASSERT_NE(device, nullptr);
    const int id = device->GetDeviceID();

    EXPECT_EQ(watcher.DeleteCandidate("20"), NUV_OK);
    EXPECT_EQ(watcher.DeleteCandidate("20"), NUV_ERR_GENERAL);
    EXPECT_EQ(watcher.DeleteCandidate("21"), NUV_OK);

    const std::string detached = "detached Keys " + std::to_string(id);
    EXPECT_EQ(events.Count(detached), 1);
    EXPECT_EQ(events.Count("detached Pads -"), 1);        // never created by the host
    EXPECT_EQ(events.Count("connector-destroyed 20"), 1); // extra info still there
    EXPECT_EQ(events.Count("extra-freed 20"), 1);
    // The host hears of it first, then the device goes, then its connector, then the record.
    EXPECT_LT(events.IndexOf(detached), events.IndexOf("device-destroyed " + std::to_string(id)));
    EXPECT_LT(events.IndexOf("device-destroyed " + std::to_string(id)),
              events.IndexOf("connector-destroyed 20"));
    EXPECT_LT(events.IndexOf("connector-destroyed 20"), events.IndexOf("extra-freed 20"));
    EXPECT_EQ(devices.t_FindDevice(id), nullptr);
    EXPECT_EQ(TestDevice::live, 0);
    EXPECT_EQ(devices.IsConnected(NUV_DEVICE_TYPE_MIDI, "Keys"), 0);
}

TEST_F(CoreChain, DestroyingTheManagersReleasesDevicesThenConnectors) {
    watcher.AddCandidate(MakeCandidate("20", "Keys"));
    ASSERT_NE(devices.t_CreateDevice(NUV_DEVICE_TYPE_MIDI, "Keys"), nullptr);

    EXPECT_EQ(devices.Destroy(), NUV_OK);
    EXPECT_EQ(events.Count("device-destroyed 1"), 1);
    EXPECT_EQ(TestDevice::live, 0);
    EXPECT_EQ(connections.Destroy(), NUV_OK);
    EXPECT_EQ(events.Count("connector-destroyed 20"), 1);

    // The watcher no longer reaches the connection manager.
    watcher.AddCandidate(MakeCandidate("22", "Late"));
    EXPECT_EQ(events.Count("new-connector 22"), 0);
    EXPECT_EQ(watcher.Destroy(), NUV_OK);
    EXPECT_EQ(events.Count("extra-freed 20"), 1);
    EXPECT_EQ(events.Count("extra-freed 22"), 1);
}
