#include "Support/Words.h"
#include "TarnSystem/AutostartEntry.h"
#include "TarnSystem/DaemonRegistration.h"
#include "TarnSystem/ProcessLauncher.h"

#include <gtest/gtest.h>

namespace tarn {
namespace {

TEST(UnitState, SaysWhatAnAdministratorHasToDo) {
    for (const auto &row :
         rows("enabled > 0; enabled-runtime > 0; static > 0; generated > 0; bad > 3; disabled > 1 sudo "
              "systemctl "
              "enable --now t; linked > 1 sudo systemctl enable --now t; masked > 2 sudo systemctl unmask t; "
              "masked-runtime > 2 sudo systemctl unmask t")) {
        const auto [word, expected] = sides(row);
        const auto state = registrationOfUnit(word);
        const auto command = commandForUnit(state, "t");
        EXPECT_EQ(std::to_string(static_cast<int>(state)) + (command ? " " + *command : ""), expected)
            << word;
    }
}

TEST(AutostartEntry, IsSwitchedWithoutLosingWhatElseIsInIt) {
    const std::string head = "[Desktop Entry]\n", off = head + "Hidden=true\n",
                      other = "Exec=t\n[Other]\nHidden=true\n";
    struct Row {
        std::string entry;
        bool isEnabled;
        std::string before, after;
    };
    for (const auto &[entry, isEnabled, before, after] :
         {Row{head + "Exec=t\n", true, "", "Exec=t\n"},
          Row{"# mine\n" + head + other, true, "# mine\n", other},
          Row{head + " Hidden = true \r\nName=T", false, "", "Name=T"},
          Row{head + "X-GNOME-Autostart-enabled=false\nHidden=false\nName=T\n", false, "", "Name=T\n"},
          Row{head + "Hidden=False\nExec=t\n", true, "", "Exec=t\n"},
          Row{head + "Exec= \n[Other]\nExec=t\n", false, "", "Exec= \n[Other]\nExec=t\n"},
          Row{"[Desktop Entry]", false, "", ""}}) {
        EXPECT_EQ(autostart::isEnabled(entry), isEnabled) << entry;
        EXPECT_EQ(autostart::switched(entry, true), before + head + after);
        EXPECT_EQ(autostart::switched(entry, false), before + off + after);
        EXPECT_FALSE(autostart::isEnabled(before + off + after));
    }
    EXPECT_FALSE(autostart::isEnabled("Name=T\n"));
    EXPECT_EQ(autostart::switched("Name=T\n", false), off + "Name=T\n");
}

TEST(ProcessResult, ComplainsInTheLastWordsOfWhatFailed) {
    for (const auto &[result, complaint] : std::vector<std::pair<ProcessLauncher::Result, std::string>>{
             {{"no such file", 0, "", ""}, "no such file"},
             {{{}, 0, "warning", "words"}, "none"},
             {{{}, 1, "first\r\n last \n\n", "words"}, " last"},
             {{{}, 1, "\n \n", "one\ntwo"}, "two"},
             {{{}, 9, "", "\n"}, "exit status 9"}})
        EXPECT_EQ(result.complaint().value_or("none"), complaint);
}

} // namespace
} // namespace tarn
