#include "MidiListener.h"

#include <algorithm>

#include "ExitCodes.h"
#include "OutputFormat.h"
#include "Report.h"
#include "Session.h"

namespace nuvcli {

MidiListener::MidiListener(Waiter& waiter, long eventLimit, bool forward)
    : m_waiter(waiter), m_eventLimit(eventLimit), m_forward(forward),
      m_start(Waiter::Clock::now()) {}

double MidiListener::Elapsed() const {
    return std::chrono::duration<double>(Waiter::Clock::now() - m_start).count();
}

int MidiListener::Listen(Session& session, DeviceEntry& device) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_clients.count(device.client) != 0)
            return 0;
    }
    INuvMIDIDevice* object = session.Take(device);
    if (object == nullptr)
        return EXIT_FAILED;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_sources[device.id] = Source{object, device.name};
        m_clients.insert(device.client);
    }
    object->RegisterCallback(this);
    return 0;
}

int MidiListener::Run(Session& session, const std::vector<std::string>& names, bool everyKeyboard) {
    int result = EXIT_OK;
    while (result == EXIT_OK && (m_eventLimit == 0 || m_events.load() < m_eventLimit)) {
        if (m_waiter.WaitForever() == Waiter::SIGNALLED)
            break;
        for (DeviceNews& news : session.TakeNews()) {
            PrintNews(news, m_start);
            if (!news.arrived) {
                std::lock_guard<std::mutex> lock(m_mutex);
                if (m_clients.erase(news.device.client) != 0 && m_clients.empty() && !everyKeyboard)
                    result = Fail(EXIT_DEVICE_GONE, "'%s' (%d) has gone", news.device.name.c_str(),
                                  news.device.client);
                continue;
            }
            const bool named =
                std::find(names.begin(), names.end(), news.device.name) != names.end();
            if (named || (everyKeyboard && !news.device.isSynth))
                Listen(session, news.device);
        }
    }
    m_active.store(false);
    return result;
}

// Called by a device with the event code, its id and the message, on the library's thread.
int MidiListener::t_OnCallback(int code, void* arg1, void* arg2, void*) {
    if (!m_active.load() || arg1 == nullptr || arg2 == nullptr)
        return 0;
    const int id = *static_cast<const int*>(arg1);
    _MIDIMessage& message = *static_cast<_MIDIMessage*>(arg2);
    Source source{nullptr, "?"};
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto found = m_sources.find(id);
        if (found != m_sources.end())
            source = found->second;
    }
    // The device that calls is alive for the call, so it is the one to send through.
    if (m_forward && source.device != nullptr)
        source.device->SendMessage(static_cast<MIDIEventType>(code - 10), message);
    const long events = ++m_events;
    if (m_eventLimit != 0 && events > m_eventLimit)
        return 0;
    Print(FormatEventLine(Elapsed(), source.name, code, message));
    if (events == m_eventLimit)
        m_waiter.Wake();
    return 0;
}

} // namespace nuvcli
