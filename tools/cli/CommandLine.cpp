#include "CommandLine.h"

#include <map>

#include "CommandArguments.h"
#include "HelpText.h"

namespace nuvcli {
namespace {

bool IsGlobalOption(const std::string& name, bool& takesValue) {
    takesValue = name != "verbose";
    return name == "lib" || name == "font" || name == "audio" || name == "wav" || name == "verbose";
}

bool IsHelp(const std::string& word) {
    return word == "-h" || word == "--help";
}

// A negative number is an argument (a pitch bend), not an option.
bool LooksLikeOption(const std::string& word) {
    if (word.size() < 2 || word[0] != '-')
        return false;
    return !(word[1] >= '0' && word[1] <= '9');
}

// Parses one command's words. Global options met on the way go to `globals`; null refuses
// them (in scripts).
bool ParseOneCommand(const std::vector<std::string>& words, GlobalOptions* globals, Action& action,
                     std::string& error) {
    std::vector<std::string> positional;
    std::map<std::string, std::string> options;
    bool haveCommand = false;
    Command command = Command::Devices;
    bool onlyArguments = false;
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (onlyArguments || !LooksLikeOption(word)) {
            if (!haveCommand) {
                if (!FindCommand(word, command)) {
                    error = "unknown command '" + word + "' (see 'nuvmidi --help')";
                    return false;
                }
                haveCommand = true;
            } else {
                positional.push_back(word);
            }
            continue;
        }
        if (word == "--") {
            onlyArguments = true;
            continue;
        }
        std::string name, value;
        bool hasValue = false;
        if (word == "-v") {
            name = "verbose";
        } else if (word == "-o") {
            name = "output";
        } else if (word.compare(0, 2, "--") == 0) {
            const size_t equals = word.find('=');
            name = word.substr(2, equals == std::string::npos ? std::string::npos : equals - 2);
            if (equals != std::string::npos) {
                value = word.substr(equals + 1);
                hasValue = true;
            }
        } else {
            error = "unknown option '" + word + "' (see 'nuvmidi --help')";
            return false;
        }
        bool takesValue = false;
        const bool global = IsGlobalOption(name, takesValue);
        if (!global && !(haveCommand && CommandTakesOption(command, name, takesValue))) {
            error = (haveCommand ? std::string(CommandName(command)) + ": " : std::string()) +
                    "unknown option '--" + name + "'";
            return false;
        }
        if (takesValue && !hasValue) {
            if (i + 1 >= words.size()) {
                error = "option '--" + name + "' needs a value";
                return false;
            }
            value = words[++i];
        } else if (!takesValue && hasValue) {
            error = "option '--" + name + "' takes no value";
            return false;
        }
        if (!global) {
            options[name] = value;
            continue;
        }
        if (globals == nullptr) {
            error = "option '--" + name + "' belongs on the command line, not in a script";
            return false;
        }
        if (name == "verbose")
            globals->verbose = true;
        else if (name == "lib")
            globals->library = value;
        else if (name == "font")
            globals->font = value;
        else if (name == "audio")
            globals->audioDevice = value;
        else
            globals->wavFile = value;
    }
    if (!haveCommand) {
        error = "missing COMMAND (see 'nuvmidi --help')";
        return false;
    }
    if (globals == nullptr && command == Command::Script) {
        error = "scripts do not run other scripts";
        return false;
    }
    return ParseCommandArguments(command, positional, options, action, error);
}

// The help asked for in a list of words: the command's when one is named before it.
bool FindHelp(const std::vector<std::string>& words, std::string& text) {
    Command command = Command::Devices;
    bool haveCommand = false;
    for (const std::string& word : words) {
        if (word == "--")
            return false;
        if (IsHelp(word)) {
            text = haveCommand ? CommandHelp(command) : ProgramHelp();
            return true;
        }
        if (word == "--then")
            haveCommand = false;
        else if (!haveCommand && !LooksLikeOption(word) && FindCommand(word, command))
            haveCommand = true;
    }
    return false;
}

} // namespace

CommandLine ParseCommandLine(const std::vector<std::string>& args) {
    CommandLine result;
    if (FindHelp(args, result.text)) {
        result.outcome = CommandLine::HELP;
        return result;
    }
    if (args.size() == 1 && args[0] == "--version") {
        result.outcome = CommandLine::HELP;
        result.text = "nuvmidi " NUV_VERSION "\n";
        return result;
    }
    std::vector<std::string> words;
    for (size_t i = 0; i <= args.size(); ++i) {
        if (i < args.size() && args[i] != "--then") {
            words.push_back(args[i]);
            continue;
        }
        Action action;
        if (!ParseOneCommand(words, &result.options, action, result.text)) {
            if (!args.empty() && words.empty()) // an empty command beside a --then
                result.text = "'--then' must follow a command and precede another";
            result.outcome = CommandLine::ERROR;
            return result;
        }
        result.actions.push_back(action);
        words.clear();
    }
    if (!result.options.audioDevice.empty() && !result.options.wavFile.empty()) {
        result.outcome = CommandLine::ERROR;
        result.text = "--audio and --wav exclude each other: sound goes to one of them";
    }
    return result;
}

bool SplitWords(const std::string& line, std::vector<std::string>& words) {
    words.clear();
    std::string word;
    bool inWord = false;
    char quote = 0;
    for (const char c : line) {
        if (quote != 0) {
            if (c == quote)
                quote = 0;
            else
                word += c;
            continue;
        }
        if (c == '#')
            break;
        if (c == '\'' || c == '"') {
            quote = c;
            inWord = true;
        } else if (c == ' ' || c == '\t' || c == '\r') {
            if (inWord)
                words.push_back(word);
            word.clear();
            inWord = false;
        } else {
            word += c;
            inWord = true;
        }
    }
    if (quote != 0)
        return false;
    if (inWord)
        words.push_back(word);
    return true;
}

bool ParseScript(const std::string& text, std::vector<Action>& actions, std::string& error) {
    size_t lineNumber = 0;
    size_t begin = 0;
    while (begin <= text.size()) {
        size_t end = text.find('\n', begin);
        if (end == std::string::npos)
            end = text.size();
        ++lineNumber;
        std::vector<std::string> words;
        std::string message;
        Action action;
        if (!SplitWords(text.substr(begin, end - begin), words))
            message = "unterminated quote";
        else if (!words.empty() && ParseOneCommand(words, nullptr, action, message))
            actions.push_back(action);
        if (!message.empty()) {
            error = "line " + std::to_string(lineNumber) + ": " + message;
            return false;
        }
        begin = end + 1;
    }
    return true;
}

} // namespace nuvcli
