#include "CommandArguments.h"

#include <errno.h>
#include <stdlib.h>

#include "NuvMIDITypes.h"

namespace nuvcli {
namespace {

struct NamedCommand {
    Command command;
    const char* name;
};

const NamedCommand kCommandNames[] = {
    {Command::Devices, "devices"},
    {Command::Monitor, "monitor"},
    {Command::Thru, "thru"},
    {Command::Play, "play"},
    {Command::Send, "send"},
    {Command::Query, "query"},
    {Command::Fonts, "fonts"},
    {Command::Connect, "connect"},
    {Command::Disconnect, "disconnect"},
    {Command::Wait, "wait"},
    {Command::Script, "script"},
    {Command::Render, "render"},
};

bool ParseNumber(const std::string& text, long min, long max, long& out) {
    if (text.empty())
        return false;
    errno = 0;
    char* end = nullptr;
    const long value = strtol(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || value < min || value > max)
        return false;
    out = value;
    return true;
}

// Reads the positional and option words of one command into an Action.
class ActionParser {
public:
    ActionParser(Command command, const std::vector<std::string>& positional,
                 const std::map<std::string, std::string>& options)
        : m_command(command), m_args(positional), m_options(options) {
        m_action.command = command;
    }

    bool Parse(Action& action, std::string& error) {
        const bool ok = m_Parse();
        if (!ok)
            error = std::string(CommandName(m_command)) + ": " + m_error;
        action = m_action;
        return ok;
    }

private:
    bool m_Parse() {
        switch (m_command) {
        case Command::Devices:
            m_action.json = m_options.count("json") != 0;
            m_action.watch = m_options.count("watch") != 0;
            return m_Arity(0, 0, "takes no arguments");
        case Command::Monitor:
            m_action.devices = m_args;
            return m_Option("count", 1, 1000000000L, m_action.eventLimit, "event count");
        case Command::Thru:
            if (!m_Arity(1, 1, "needs one DEVICE"))
                return false;
            m_action.devices = m_args;
            return true;
        case Command::Play:
            if (!m_Arity(1, 1000, "needs one FILE or more"))
                return false;
            m_action.path = m_args[0];
            m_action.morePaths.assign(m_args.begin() + 1, m_args.end());
            return true;
        case Command::Send:
            return m_ParseSend();
        case Command::Query:
            return m_ParseQuery();
        case Command::Fonts:
            return m_ParseFonts();
        case Command::Connect:
        case Command::Disconnect:
            if (!m_Arity(2, 2, "needs SRC and DST devices"))
                return false;
            m_action.devices = m_args;
            return true;
        case Command::Wait:
            return m_Arity(1, 1, "needs MS") &&
                   m_Number(0, 0, 86400000L, m_action.waitMs, "time in milliseconds");
        case Command::Render:
            if (!m_Arity(1, 1, "needs one FILE") || m_options.count("output") == 0)
                return m_Fail("needs one FILE and -o OUT.wav");
            m_action.path = m_args[0];
            m_action.output = m_options.at("output");
            return true;
        case Command::Script:
            if (!m_Arity(0, 1, "takes at most one FILE"))
                return false;
            m_action.path = m_args.empty() ? "-" : m_args[0];
            return true;
        }
        return false;
    }

    // send DEVICE EVENT ARG...: the event's arguments in the order a MIDI message has them.
    bool m_ParseSend() {
        if (!m_Arity(2, 6, "needs DEVICE EVENT ARG..."))
            return false;
        m_action.devices.push_back(m_args[0]);
        const std::string& event = m_args[1];
        const size_t n = m_args.size() - 2;
        if (event == "noteon" || event == "noteoff") {
            const bool on = event == "noteon";
            m_action.eventType = on ? MIDI_EVENT_NOTE_ON : MIDI_EVENT_NOTE_OFF;
            if (n < (on ? 3u : 2u) || n > (on ? 4u : 3u))
                return m_Fail(on ? "noteon needs CH NOTE VEL [DUR]"
                                 : "noteoff needs CH NOTE [VEL]");
            if (!m_Channel(2) || !m_Int(3, 0, 127, m_action.param, "note"))
                return false;
            if (n >= 3 && !m_Int(4, 0, 127, m_action.value, "velocity"))
                return false;
            if (on && n == 4)
                return m_Number(5, 0, 3600000L, m_action.holdMs, "duration in milliseconds");
            return true;
        }
        if (event == "cc") {
            m_action.eventType = MIDI_EVENT_CONTROL_CHANGE;
            return m_Count(n, 3, "cc needs CH CTRL VAL") && m_Channel(2) &&
                   m_Int(3, 0, 127, m_action.param, "controller") &&
                   m_Int(4, 0, 127, m_action.value, "value");
        }
        if (event == "pgm") {
            m_action.eventType = MIDI_EVENT_PROGRAM_CHANGE;
            return m_Count(n, 2, "pgm needs CH PROG") && m_Channel(2) &&
                   m_Int(3, 0, 127, m_action.value, "program");
        }
        if (event == "pitch") {
            m_action.eventType = MIDI_EVENT_PITCH_BEND;
            return m_Count(n, 2, "pitch needs CH VAL") && m_Channel(2) &&
                   m_Int(3, -8192, 8191, m_action.value, "pitch bend");
        }
        if (event == "pressure") {
            m_action.eventType = MIDI_EVENT_CHANNEL_PRESSURE;
            return m_Count(n, 2, "pressure needs CH VAL") && m_Channel(2) &&
                   m_Int(3, 0, 127, m_action.value, "pressure");
        }
        return m_Fail("unknown EVENT '" + event + "' (noteon, noteoff, cc, pgm, pitch, pressure)");
    }

    bool m_ParseQuery() {
        if (!m_Arity(3, 4, "needs DEVICE EVENT CH [PARAM]"))
            return false;
        m_action.devices.push_back(m_args[0]);
        const std::string& event = m_args[1];
        const size_t n = m_args.size() - 2;
        if (event == "cc") {
            m_action.eventType = MIDI_EVENT_CONTROL_CHANGE;
            return m_Count(n, 2, "cc needs CH CTRL") && m_Channel(2) &&
                   m_Int(3, 0, 127, m_action.param, "controller");
        }
        if (event == "pgm")
            m_action.eventType = MIDI_EVENT_PROGRAM_CHANGE;
        else if (event == "pitch")
            m_action.eventType = MIDI_EVENT_PITCH_BEND;
        else if (event == "pressure")
            m_action.eventType = MIDI_EVENT_CHANNEL_PRESSURE;
        else
            return m_Fail("unknown EVENT '" + event + "' (cc, pgm, pitch, pressure)");
        return m_Count(n, 1, event + " needs CH") && m_Channel(2);
    }

    bool m_ParseFonts() {
        if (m_args.empty())
            return m_Fail("needs load FILE, unload ID or list [ID]");
        const std::string& what = m_args[0];
        if (what == "load") {
            m_action.fontsAction = FontsAction::Load;
            if (!m_Arity(2, 2, "load needs one FILE"))
                return false;
            m_action.path = m_args[1];
            return true;
        }
        if (what == "unload") {
            m_action.fontsAction = FontsAction::Unload;
            return m_Arity(2, 2, "unload needs one ID") && m_FontId(1);
        }
        if (what == "list") {
            m_action.fontsAction = FontsAction::List;
            long start = 0, count = 0;
            if (!m_Arity(1, 2, "list takes at most one ID") ||
                (m_args.size() == 2 && !m_FontId(1)) ||
                !m_Option("start", 0, 1000000L, start, "start index") ||
                !m_Option("count", 1, 1000000L, count, "count"))
                return false;
            m_action.start = static_cast<unsigned>(start);
            m_action.count = static_cast<unsigned>(count);
            return true;
        }
        return m_Fail("unknown action '" + what + "' (load, unload, list)");
    }

    bool m_Arity(size_t min, size_t max, const std::string& what) {
        if (m_args.size() < min || m_args.size() > max)
            return m_Fail(what);
        return true;
    }
    bool m_Count(size_t n, size_t expected, const std::string& what) {
        return n == expected || m_Fail(what);
    }
    bool m_Number(size_t index, long min, long max, long& out, const std::string& what) {
        if (ParseNumber(m_args[index], min, max, out))
            return true;
        return m_Fail(what + " '" + m_args[index] + "' is not a number from " +
                      std::to_string(min) + " to " + std::to_string(max));
    }
    bool m_Int(size_t index, long min, long max, int& out, const std::string& what) {
        long value = 0;
        if (!m_Number(index, min, max, value, what))
            return false;
        out = static_cast<int>(value);
        return true;
    }
    bool m_Channel(size_t index) { return m_Int(index, 0, 15, m_action.channel, "channel"); }
    bool m_FontId(size_t index) {
        long id = 0;
        if (!m_Number(index, 0, 1000000L, id, "font ID"))
            return false;
        m_action.fontId = static_cast<unsigned>(id);
        return true;
    }
    bool m_Option(const std::string& name, long min, long max, long& out, const std::string& what) {
        const auto it = m_options.find(name);
        if (it == m_options.end())
            return true;
        if (ParseNumber(it->second, min, max, out))
            return true;
        return m_Fail("--" + name + ": " + what + " '" + it->second + "' is not a number from " +
                      std::to_string(min) + " to " + std::to_string(max));
    }
    bool m_Fail(const std::string& message) {
        m_error = message;
        return false;
    }

    Command m_command;
    const std::vector<std::string>& m_args;
    const std::map<std::string, std::string>& m_options;
    Action m_action;
    std::string m_error;
};

} // namespace

bool FindCommand(const std::string& name, Command& command) {
    for (const NamedCommand& entry : kCommandNames) {
        if (name == entry.name) {
            command = entry.command;
            return true;
        }
    }
    return false;
}

const char* CommandName(Command command) {
    for (const NamedCommand& entry : kCommandNames)
        if (entry.command == command)
            return entry.name;
    return "?";
}

bool CommandTakesOption(Command command, const std::string& name, bool& takesValue) {
    takesValue = true;
    switch (command) {
    case Command::Devices:
        takesValue = false;
        return name == "json" || name == "watch";
    case Command::Monitor:
        return name == "count";
    case Command::Fonts:
        return name == "start" || name == "count";
    case Command::Render:
        return name == "output";
    default:
        return false;
    }
}

bool ParseCommandArguments(Command command, const std::vector<std::string>& arguments,
                           const std::map<std::string, std::string>& options, Action& action,
                           std::string& error) {
    return ActionParser(command, arguments, options).Parse(action, error);
}

} // namespace nuvcli
