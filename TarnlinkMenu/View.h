#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace tarn {

struct View;
using Views = std::vector<View>;

/// What a window shows, as plain values: texts are in the user's language already, actions are closures.
/// Renderers draw them and know no rule; two trees that show and say the same differ in nothing but actions.
///
/// Thread: main thread. Ownership: actions hold models weakly, or are used only while the window's owner
///   lives, which outlives its windows.
namespace view {

enum class Font { title, headline, body, caption };
enum class Tone { primary, secondary, warning, accent };
enum class Color { gray, yellow, green, clear };

struct Text {
    std::string text;
    Font font = Font::body;
    Tone tone = Tone::primary;
};
/// A drawing by its name, such as "cable.connector".
struct Symbol {
    std::string name;
    Tone tone = Tone::primary;
    /// Spoken in its place; empty for one that only decorates.
    std::string label = {};
    /// Large, as in a header.
    bool isLarge = false;
};
/// A coloured dot; `label` says in words what the colour does. A clear one only takes its room, as under
/// others.
struct Dot {
    Color color = Color::gray;
    std::string label;
};
struct Button {
    /// Names it to tests and renderers, such as "menu.button.refresh".
    std::string id;
    std::string title;
    /// Name of a drawing before the title; empty for none.
    std::string symbol = {};
    bool isEnabled = true;
    /// What Return presses.
    bool isDefault = false;
    std::function<void()> action = {};
};
struct Toggle {
    std::string id;
    std::string title;
    std::string detail = {};
    bool isOn = false;
    bool isEnabled = true;
    std::function<void(bool)> changed = {};
};
struct Picker {
    std::string id;
    std::string title;
    /// Text and tag.
    std::vector<std::pair<std::string, std::int64_t>> choices;
    std::int64_t selected = 0;
    bool isEnabled = true;
    std::function<void(std::int64_t)> changed = {};
};
struct Link {
    std::string id;
    std::string title;
    std::string url;
    std::function<void()> action = {};
};
/// A bar; without a fraction (0 to 1), one that only moves. As wide as there is room, or so many points.
struct Progress {
    std::optional<double> fraction;
    std::string label;
    std::optional<int> width = {};
};
struct Separator {};
/// Takes what room is left in a row.
struct Spacer {};
/// Side by side, centred vertically or with their first lines on one height; texts that do not fit wrap.
struct Row {
    Views children;
    bool alignsFirstLines = false;
};
/// One below the other. `isGroup`: they belong closer together.
struct Column {
    Views children;
    bool isGroup = false;
};
/// Scrolls when it does not fit into the window's height.
struct Scroll {
    Views children;
};

using Node = std::variant<Text, Symbol, Dot, Button, Toggle, Picker, Link, Progress, Separator, Spacer, Row,
                          Column, Scroll>;

} // namespace view

struct View {
    view::Node node;

    template <class Kind> View(Kind kind) : node(std::move(kind)) {}
};

/// A window and how large it is, in points; it is as high as its content unless it says otherwise.
struct WindowContent {
    /// "admin", "settings", "help", or "menu".
    std::string id;
    std::string title;
    int width = 0;
    std::optional<int> height;
    View content;
};

} // namespace tarn
