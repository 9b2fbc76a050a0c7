// A real USB MIDI keyboard in the test VM (tools/vm/vm-run --usb-keyboards N): a USB gadget
// with a MIDI function on the kernel's dummy USB controller, which the kernel enumerates
// through the same USB MIDI class driver (snd-usb-audio) as a keyboard on a cable. The VM
// defines keyboard <i> as the gadget "keyboard<i>" for the controller "dummy_udc.<i>", not
// plugged.
//
//     auto keyboards = UsbKeyboard::FindAll();   // empty where the kernel has no USB gadgets
//     UsbKeyboard& kb = keyboards.at(0);
//     ASSERT_TRUE(kb.Plug());                     // returns once its sequencer client is there
//     ASSERT_TRUE(kb.Play({0x90, 60, 100}));      // the keyboard sends a note on
//     std::vector<uint8_t> heard = kb.Listen(3, std::chrono::seconds(2)); // what it was sent
//     ASSERT_TRUE(kb.Unplug());                   // returns once its client has gone
//
// Plugged, the host side is a "USB-Audio" sound card whose sequencer client is named after
// the product string, with the port "<product> MIDI 1"; the gadget side is a sound card of
// its own (id "gadget<i>", sequencer client "f_midi") whose raw MIDI node carries the keys
// the keyboard plays and the bytes the host sends it.
#ifndef NUV_MEASURE_USB_KEYBOARD_H
#define NUV_MEASURE_USB_KEYBOARD_H

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

class UsbKeyboard {
public:
    // The keyboards the VM defined, in index order; empty where there are none.
    static std::vector<UsbKeyboard> FindAll();
    // Why there are no USB keyboards here (for a test's skip message), empty when there are.
    static std::string Unavailable();

    explicit UsbKeyboard(int index);
    UsbKeyboard(UsbKeyboard&& other) noexcept; // not copied: the open node goes along
    ~UsbKeyboard();                            // closes the gadget side; leaves the plug as it is

    int Index() const { return m_index; }
    std::string Product() const;
    // Sets the product string, and so the client's name at the next plug. Only unplugged.
    bool SetProduct(const std::string& product);

    // Plugs the keyboard in and opens its gadget side; waits (up to `timeout`) until the
    // host's sequencer client for it exists.
    bool Plug(std::chrono::milliseconds timeout = std::chrono::seconds(10));
    // Unplugs it and waits (up to `timeout`) until the host's client has gone.
    bool Unplug(std::chrono::milliseconds timeout = std::chrono::seconds(10));
    bool IsPlugged() const;

    // The host side's sequencer client while plugged, else -1.
    int Client() const;

    // The keyboard sends these bytes to the host (written to the gadget's raw MIDI node,
    // waiting for room up to `timeout`). False when unplugged or the time ran out.
    bool Play(const std::vector<uint8_t>& bytes,
              std::chrono::milliseconds timeout = std::chrono::seconds(5));
    // What the host sent the keyboard: reads until `count` bytes have come or `timeout` has
    // passed, and returns what came.
    std::vector<uint8_t> Listen(size_t count, std::chrono::milliseconds timeout);

private:
    std::string m_Gadget() const; // its configfs directory
    int m_HostCard() const;       // the host side's sound card while plugged, else -1
    void m_CloseGadgetSide();

    int m_index;
    int m_fd; // the gadget's raw MIDI node while plugged
};

#endif
