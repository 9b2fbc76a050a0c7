// A watcher, checker, connection manager and device manager wired as a plug-in wires
// them, with a host callback on the device manager.
#ifndef NUV_TEST_CORE_CHAIN_FIXTURE_H
#define NUV_TEST_CORE_CHAIN_FIXTURE_H

#include <gtest/gtest.h>

#include "CoreFakes.h"

class CoreChain : public ::testing::Test {
protected:
    CoreChain() : watcher(&events), connections(&events), devices(&events), host(&events) {}

    void SetUp() override {
        ASSERT_EQ(watcher.Create(), NUV_OK);
        ASSERT_EQ(checker.Create(), NUV_OK);
        ASSERT_EQ(connections.Create(&checker, &watcher), NUV_OK);
        ASSERT_EQ(devices.Create(&connections), NUV_OK);
        ASSERT_EQ(devices.RegisterCallback(&host), NUV_OK);
    }
    void TearDown() override {
        devices.Destroy();
        connections.Destroy();
        checker.Destroy();
        watcher.Destroy();
        EXPECT_EQ(TestDevice::live, 0);
    }

    EventLog events;
    TestWatcher watcher;
    TestChecker checker;
    TestConnectionManager connections;
    TestDeviceManager devices;
    HostCallback host;
};

#endif
