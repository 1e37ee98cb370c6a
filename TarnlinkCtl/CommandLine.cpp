#include "TarnlinkCtl/CommandLine.h"

#include "TarnSystem/Doctor.h"

#include <algorithm>
#include <locale>
#include <sstream>

namespace tarn {
namespace {

using Verb = CtlCommand::Verb;

std::string quoted(const std::string &word) {
    return '"' + word + '"';
}

/// Digits, and a point with more of them where wanted: whatever the locale, no sign and no exponent.
double readMinutes(const std::string &text) {
    const bool isPlain = text.find_first_not_of("0123456789.") == text.npos && !text.starts_with('.') &&
                         !text.ends_with('.') && std::ranges::count(text, '.') <= 1;
    std::istringstream in(text);
    in.imbue(std::locale::classic());
    double minutes = 0;
    if (!isPlain || !(in >> minutes) || !(minutes > 0))
        throw CtlUsageError(quoted(text) + " is no number of minutes above 0");
    return minutes;
}

} // namespace

CtlCommand parseCtlCommand(const std::vector<std::string> &words) {
    const auto has = [&](const char *word) { return std::ranges::find(words, word) != words.end(); };
    const auto is = [&](std::size_t i, const char *word) { return i < words.size() && words[i] == word; };
    CtlCommand command;
    if (has("--help"))
        return command;
    std::size_t known = 1;
    if (has("--version")) {
        command.verb = Verb::version;
        return command;
    } else if (is(0, "status")) {
        command.verb = Verb::status;
        for (; is(known, "--json") || is(known, "--watch"); ++known)
            (is(known, "--json") ? command.asJson : command.isWatching) = true;
    } else if (is(0, "pause")) {
        command.verb = Verb::pause;
        if (words.size() <= known)
            throw CtlUsageError("pause needs a number of minutes");
        command.minutes = readMinutes(words[known++]);
    } else if (is(0, "set")) {
        if (!is(1, "tethering-while-wired") && !is(1, "tethering-dns-fix"))
            throw CtlUsageError("set needs tethering-while-wired or tethering-dns-fix");
        if (!is(2, "on") && !is(2, "off"))
            throw CtlUsageError(words[1] + " is to be on or off");
        command.verb = is(1, "tethering-dns-fix") ? Verb::setDNSFix : Verb::setWhileWired;
        command.isOn = is(2, "on");
        known = 3;
    } else if (is(0, "resume")) {
        command.verb = Verb::resume;
    } else if (is(0, "diagnostics")) {
        command.verb = Verb::diagnostics;
    } else if (is(0, "history")) {
        command.verb = Verb::history;
    } else if (is(0, "doctor")) {
        command.verb = Verb::doctor;
        for (; is(known, "--json"); ++known)
            command.asJson = true;
    } else {
        throw CtlUsageError(words.empty() ? "a command is needed" : quoted(words[0]) + " is no command");
    }
    if (words.size() > known)
        throw CtlUsageError(quoted(words[known]) + " is not known there");
    return command;
}

std::string ctlHelp(HostSurvey::System system) {
    return R"(Usage: tarnlinkctl COMMAND
Asks the Tarnlink daemon, or tells it what is wanted.

  status                        what it has concluded, and why
    --json                      as one line of JSON
    --watch                     and again whenever something changes
  pause MINUTES                 leave Wi-Fi alone for so long; asks for an administrator
  resume                        end the pause
  diagnostics                   everything the daemon can tell of itself
  history                       what happened lately
  doctor                        what commonly goes wrong on this machine, and what to do about it
    --json                      as one line of JSON
  set tethering-while-wired on|off
                                leave a phone's connection on beside a wired one
  set tethering-dns-fix on|off  keep a phone's name server out of the way of a VPN's
  --help, --version

Exit status: 0 done, 1 refused or failed, or something found, 2 wrong use, 3 no daemon.

Offline? This takes Tarnlink out of the way until the next start of the machine:
  )" + doctor::rescueLine(system) +
           "\n";
}

} // namespace tarn
