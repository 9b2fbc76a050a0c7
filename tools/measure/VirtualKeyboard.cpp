#include "VirtualKeyboard.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <utility>

#include "SequencerView.h"

std::vector<VirtualKeyboard> VirtualKeyboard::FindAll() {
    std::vector<VirtualKeyboard> keyboards;
    const SequencerView view = SequencerView::Read();
    std::ifstream cards("/proc/asound/cards");
    for (std::string line; std::getline(cards, line);) {
        // The snd-virmidi cards: " 1 [VirMIDI        ]: VirMIDI - ...".
        if (line.find("]: VirMIDI - ") == std::string::npos)
            continue;
        const int card = atoi(line.c_str());
        for (int device = 0;; ++device) {
            VirtualKeyboard candidate(card, device, -1);
            if (access(candidate.Node().c_str(), F_OK) != 0)
                break;
            if (const SeqClientView* client = view.Find(candidate.ClientName()))
                keyboards.emplace_back(card, device, client->number);
        }
    }
    return keyboards;
}

VirtualKeyboard::VirtualKeyboard(int card, int device, int client)
    : m_card(card), m_device(device), m_client(client), m_fd(-1) {}

VirtualKeyboard::VirtualKeyboard(VirtualKeyboard&& other) noexcept
    : m_card(other.m_card), m_device(other.m_device), m_client(other.m_client),
      m_fd(std::exchange(other.m_fd, -1)) {}

VirtualKeyboard::~VirtualKeyboard() {
    if (m_fd >= 0)
        close(m_fd);
}

std::string VirtualKeyboard::Node() const {
    return "/dev/snd/midiC" + std::to_string(m_card) + "D" + std::to_string(m_device);
}

std::string VirtualKeyboard::ClientName() const {
    return "Virtual Raw MIDI " + std::to_string(m_card) + "-" + std::to_string(m_device);
}

bool VirtualKeyboard::Write(const std::vector<uint8_t>& bytes) {
    if (m_fd < 0)
        m_fd = open(Node().c_str(), O_WRONLY | O_CLOEXEC);
    return m_fd >= 0 && write(m_fd, bytes.data(), bytes.size()) == ssize_t(bytes.size());
}

UserSpaceClient::UserSpaceClient(const std::string& name, int ports)
    : m_seq(nullptr), m_client(-1) {
    if (snd_seq_open(&m_seq, "default", SND_SEQ_OPEN_DUPLEX, 0) < 0) {
        m_seq = nullptr;
        return;
    }
    snd_seq_set_client_name(m_seq, name.c_str());
    m_client = snd_seq_client_id(m_seq);
    for (int i = 0; i < ports; ++i) {
        const std::string portName = "port " + std::to_string(i);
        snd_seq_create_simple_port(m_seq, portName.c_str(),
                                   SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ |
                                       SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE,
                                   SND_SEQ_PORT_TYPE_MIDI_GENERIC | SND_SEQ_PORT_TYPE_APPLICATION);
    }
}

UserSpaceClient::~UserSpaceClient() {
    Close();
}

void UserSpaceClient::Close() {
    if (m_seq != nullptr) {
        snd_seq_close(m_seq);
        m_seq = nullptr;
    }
}

void DisconnectPorts(int fromClient, int toClient) {
    snd_seq_t* seq = nullptr;
    if (snd_seq_open(&seq, "default", SND_SEQ_OPEN_DUPLEX, 0) < 0)
        return;
    snd_seq_port_subscribe_t* subscription;
    snd_seq_port_subscribe_alloca(&subscription);
    const snd_seq_addr_t sender{static_cast<unsigned char>(fromClient), 0};
    const snd_seq_addr_t dest{static_cast<unsigned char>(toClient), 0};
    snd_seq_port_subscribe_set_sender(subscription, &sender);
    snd_seq_port_subscribe_set_dest(subscription, &dest);
    snd_seq_unsubscribe_port(seq, subscription);
    snd_seq_close(seq);
}
