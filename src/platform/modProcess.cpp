#include "platform/modProcess.h"

std::string AnswerProblem(const std::string& command, const ProgramAnswer& answer, int timeoutMs) {
    if (!answer.started) return command + " could not be started";
    if (answer.timedOut)
        return command + " did not answer within " + std::to_string(timeoutMs / 1000) + " seconds";
    if (answer.exitCode == 0) return {};
    const std::string firstError = answer.errors.substr(0, answer.errors.find('\n'));
    return command + " failed (status " + std::to_string(answer.exitCode) + ")" +
           (firstError.empty() ? "" : ": " + firstError);
}
