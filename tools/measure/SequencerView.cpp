#include "SequencerView.h"

#include <stdio.h>

#include <algorithm>
#include <fstream>
#include <sstream>

namespace {

// "128:0, 129:0[real:0]" -> the addresses.
std::vector<SeqAddress> ParseAddresses(const std::string& list) {
    std::vector<SeqAddress> addresses;
    std::istringstream items(list);
    for (std::string item; std::getline(items, item, ',');) {
        SeqAddress address{};
        if (sscanf(item.c_str(), "%d:%d", &address.client, &address.port) == 2)
            addresses.push_back(address);
    }
    return addresses;
}

// The text between the first and the last double quote of a line.
std::string QuotedName(const std::string& line) {
    const size_t first = line.find('"');
    const size_t last = line.rfind('"');
    return first == std::string::npos || last <= first ? ""
                                                       : line.substr(first + 1, last - first - 1);
}

} // namespace

bool SeqPortView::SendsTo(SeqAddress dest) const {
    return std::find(connectingTo.begin(), connectingTo.end(), dest) != connectingTo.end();
}

bool SeqPortView::HearsFrom(SeqAddress source) const {
    return std::find(connectedFrom.begin(), connectedFrom.end(), source) != connectedFrom.end();
}

// Lines of interest:
//   Client 128 : "MIDI Watcher" [User Legacy]
//     Port   0 : "listen:1" (-We-)
//       Connecting To: 129:0
//       Connected From: 0:1
SequencerView SequencerView::Read() {
    SequencerView view;
    SeqClientView* client = nullptr;
    SeqPortView* port = nullptr;
    std::ifstream lines("/proc/asound/seq/clients");
    for (std::string line; std::getline(lines, line);) {
        int number = 0;
        size_t at;
        if (sscanf(line.c_str(), "Client %d", &number) == 1) {
            client = &view.m_clients[number];
            client->number = number;
            client->name = QuotedName(line);
            port = nullptr;
        } else if (client != nullptr && sscanf(line.c_str(), " Port %d", &number) == 1) {
            port = &client->ports[number];
            port->number = number;
            port->name = QuotedName(line);
            port->flags = line.substr(line.rfind(" (") + 2, 4);
        } else if (port != nullptr && (at = line.find("Connecting To:")) != std::string::npos) {
            port->connectingTo = ParseAddresses(line.substr(at + 14));
        } else if (port != nullptr && (at = line.find("Connected From:")) != std::string::npos) {
            port->connectedFrom = ParseAddresses(line.substr(at + 15));
        }
    }
    return view;
}

const SeqClientView* SequencerView::Find(const std::string& name) const {
    for (const auto& entry : m_clients)
        if (entry.second.name == name)
            return &entry.second;
    return nullptr;
}

const SeqClientView* SequencerView::FindContaining(const std::string& part) const {
    for (const auto& entry : m_clients)
        if (entry.second.name.find(part) != std::string::npos)
            return &entry.second;
    return nullptr;
}
