#include "cli/CQrvArgs.h"

#include <algorithm>
#include <map>

namespace {

struct CommandShape {
    size_t least;
    size_t most;
    std::vector<std::string> options; // besides --help, --backup-path
};

const std::map<std::string, CommandShape>& Shapes() {
    static const std::map<std::string, CommandShape> shapes = {
        {"runs", {0, 1, {"--json"}}},
        {"ls", {1, 2, {"--json"}}},
        {"find", {1, 1, {"--json"}}},
        {"diff", {1, 2, {"--json"}}},
        {"restore", {1, SIZE_MAX, {"--to", "--verify", "--no-metadata"}}},
        {"check", {0, 0, {"--json", "--read-data", "--repair"}}},
        {"help", {0, 1, {}}},
    };
    return shapes;
}

std::string Quoted(const std::string& word) {
    return "'" + word + "'";
}

} // namespace

const std::vector<std::string>& CQrvArgs::Commands() {
    static const std::vector<std::string> commands = {"runs",    "ls",    "find", "diff",
                                                      "restore", "check", "help"};
    return commands;
}

bool CQrvArgs::Fail(const std::string& problem) {
    m_problem = problem;
    return false;
}

bool CQrvArgs::Option(const std::string& word, const std::vector<std::string>& words,
                      size_t& next) {
    const size_t equals = word.find('=');
    const std::string name = word.substr(0, equals);
    const bool takesValue = name == "--backup-path" || name == "--to";
    std::string value;
    if (takesValue && equals != std::string::npos) {
        value = word.substr(equals + 1);
    } else if (takesValue) {
        if (next >= words.size()) return Fail("option " + Quoted(name) + " needs a folder");
        value = words[next++];
    } else if (equals != std::string::npos) {
        return Fail("option " + Quoted(name) + " takes no value");
    }
    if (takesValue && value.empty()) return Fail("option " + Quoted(name) + " needs a folder");

    if (name == "--help" || name == "-h") {
        m_help = true;
    } else if (name == "--version") {
        m_version = true;
    } else if (name == "--backup-path") {
        m_backupPath = value;
    } else if (name == "--json") {
        m_json = true;
    } else if (name == "--verify") {
        m_verify = true;
    } else if (name == "--no-metadata") {
        m_noMetadata = true;
    } else if (name == "--read-data") {
        m_readData = true;
    } else if (name == "--repair") {
        m_repair = true;
    } else if (name == "--to") {
        m_to = value;
        m_toGiven = true;
    } else {
        return Fail("unknown option " + Quoted(name));
    }
    m_options.push_back(name);
    return true;
}

bool CQrvArgs::Parse(const std::vector<std::string>& words) {
    bool optionsEnd = false;
    for (size_t next = 0; next < words.size();) {
        const std::string& word = words[next++];
        if (!optionsEnd && word == "--") {
            optionsEnd = true;
        } else if (!optionsEnd && word.size() > 1 && word[0] == '-') {
            if (!Option(word, words, next)) return false;
        } else if (m_command.empty()) {
            m_command = word;
        } else {
            m_arguments.push_back(word);
        }
    }
    return CheckCommand();
}

bool CQrvArgs::CheckCommand() {
    if (m_command.empty()) return true;
    const auto shape = Shapes().find(m_command);
    if (shape == Shapes().end()) return Fail("unknown command " + Quoted(m_command));
    if (m_help || m_version) return true;
    for (const std::string& option : m_options) {
        const auto& allowed = shape->second.options;
        if (option != "--help" && option != "-h" && option != "--backup-path" &&
            std::find(allowed.begin(), allowed.end(), option) == allowed.end())
            return Fail("'" + m_command + "' takes no option " + Quoted(option));
    }
    if (m_arguments.size() < shape->second.least)
        return Fail("'" + m_command + "' needs " +
                    (m_command == "find" ? std::string("a pattern") : std::string("a run's bid")));
    if (m_arguments.size() > shape->second.most && shape->second.most == 0)
        return Fail("'" + m_command + "' takes no arguments");
    if (m_arguments.size() > shape->second.most)
        return Fail("'" + m_command + "' takes at most " + std::to_string(shape->second.most) +
                    " argument" + (shape->second.most == 1 ? "" : "s") + ", not " +
                    std::to_string(m_arguments.size()));
    if (m_repair && !m_readData) return Fail("'--repair' works only with '--read-data'");
    return true;
}
