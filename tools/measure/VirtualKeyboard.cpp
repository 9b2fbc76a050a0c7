#include "VirtualKeyboard.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <utility>

#include "SequencerView.h"

namespace {

// Card numbers of the snd-virmidi cards: lines " 1 [VirMIDI        ]: VirMIDI - ...".
std::vector<int> VirmidiCards() {
    std::vector<int> cards;
    std::ifstream file("/proc/asound/cards");
    std::string line;
    while (std::getline(file, line))
        if (line.find("]: VirMIDI - ") != std::string::npos)
            cards.push_back(atoi(line.c_str()));
    return cards;
}

bool Exists(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0;
}

} // namespace

std::vector<VirtualKeyboard> VirtualKeyboard::FindAll() {
    std::vector<VirtualKeyboard> keyboards;
    const SequencerView view = SequencerView::Read();
    for (int card : VirmidiCards()) {
        for (int device = 0;; ++device) {
            VirtualKeyboard candidate(card, device, -1);
            if (!Exists(candidate.Node()))
                break;
            const SeqClientView* client = view.Find(candidate.ClientName());
            if (client != nullptr)
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
    if (m_fd < 0)
        return false;
    return write(m_fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
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
