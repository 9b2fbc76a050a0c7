#include "DeviceMatch.h"

#include <ctype.h>
#include <stdlib.h>

namespace nuvcli {
namespace {

bool AllDigits(const std::string& text) {
    if (text.empty() || text.size() > 6)
        return false;
    for (const char c : text)
        if (!isdigit(static_cast<unsigned char>(c)))
            return false;
    return true;
}

// "20" or "20:0": the client number, or -1.
int ClientNumber(const std::string& query) {
    const size_t colon = query.find(':');
    const std::string client = query.substr(0, colon);
    if (!AllDigits(client) || (colon != std::string::npos && !AllDigits(query.substr(colon + 1))))
        return -1;
    return atoi(client.c_str());
}

bool EqualsIgnoringCase(const std::string& a, const std::string& b, size_t length) {
    if (a.size() < length || b.size() < length)
        return false;
    for (size_t i = 0; i < length; ++i)
        if (tolower(static_cast<unsigned char>(a[i])) != tolower(static_cast<unsigned char>(b[i])))
            return false;
    return true;
}

std::string Describe(const DeviceEntry& device) {
    return "'" + device.name + "' (" + std::to_string(device.client) + ")";
}

} // namespace

DeviceMatch MatchDevice(const std::vector<DeviceEntry>& devices, const std::string& query) {
    DeviceMatch match;
    if (query.empty())
        return match;
    const int client = ClientNumber(query);
    std::vector<size_t> sameCase, anyCase, prefix;
    for (size_t i = 0; i < devices.size(); ++i) {
        const std::string& name = devices[i].name;
        if (client >= 0 && devices[i].client == client) {
            match.status = DeviceMatch::FOUND;
            match.index = i;
            return match;
        }
        if (name == query)
            sameCase.push_back(i);
        else if (name.size() == query.size() && EqualsIgnoringCase(name, query, query.size()))
            anyCase.push_back(i);
        else if (EqualsIgnoringCase(name, query, query.size()))
            prefix.push_back(i);
    }
    for (const std::vector<size_t>* found : {&sameCase, &anyCase}) {
        if (!found->empty()) {
            match.status = DeviceMatch::FOUND;
            match.index = found->front();
            return match;
        }
    }
    if (prefix.size() == 1) {
        match.status = DeviceMatch::FOUND;
        match.index = prefix.front();
    } else if (prefix.size() > 1) {
        match.status = DeviceMatch::AMBIGUOUS;
        match.candidates = prefix;
    }
    return match;
}

std::string DescribeFailedMatch(const std::vector<DeviceEntry>& devices, const std::string& query,
                                const DeviceMatch& match) {
    std::string text;
    if (match.status == DeviceMatch::AMBIGUOUS) {
        text = "device '" + query + "' is ambiguous: it may be ";
        for (size_t i = 0; i < match.candidates.size(); ++i)
            text += (i == 0                             ? ""
                     : i + 1 == match.candidates.size() ? " or "
                                                        : ", ") +
                    Describe(devices[match.candidates[i]]);
        return text;
    }
    text = "unknown device '" + query + "'";
    if (devices.empty())
        return text + "; no device is connected";
    text += "; connected: ";
    for (size_t i = 0; i < devices.size(); ++i)
        text += (i == 0 ? "" : ", ") + Describe(devices[i]);
    return text;
}

} // namespace nuvcli
