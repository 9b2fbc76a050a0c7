#include "SequencerView.h"

#include <algorithm>
#include <fstream>
#include <regex>
#include <sstream>

namespace {

// "128:0, 129:0[real:0]" -> the addresses (a time-stamp marker holds no "digits:digits").
std::vector<SeqAddress> ParseAddresses(const std::string& list) {
    std::vector<SeqAddress> addresses;
    static const std::regex address(R"((\d+):(\d+))");
    for (std::sregex_iterator it(list.begin(), list.end(), address), end; it != end; ++it)
        addresses.push_back({std::stoi((*it)[1]), std::stoi((*it)[2])});
    return addresses;
}

} // namespace

bool SeqPortView::SendsTo(SeqAddress dest) const {
    return std::find(connectingTo.begin(), connectingTo.end(), dest) != connectingTo.end();
}

bool SeqPortView::HearsFrom(SeqAddress source) const {
    return std::find(connectedFrom.begin(), connectedFrom.end(), source) != connectedFrom.end();
}

SequencerView SequencerView::Read() {
    std::ifstream file("/proc/asound/seq/clients");
    std::stringstream text;
    text << file.rdbuf();
    return Parse(text.str());
}

SequencerView SequencerView::Parse(const std::string& text) {
    static const std::regex clientLine(R"re(^Client\s+(\d+) : "(.*)" \[(\w+))re");
    static const std::regex portLine(R"re(^\s+Port\s+(\d+) : "(.*)" \((.*)\))re");
    static const std::regex toLine(R"(^\s+Connecting To: (.*)$)");
    static const std::regex fromLine(R"(^\s+Connected From: (.*)$)");

    SequencerView view;
    SeqClientView* client = nullptr;
    SeqPortView* port = nullptr;
    std::istringstream lines(text);
    std::string line;
    std::smatch m;
    while (std::getline(lines, line)) {
        if (std::regex_search(line, m, clientLine)) {
            const int number = std::stoi(m[1]);
            client = &view.m_clients[number];
            client->number = number;
            client->name = m[2];
            client->kernel = m[3] == "Kernel";
            port = nullptr;
        } else if (client != nullptr && std::regex_search(line, m, portLine)) {
            const int number = std::stoi(m[1]);
            port = &client->ports[number];
            port->number = number;
            port->name = m[2];
            port->flags = m[3];
        } else if (port != nullptr && std::regex_search(line, m, toLine)) {
            port->connectingTo = ParseAddresses(m[1]);
        } else if (port != nullptr && std::regex_search(line, m, fromLine)) {
            port->connectedFrom = ParseAddresses(m[1]);
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
