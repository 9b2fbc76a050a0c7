// Host threads creating and destroying devices while the watcher's passes add and remove
// the candidates under them (run under TSan as well).
#include <atomic>
#include <chrono>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "CoreChainFixture.h"

TEST_F(CoreChain, HostThreadsAndComingAndGoingCandidatesDoNotRace) {
    static const char* const names[] = {"K0", "K1", "K2", "K3"};
    // The passes go on while TearDown destroys the managers: they own what they use.
    auto passRandom = std::make_shared<std::mt19937>(7);
    watcher.onPass = [this, passRandom] {
        for (int i = 0; i < 4; ++i) {
            const std::string key = std::to_string(20 + i);
            if ((*passRandom)() % 2 == 0)
                watcher.AddCandidate(MakeCandidate(key.c_str(), names[i]));
            else
                watcher.DeleteCandidate(key.c_str());
        }
    };
    watcher.SetPeriod(1);
    ASSERT_EQ(watcher.Start(), NUV_OK);

    std::atomic<int> created{0};
    std::vector<std::thread> hosts;
    for (int h = 0; h < 2; ++h) {
        hosts.emplace_back([&, h] {
            std::mt19937 random(h);
            _NuvDevInfo info;
            bool isCreated;
            // Until the watcher has added and removed candidates many times over.
            const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
            while (watcher.extraPasses < 200 && std::chrono::steady_clock::now() < deadline) {
                // The host never touches a returned device here: the watcher may delete it
                // at any moment, as a detached device is.
                if (devices.t_CreateDevice(NUV_DEVICE_TYPE_MIDI, names[random() % 4]) != nullptr)
                    ++created;
                devices.t_DestroyDevice(static_cast<int>(random() % 64) + 1);
                devices.t_FindDevice(static_cast<int>(random() % 64) + 1);
                devices.IsConnected(NUV_DEVICE_TYPE_MIDI, names[random() % 4]);
                devices.GetConnectedDeviceInfo(info, isCreated, NUV_DEVICE_TYPE_MIDI,
                                               static_cast<int>(random() % 4));
            }
        });
    }
    for (auto& host : hosts)
        host.join();
    EXPECT_GT(created, 0);
    EXPECT_GE(watcher.extraPasses, 200);
    // TearDown destroys the managers while the passes still run, as the library does.
}
