// The device manager's ids, lookups and queries.
#include "CoreChainFixture.h"

namespace {

class DeviceManager : public CoreChain {
protected:
    void SetUp() override {
        CoreChain::SetUp();
        watcher.AddCandidate(MakeCandidate("20", "Keys"));
        watcher.AddCandidate(MakeCandidate("21", "Pads"));
        watcher.AddCandidate(MakeCandidate("22", "Lights", 1)); // another device type
    }
};

} // namespace

TEST_F(DeviceManager, IdsStartAtOneAndAreNeverReused) {
    NuvDevice* keys = devices.t_CreateDevice(NUV_DEVICE_TYPE_MIDI, "Keys");
    ASSERT_NE(keys, nullptr);
    EXPECT_EQ(keys->GetDeviceID(), 1);
    EXPECT_EQ(devices.t_CreateDevice(NUV_DEVICE_TYPE_MIDI, "Keys"), keys); // same name, same device
    NuvDevice* pads = devices.t_CreateDevice(NUV_DEVICE_TYPE_MIDI, "Pads");
    ASSERT_NE(pads, nullptr);
    EXPECT_EQ(pads->GetDeviceID(), 2);
    EXPECT_EQ(devices.t_FindDevice(1), keys);
    EXPECT_EQ(devices.t_FindDevice(2), pads);

    EXPECT_EQ(devices.t_DestroyDevice(1), NUV_OK);
    EXPECT_EQ(devices.t_DestroyDevice(1), NUV_ERR_GENERAL);
    EXPECT_EQ(devices.t_FindDevice(1), nullptr);
    NuvDevice* again = devices.t_CreateDevice(NUV_DEVICE_TYPE_MIDI, "Keys");
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(again->GetDeviceID(), 3);
    EXPECT_EQ(devices.t_DestroyDevice(99), NUV_ERR_GENERAL);
}

TEST_F(DeviceManager, OnlyConnectedDevicesOfThatTypeCanBeCreated) {
    EXPECT_EQ(devices.t_CreateDevice(NUV_DEVICE_TYPE_MIDI, "Missing"), nullptr);
    EXPECT_EQ(devices.t_CreateDevice(NUV_DEVICE_TYPE_MIDI, "Lights"), nullptr);
    EXPECT_NE(devices.t_CreateDevice(1, "Lights"), nullptr);
    EXPECT_EQ(devices.t_CreateDevice(NUV_DEVICE_TYPE_MIDI, nullptr), nullptr);
}

TEST_F(DeviceManager, ADeviceWhoseCreateFailsIsDeleted) {
    devices.failDeviceCreate = true;
    EXPECT_EQ(devices.t_CreateDevice(NUV_DEVICE_TYPE_MIDI, "Keys"), nullptr);
    EXPECT_EQ(TestDevice::live, 0);
    devices.failDeviceCreate = false;
    EXPECT_NE(devices.t_CreateDevice(NUV_DEVICE_TYPE_MIDI, "Keys"), nullptr);
}

TEST_F(DeviceManager, ConnectedDeviceInfoListsTheTypeInOrderOfArrival) {
    ASSERT_NE(devices.t_CreateDevice(NUV_DEVICE_TYPE_MIDI, "Pads"), nullptr);
    _NuvDevInfo info{};
    bool created = true;

    EXPECT_EQ(devices.GetConnectedDeviceInfo(info, created, NUV_DEVICE_TYPE_MIDI, 0), NUV_OK);
    EXPECT_STREQ(info.deviceName, "Keys");
    EXPECT_STREQ(info.UID, "20");
    EXPECT_FALSE(created);
    EXPECT_EQ(devices.GetConnectedDeviceInfo(info, created, NUV_DEVICE_TYPE_MIDI, 1), NUV_OK);
    EXPECT_STREQ(info.deviceName, "Pads");
    EXPECT_TRUE(created);
    EXPECT_EQ(devices.GetConnectedDeviceInfo(info, created, NUV_DEVICE_TYPE_MIDI, 2),
              NUV_ERR_GENERAL);
    EXPECT_EQ(devices.GetConnectedDeviceInfo(info, created, NUV_DEVICE_TYPE_MIDI, -1),
              NUV_ERR_GENERAL);
    EXPECT_EQ(devices.GetConnectedDeviceInfo(info, created, 1, 0), NUV_OK);
    EXPECT_STREQ(info.deviceName, "Lights");
}

TEST(DeviceManagerLife, CreateNeedsACreatedConnectionManager) {
    EventLog events;
    TestConnectionManager connections(&events);
    TestDeviceManager devices(&events);
    EXPECT_EQ(devices.Create(nullptr), NUV_ERR_GENERAL);
    EXPECT_EQ(devices.Create(&connections), NUV_ERR_GENERAL);
    EXPECT_EQ(devices.Destroy(), NUV_OK);

    TestWatcher watcher;
    EXPECT_EQ(connections.Create(nullptr, &watcher), NUV_ERR_GENERAL);
    EXPECT_EQ(connections.Create(nullptr, nullptr), NUV_ERR_GENERAL);
}
