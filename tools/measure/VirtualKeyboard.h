// Stand-ins for MIDI devices in tests against the kernel's sequencer.
//
// VirtualKeyboard: one device of the snd-virmidi card. Raw MIDI bytes written to its node
// (/dev/snd/midiC<card>D<device>) leave the sequencer client "Virtual Raw MIDI
// <card>-<device>", port 0, exactly as a USB keyboard's bytes would: to receive them,
// subscribe that port to yours.
//
//     auto keyboards = VirtualKeyboard::FindAll();       // in the test VM: two of them
//     VirtualKeyboard& kb = keyboards.at(0);
//     snd_seq_connect_from(mySeq, myPort, kb.Client(), kb.Port());
//     ASSERT_TRUE(kb.Write({0x90, 60, 100}));             // note on, channel 0
//
// UserSpaceClient: a plain sequencer client of this process with a chosen name and ports,
// opened by the constructor and closed by Close() or the destructor (a keyboard
// application appearing and going away). The sequencer announces a client as it opens,
// before the client has named itself: whoever reads the announcement at once finds the
// sequencer's placeholder name "Client-<number>" (the watcher, woken by the announcement,
// meets that name often and gives the client time to name itself).
#ifndef NUV_MEASURE_VIRTUAL_KEYBOARD_H
#define NUV_MEASURE_VIRTUAL_KEYBOARD_H

#include <alsa/asoundlib.h>

#include <cstdint>
#include <string>
#include <vector>

class VirtualKeyboard {
public:
    // Every virmidi device whose raw node and sequencer client exist, in card and device
    // order.
    static std::vector<VirtualKeyboard> FindAll();

    VirtualKeyboard(int card, int device, int client);
    VirtualKeyboard(VirtualKeyboard&& other) noexcept; // not copied: the open node goes along
    ~VirtualKeyboard();

    // Writes the bytes to the raw node in one write (the node is opened on first use and
    // kept open). False when the node cannot be opened or written.
    bool Write(const std::vector<uint8_t>& bytes);

    int Client() const { return m_client; } // its sequencer client
    int Port() const { return 0; }
    std::string Node() const;       // "/dev/snd/midiC<card>D<device>"
    std::string ClientName() const; // "Virtual Raw MIDI <card>-<device>"

private:
    int m_card;
    int m_device;
    int m_client;
    int m_fd;
};

class UserSpaceClient {
public:
    // Opens a client named `name` with `ports` ports ("port 0", ...) that can send and
    // receive through subscriptions. Check IsOpen().
    explicit UserSpaceClient(const std::string& name, int ports = 1);
    ~UserSpaceClient();
    UserSpaceClient(const UserSpaceClient&) = delete;
    UserSpaceClient& operator=(const UserSpaceClient&) = delete;

    bool IsOpen() const { return m_seq != nullptr; }
    int Client() const { return m_client; }
    snd_seq_t* Handle() const { return m_seq; }
    void Close();

private:
    snd_seq_t* m_seq;
    int m_client;
};

// Removes the subscription from port 0 of one client to port 0 of another, as
// `aconnect -d` does (streams between devices leave theirs behind).
void DisconnectPorts(int fromClient, int toClient);

#endif
