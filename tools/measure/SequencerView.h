// The kernel's own view of the sequencer: clients, their ports and the subscriptions
// between them, read from /proc/asound/seq/clients. Reading it opens no sequencer client,
// so looking does not announce anything to the code under test.
#ifndef NUV_MEASURE_SEQUENCER_VIEW_H
#define NUV_MEASURE_SEQUENCER_VIEW_H

#include <map>
#include <string>
#include <vector>

struct SeqAddress {
    int client;
    int port;
    bool operator==(const SeqAddress& other) const {
        return client == other.client && port == other.port;
    }
};

struct SeqPortView {
    int number = -1;
    std::string name;
    // The kernel's capability flags: "R"/"W" read/write with subscription ("r"/"w"
    // without), "e" exported, "X" duplex; e.g. "-We-" for a port that only receives.
    std::string flags;
    std::vector<SeqAddress> connectingTo;  // this port sends to these
    std::vector<SeqAddress> connectedFrom; // these send to this port
    bool SendsTo(SeqAddress dest) const;
    bool HearsFrom(SeqAddress source) const;
};

struct SeqClientView {
    int number = -1;
    std::string name;
    std::map<int, SeqPortView> ports;
};

class SequencerView {
public:
    // Reads the current state; empty when the kernel has no sequencer.
    static SequencerView Read();

    const std::map<int, SeqClientView>& Clients() const { return m_clients; }
    // The first client whose name is exactly `name` / contains `part`, or null.
    const SeqClientView* Find(const std::string& name) const;
    const SeqClientView* FindContaining(const std::string& part) const;

private:
    std::map<int, SeqClientView> m_clients;
};

#endif
