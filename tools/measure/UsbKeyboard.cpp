#include "UsbKeyboard.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <utility>

#include "SequencerView.h"
#include "WaitFor.h"

namespace {

using Clock = std::chrono::steady_clock;

const char kGadgets[] = "/sys/kernel/config/usb_gadget";

std::string ReadLine(const std::string& path) {
    std::string line;
    std::getline(std::ifstream(path), line);
    return line;
}

bool WriteText(const std::string& path, const std::string& text) {
    return bool(std::ofstream(path) << text << '\n' << std::flush);
}

// The number of the sound card for which `matches(first line, second line)` holds in
// /proc/asound/cards (" 3 [Keys  ]: USB-Audio - Keys" / "  Nuv Keys at usb-dummy_hcd.0-1, ..."),
// or -1.
template <typename Matches> int FindCard(Matches matches) {
    std::ifstream file("/proc/asound/cards");
    std::string first, second;
    while (std::getline(file, first) && std::getline(file, second))
        if (matches(first, second))
            return std::atoi(first.c_str());
    return -1;
}

// Moves `count` bytes through the non-blocking node `fd` with `step(bytes done)` (a read or a
// write), waiting for `ready` on it up to `timeout`; returns how many bytes moved.
template <typename Step>
size_t Transfer(int fd, short ready, size_t count, std::chrono::milliseconds timeout, Step step) {
    const auto deadline = Clock::now() + timeout;
    size_t done = 0;
    while (done < count) {
        const ssize_t moved = step(done);
        if (moved > 0) {
            done += size_t(moved);
            continue;
        }
        if (moved < 0 && errno != EAGAIN && errno != EINTR)
            break;
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd node{fd, ready, 0};
        if (poll(&node, 1, int(std::max(0L, long(left.count())))) <= 0 ||
            (node.revents & (POLLERR | POLLHUP)))
            break;
    }
    return done;
}

} // namespace

std::vector<UsbKeyboard> UsbKeyboard::FindAll() {
    std::vector<UsbKeyboard> keyboards;
    for (int index = 0;; ++index) {
        UsbKeyboard keyboard(index);
        if (ReadLine(keyboard.m_Gadget() + "/idVendor").empty())
            break;
        keyboards.push_back(std::move(keyboard));
    }
    return keyboards;
}

std::string UsbKeyboard::Unavailable() {
    if (getenv("NUV_VM") == nullptr)
        return "USB keyboards exist only in the test VM";
    if (FindAll().empty())
        return "no USB keyboards here: the VM was started without --usb-keyboards, or its "
               "kernel has no dummy USB controller or USB MIDI gadget";
    return std::string();
}

UsbKeyboard::UsbKeyboard(int index) : m_index(index), m_fd(-1) {}

UsbKeyboard::UsbKeyboard(UsbKeyboard&& other) noexcept
    : m_index(other.m_index), m_fd(std::exchange(other.m_fd, -1)) {}

UsbKeyboard::~UsbKeyboard() {
    m_CloseGadgetSide();
}

std::string UsbKeyboard::m_Gadget() const {
    return std::string(kGadgets) + "/keyboard" + std::to_string(m_index);
}

std::string UsbKeyboard::Product() const {
    return ReadLine(m_Gadget() + "/strings/0x409/product");
}

bool UsbKeyboard::SetProduct(const std::string& product) {
    return !IsPlugged() && WriteText(m_Gadget() + "/strings/0x409/product", product);
}

bool UsbKeyboard::IsPlugged() const {
    return !ReadLine(m_Gadget() + "/UDC").empty();
}

int UsbKeyboard::m_HostCard() const {
    const std::string port = "at usb-dummy_hcd." + std::to_string(m_index) + "-";
    return FindCard([&](const std::string& first, const std::string& second) {
        return first.find("]: USB-Audio - ") != std::string::npos &&
               second.find(port) != std::string::npos;
    });
}

int UsbKeyboard::Client() const {
    // The kernel numbers a card's sequencer clients 16 + 4 * card (+ its index, here 0).
    const int card = m_HostCard(), client = 16 + 4 * card;
    return card >= 0 && SequencerView::Read().Clients().count(client) != 0 ? client : -1;
}

bool UsbKeyboard::Plug(std::chrono::milliseconds timeout) {
    m_CloseGadgetSide();
    if (IsPlugged() || !WriteText(m_Gadget() + "/UDC", "dummy_udc." + std::to_string(m_index)))
        return false;
    // The gadget's own card is made while the gadget binds, before the write returns.
    const std::string id = "[gadget" + std::to_string(m_index) + " ";
    const int card = FindCard([&](const std::string& first, const std::string&) {
        return first.find(id) != std::string::npos;
    });
    if (card >= 0)
        m_fd = open(("/dev/snd/midiC" + std::to_string(card) + "D0").c_str(),
                    O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (m_fd < 0)
        return false;
    // The gadget drops what the host sends until its input has been read once (nothing can
    // have been sent to it yet).
    uint8_t none;
    (void)!read(m_fd, &none, 1);
    return WaitFor([&] { return Client() >= 0; }, timeout);
}

bool UsbKeyboard::Unplug(std::chrono::milliseconds timeout) {
    const int client = Client();
    if (!WriteText(m_Gadget() + "/UDC", ""))
        return false;
    // The gadget side stays open (its node now refuses everything) until the next plug, so
    // that a thread still playing never meets a closed or reused descriptor.
    return WaitFor(
        [&] {
            return m_HostCard() < 0 &&
                   (client < 0 || SequencerView::Read().Clients().count(client) == 0);
        },
        timeout);
}

void UsbKeyboard::m_CloseGadgetSide() {
    if (m_fd >= 0)
        close(m_fd);
    m_fd = -1;
}

bool UsbKeyboard::Play(const std::vector<uint8_t>& bytes, std::chrono::milliseconds timeout) {
    return Transfer(m_fd, POLLOUT, bytes.size(), timeout, [&](size_t done) {
               return write(m_fd, bytes.data() + done, bytes.size() - done);
           }) == bytes.size();
}

std::vector<uint8_t> UsbKeyboard::Listen(size_t count, std::chrono::milliseconds timeout) {
    std::vector<uint8_t> heard(count);
    heard.resize(Transfer(m_fd, POLLIN, count, timeout, [&](size_t done) {
        return read(m_fd, heard.data() + done, count - done);
    }));
    return heard;
}
