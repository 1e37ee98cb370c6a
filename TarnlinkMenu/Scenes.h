#pragma once

#include "TarnCore/DateText.h"
#include "TarnlinkMenu/Observable.h"
#include "TarnlinkMenu/View.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tarn {

class AdminPanelModel;
class Desktop;
class LocalizedStrings;
class MainActor;
class ModifierWatcher;
class StartupModel;
class StatusModel;

/// What the application shows, worked out anew from its models. Pure but for the actions: the same models at
/// the same moment give the same tree.
///
/// Thread: main thread. Ownership: everything must outlive this and the trees' actions.
class Scenes {
public:
    struct Services {
        StatusModel &status;
        AdminPanelModel &admin;
        ModifierWatcher &modifiers;
        Desktop &desktop;
        MainActor &actor;
        const LocalizedStrings &strings;
        /// The wall clock.
        std::function<Date()> now;
        /// Opens a window by its identifier: "admin", "settings", "help".
        std::function<void(const std::string &id)> openWindow;
        /// Null: nothing is said of what the system starts by itself.
        StartupModel *startup = nullptr;
    };

    explicit Scenes(Services services);

    /// What stands in the menu bar: name of a drawing, and what is spoken in its place.
    view::Symbol menuBarItem() const;
    /// Width 340.
    WindowContent menu();
    /// Width 380.
    WindowContent admin();
    /// Width 400.
    WindowContent settings();
    /// Width 460, height 520.
    WindowContent help();
    /// By identifier; the three windows and "menu".
    WindowContent window(const std::string &id);
    /// For a menu-bar item that can offer nothing but a plain menu: the menu window and what it leads to.
    std::vector<view::Button> plainMenu();
    /// Opens a window, its content brought up to date.
    void open(const std::string &id);

    /// Whether a refresh has ended, well or badly; before that the status is only what it starts from.
    bool isSettled() const;

    /// Told, from the main actor and once for all that changed together, when what is shown may have changed.
    Observable::Subscription observe(std::function<void()> changed);

private:
    struct State;
    std::shared_ptr<State> state_;
};

/// A tree as lines for a terminal of `columns` columns, without colours or control characters; controls are
/// shown as "[Refresh]", "[x] Title", "( ) 15 minutes", those that cannot be used with "-" inside.
std::string renderText(const View &view, int columns);

} // namespace tarn
