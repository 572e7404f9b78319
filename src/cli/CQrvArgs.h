#pragma once

// The companion's command line: one command word, its arguments, and options that may stand
// anywhere after the program's name ("--to DIR" or "--to=DIR"); "--" ends the options, so an
// argument may begin with "-". Each command takes only its own options; anything else is a
// usage error, said in one line.

#include <string>
#include <vector>

class CQrvArgs {
public:
    // False with Problem() set when the words cannot be understood.
    bool Parse(const std::vector<std::string>& words);

    const std::string& Problem() const { return m_problem; }
    // "" when no command was given.
    const std::string& Command() const { return m_command; }
    const std::vector<std::string>& Arguments() const { return m_arguments; }

    bool Help() const { return m_help; }
    bool Version() const { return m_version; }
    bool Json() const { return m_json; }
    bool Verify() const { return m_verify; }
    bool NoMetadata() const { return m_noMetadata; }
    bool ReadData() const { return m_readData; }
    bool Repair() const { return m_repair; }
    // "" when not given.
    const std::string& BackupPath() const { return m_backupPath; }
    const std::string& To() const { return m_to; }
    bool ToGiven() const { return m_toGiven; }

    // The commands the companion knows, in the order its help lists them.
    static const std::vector<std::string>& Commands();

private:
    bool Option(const std::string& word, const std::vector<std::string>& words, size_t& next);
    bool CheckCommand();
    bool Fail(const std::string& problem);

    std::string m_problem;
    std::string m_command;
    std::vector<std::string> m_arguments;
    std::vector<std::string> m_options; // as given, to check them against the command
    bool m_help = false;
    bool m_version = false;
    bool m_json = false;
    bool m_verify = false;
    bool m_noMetadata = false;
    bool m_readData = false;
    bool m_repair = false;
    std::string m_backupPath;
    std::string m_to;
    bool m_toGiven = false;
};
