#include "SequencerView.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <fstream>

namespace {

// "128:0, 129:0[real:0]" -> the addresses (a time-stamp marker holds no "digits:digits").
std::vector<SeqAddress> ParseAddresses(const std::string& list) {
    std::vector<SeqAddress> addresses;
    const char* p = list.c_str();
    while (*p != '\0') {
        char* end = nullptr;
        if (isdigit(static_cast<unsigned char>(*p)) &&
            (p == list.c_str() || !isalnum(static_cast<unsigned char>(p[-1])))) {
            const long client = strtol(p, &end, 10);
            if (*end == ':' && isdigit(static_cast<unsigned char>(end[1]))) {
                const long port = strtol(end + 1, &end, 10);
                addresses.push_back({static_cast<int>(client), static_cast<int>(port)});
                p = end;
                continue;
            }
        }
        ++p;
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

// What follows `head` at the start of a line (after blanks), or npos.
size_t After(const std::string& line, const std::string& head) {
    const size_t start = line.find_first_not_of(' ');
    if (start == std::string::npos || line.compare(start, head.size(), head) != 0)
        return std::string::npos;
    return start + head.size();
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
    std::string line;
    size_t at;
    while (std::getline(lines, line)) {
        if (line.compare(0, 7, "Client ") == 0) {
            const int number = atoi(line.c_str() + 7);
            client = &view.m_clients[number];
            client->number = number;
            client->name = QuotedName(line);
            port = nullptr;
        } else if (client != nullptr && (at = After(line, "Port ")) != std::string::npos) {
            const int number = atoi(line.c_str() + at);
            port = &client->ports[number];
            port->number = number;
            port->name = QuotedName(line);
            const size_t open = line.rfind('(');
            const size_t close = line.rfind(')');
            if (open != std::string::npos && close != std::string::npos && close > open)
                port->flags = line.substr(open + 1, close - open - 1);
        } else if (port != nullptr && (at = After(line, "Connecting To:")) != std::string::npos) {
            port->connectingTo = ParseAddresses(line.substr(at));
        } else if (port != nullptr && (at = After(line, "Connected From:")) != std::string::npos) {
            port->connectedFrom = ParseAddresses(line.substr(at));
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
