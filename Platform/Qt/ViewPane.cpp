#include "Platform/Qt/ViewPane.h"

#include "Platform/Qt/Symbols.h"

#include <QBoxLayout>
#include <QCheckBox>
#include <QComboBox>
#include <QFontDatabase>
#include <QKeyEvent>
#include <QLabel>
#include <QPainter>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <map>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace tarn {
namespace {

using view::Color;
using view::Font;
using view::Tone;

constexpr int groupSpacing = 3, columnSpacing = 12, rowSpacing = 8, symbolSize = 16, largeSymbolSize = 28,
              titlePadding = 10;

QString text(const std::string &utf8) {
    return QString::fromStdString(utf8);
}

bool isDark(const QPalette &palette) {
    return palette.color(QPalette::Window).lightness() < 128;
}

QColor color(Tone tone, const QPalette &palette) {
    const auto ground = palette.color(QPalette::Window), ink = palette.color(QPalette::WindowText);
    const auto mixed = [](int above, int below) { return (above * 68 + below * 32) / 100; };
    switch (tone) {
    case Tone::primary:
        break;
    case Tone::secondary:
        return {mixed(ink.red(), ground.red()), mixed(ink.green(), ground.green()),
                mixed(ink.blue(), ground.blue())};
    case Tone::warning:
        return isDark(palette) ? QColor(0xff, 0xb3, 0x4d) : QColor(0xa8, 0x4a, 0x00);
    case Tone::accent:
        return palette.color(QPalette::Link);
    }
    return ink;
}

QFont typeface(Font style) {
    auto made = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    const double size = made.pointSizeF();
    if (style == Font::title)
        made.setPointSizeF(size * 1.45);
    else if (style == Font::caption)
        made.setPointSizeF(size * 0.9);
    if (style == Font::title || style == Font::headline)
        made.setWeight(QFont::DemiBold);
    return made;
}

/// Wraps, but only where it does not fit on a line; QLabel's own size hint wraps sooner.
class Label final : public QLabel {
public:
    Label() {
        setWordWrap(true);
        setTextFormat(Qt::PlainText);
        setTextInteractionFlags(Qt::NoTextInteraction);
    }
    QSize sizeHint() const override {
        const int width = lineWidth();
        return {width, heightForWidth(width)};
    }
    QSize minimumSizeHint() const override {
        return {std::min(lineWidth(), fontMetrics().averageCharWidth() * 10), fontMetrics().height()};
    }
    int heightForWidth(int width) const override {
        const auto [known, isNew] = heights_.try_emplace(width);
        if (isNew)
            known->second = QLabel::heightForWidth(width);
        return known->second;
    }

    void write(const QString &words, const QFont &style, const QColor &ink) {
        auto colors = palette();
        colors.setColor(QPalette::WindowText, ink);
        setPalette(colors);
        setFont(style);
        if (words != this->text()) {
            forget();
            setText(words);
        }
    }

protected:
    void changeEvent(QEvent *event) override {
        forget();
        QLabel::changeEvent(event);
    }

private:
    int lineWidth() const {
        if (lineWidth_ < 0)
            lineWidth_ = fontMetrics().size(Qt::TextExpandTabs, text()).width() + 2;
        return lineWidth_;
    }
    void forget() {
        lineWidth_ = -1;
        heights_.clear();
    }

    /// Layouts ask again and again, and to shape text is most of what opening a window takes.
    mutable int lineWidth_ = -1;
    mutable std::map<int, int> heights_;
};

/// Whoever uses the mouse does not look for the focus.
bool showsFocus(const QWidget &widget) {
    return widget.hasFocus() && widget.window()->testAttribute(Qt::WA_KeyboardFocusChange);
}

/// A check box that looks like what it does: on or off at once.
class Switch final : public QCheckBox {
public:
    QSize sizeHint() const override { return {36, 22}; }
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    bool hitButton(const QPoint &position) const override { return rect().contains(position); }
    void paintEvent(QPaintEvent *) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        const auto group = isEnabled() ? QPalette::Active : QPalette::Disabled;
        auto off = palette().color(QPalette::WindowText);
        off.setAlphaF(isEnabled() ? 0.42F : 0.2F);
        const QRectF track(2, 3, 32, 16);
        painter.setPen(Qt::NoPen);
        painter.setBrush(isChecked() ? palette().color(group, QPalette::Highlight) : off);
        if (!isEnabled() && isChecked())
            painter.setOpacity(0.5);
        painter.drawRoundedRect(track, 8, 8);
        painter.setBrush(Qt::white);
        const bool isRight = isChecked() == (layoutDirection() == Qt::LeftToRight);
        painter.drawEllipse(QPointF(isRight ? 26 : 10, 11), 6, 6);
        if (!showsFocus(*this))
            return;
        painter.setBrush(Qt::NoBrush);
        painter.setPen(QPen(palette().color(QPalette::Highlight), 1.5));
        painter.drawRoundedRect(track.adjusted(-2, -2, 2, 2), 10, 10);
    }
};

class DotMark final : public QWidget {
public:
    DotMark() { setFixedSize(symbolSize, symbolSize); }
    void fill(const QColor &color) {
        color_ = color;
        update();
    }

protected:
    void paintEvent(QPaintEvent *) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.setBrush(color_);
        painter.drawEllipse(QRectF(rect()).center(), 4.5, 4.5);
    }

private:
    QColor color_;
};

/// Return presses the button that has the focus, whichever is the window's default.
class PushButton : public QPushButton {
public:
    /// Styles leave long titles hardly any room at their sides.
    QSize sizeHint() const override {
        const int words = fontMetrics().size(Qt::TextShowMnemonic, text()).width();
        const int symbol = icon().isNull() ? 0 : iconSize().width() + 4;
        return QPushButton::sizeHint().expandedTo({words + symbol + 2 * titlePadding, 0});
    }

protected:
    void keyPressEvent(QKeyEvent *event) override {
        if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter)
            click();
        else
            QPushButton::keyPressEvent(event);
    }
};

/// Words alone, underlined.
class LinkButton final : public PushButton {
public:
    QSize sizeHint() const override { return fontMetrics().size(Qt::TextShowMnemonic, text()) + QSize(2, 4); }
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent *) override {
        QPainter painter(this);
        auto underlined = font();
        underlined.setUnderline(true);
        painter.setFont(underlined);
        painter.setPen(palette().color(QPalette::Link));
        painter.drawText(rect(), Qt::AlignVCenter | Qt::TextShowMnemonic, text());
        if (showsFocus(*this))
            painter.drawRoundedRect(rect().adjusted(0, 0, -1, -1), 3, 3);
    }
};

QBoxLayout *box(QWidget *widget, QBoxLayout::Direction direction, int spacing) {
    auto *layout = new QBoxLayout(direction, widget);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(spacing);
    return layout;
}

void say(QWidget *widget, const std::string &name) {
    widget->setAccessibleName(text(name));
}

} // namespace

/// A node as it stands in the window.
struct ViewPane::Drawn {
    using Acted = std::function<void()>;

    /// Shows nothing before the first update, which its widget's place in a window comes before.
    Drawn(const View &view, const Acted &acted) : kind(view.node.index()), id(idOf(view)), acted_(acted) {
        std::visit([this](const auto &node) { make(node); }, view.node);
    }
    Drawn(const Drawn &) = delete;
    Drawn &operator=(const Drawn &) = delete;
    ~Drawn() {
        // Perhaps it is its own action that removes it.
        for (QObject *sender : std::initializer_list<QObject *>{widget, switch_, choices_})
            if (sender)
                sender->blockSignals(true);
        widget->hide();
        widget->deleteLater();
    }

    /// Lets the focus go from `last` through the controls in here, in reading order.
    void chain(QWidget *&last) {
        for (QWidget *next : std::initializer_list<QWidget *>{switch_, choices_, widget}) {
            if (!next || next->focusPolicy() == Qt::NoFocus)
                continue;
            if (last)
                QWidget::setTabOrder(last, next);
            last = next;
        }
        for (const auto &child : children_)
            child->chain(last);
    }

    bool fits(const View &view) const { return view.node.index() == kind && idOf(view) == id; }
    void update(const View &view) {
        std::visit([this](const auto &node) { fill(node); }, view.node);
    }

    QWidget *widget = nullptr;
    std::size_t kind;
    std::string id;

private:
    static std::string idOf(const View &view) {
        return std::visit(
            [](const auto &node) -> std::string {
                if constexpr (requires { node.id; })
                    return node.id;
                else if constexpr (requires { node.alignsFirstLines; })
                    return node.alignsFirstLines ? "first lines" : "";
                else
                    return {};
            },
            view.node);
    }

    template <class Widget> Widget *own(Widget *made) {
        widget = made;
        return made;
    }
    template <class Widget> Widget *as() { return static_cast<Widget *>(widget); }
    /// Calls the action that the tree has by then, if this is still there.
    template <class... Value> auto caller(std::function<void(Value...)> &action) {
        return [&action, acted = acted_](Value... value) {
            if (const auto called = action)
                called(value...);
            acted();
        };
    }

    void make(const view::Text &) { own(new Label); }
    void make(const view::Symbol &) { own(new QLabel); }
    void make(const view::Dot &) { own(new DotMark); }
    void make(const view::Button &) { makeButton(new PushButton); }
    void make(const view::Link &) {
        makeButton(new LinkButton);
        widget->setCursor(Qt::PointingHandCursor);
    }
    void makeButton(QPushButton *button) {
        own(button);
        button->setAutoDefault(false);
        button->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
        QObject::connect(button, &QPushButton::clicked, button, [press = caller(pressed_)] { press(); });
    }
    void make(const view::Toggle &) {
        auto *row = own(new QWidget);
        auto *layout = box(row, QBoxLayout::LeftToRight, rowSpacing * 2);
        auto *words = box(new QWidget, QBoxLayout::TopToBottom, groupSpacing);
        title_ = new Label;
        detail_ = new Label;
        words->addWidget(title_);
        words->addWidget(detail_);
        switch_ = new Switch;
        layout->addWidget(words->parentWidget(), 1);
        layout->addWidget(switch_, 0, Qt::AlignTop);
        QObject::connect(switch_, &QCheckBox::clicked, switch_, caller(toggled_));
    }
    void make(const view::Picker &) {
        auto *row = own(new QWidget);
        auto *layout = box(row, QBoxLayout::LeftToRight, rowSpacing);
        title_ = new Label;
        choices_ = new QComboBox;
        choices_->setSizeAdjustPolicy(QComboBox::AdjustToContents);
        layout->addWidget(title_, 1);
        layout->addWidget(choices_);
        QObject::connect(choices_, &QComboBox::activated, choices_,
                         [pick = caller(picked_), choices = choices_](int index) {
                             pick(choices->itemData(index).toLongLong());
                         });
    }
    void make(const view::Progress &) {
        auto *bar = own(new QProgressBar);
        bar->setTextVisible(false);
        bar->setMaximumHeight(10);
    }
    void make(const view::Separator &) {
        auto *line = own(new QFrame);
        line->setFrameShape(QFrame::HLine);
        line->setFrameShadow(QFrame::Plain);
    }
    void make(const view::Spacer &) {
        own(new QWidget)->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    }
    void make(const view::Row &node) {
        alignment_ = node.alignsFirstLines ? Qt::AlignTop : Qt::AlignVCenter;
        layout_ = box(own(new QWidget), QBoxLayout::LeftToRight, rowSpacing);
        // Keeps the others together where none of them grows.
        filler_ = new QWidget;
        filler_->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
        layout_->addWidget(filler_);
    }
    void make(const view::Column &node) {
        layout_ = box(own(new QWidget), QBoxLayout::TopToBottom, node.isGroup ? groupSpacing : columnSpacing);
    }
    void make(const view::Scroll &) {
        auto *area = own(new QScrollArea);
        area->setFrameShape(QFrame::NoFrame);
        area->setWidgetResizable(true);
        area->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        auto *content = new QWidget;
        auto *aligned = box(content, QBoxLayout::TopToBottom, 0);
        layout_ = box(new QWidget, QBoxLayout::TopToBottom, columnSpacing);
        aligned->addWidget(layout_->parentWidget());
        aligned->addStretch(1);
        aligned->setContentsMargins(margin, margin, margin, margin);
        area->setWidget(content);
    }

    void fill(const view::Text &node) {
        as<Label>()->write(text(node.text), typeface(node.font), ink(node.tone));
    }
    void fill(const view::Symbol &node) {
        const int size = node.isLarge ? largeSymbolSize : symbolSize;
        widget->setFixedSize(size, size);
        as<QLabel>()->setPixmap(
            symbols::pixmap(node.name, ink(node.tone), size, widget->devicePixelRatioF()));
        say(widget, node.label);
    }
    void fill(const view::Dot &node) {
        const bool dark = isDark(widget->window()->palette());
        as<DotMark>()->fill(node.color == Color::clear    ? QColor(Qt::transparent)
                            : node.color == Color::green  ? (dark ? "#4cc764" : "#2a9d44")
                            : node.color == Color::yellow ? (dark ? "#f5c542" : "#d69a00")
                                                          : (dark ? "#8a8d91" : "#9a9da1"));
        widget->setToolTip(text(node.label));
        say(widget, node.label);
    }
    void fill(const view::Button &node) {
        auto *button = as<QPushButton>();
        setTitle(button, node.title);
        const auto colors = widget->window()->palette();
        button->setIcon(node.symbol.empty()
                            ? QIcon()
                            : symbols::icon(node.symbol, colors.color(QPalette::Active, QPalette::ButtonText),
                                            colors.color(QPalette::Disabled, QPalette::ButtonText),
                                            {button->devicePixelRatioF()}));
        button->setEnabled(node.isEnabled);
        button->setDefault(node.isDefault);
        pressed_ = node.action;
    }
    void fill(const view::Link &node) {
        auto *button = as<QPushButton>();
        setTitle(button, node.title);
        button->setToolTip(text(node.url));
        pressed_ = node.action;
    }
    /// An ampersand in a title is no mnemonic.
    void setTitle(QPushButton *button, const std::string &title) {
        button->setText(text(title).replace('&', "&&"));
        say(button, title);
        button->setObjectName(text(id));
    }
    void fill(const view::Toggle &node) {
        title_->write(text(node.title), typeface(Font::body), ink(Tone::primary));
        detail_->write(text(node.detail), typeface(Font::caption), ink(Tone::secondary));
        detail_->setVisible(!node.detail.empty());
        switch_->setChecked(node.isOn);
        switch_->setEnabled(node.isEnabled);
        switch_->setObjectName(text(id));
        say(switch_, node.title);
        switch_->setAccessibleDescription(text(node.detail));
        toggled_ = node.changed;
    }
    void fill(const view::Picker &node) {
        title_->write(text(node.title), typeface(Font::body), ink(Tone::primary));
        bool isSame = static_cast<std::size_t>(choices_->count()) == node.choices.size();
        for (int i = 0; isSame && i < choices_->count(); ++i) {
            const auto &[name, tag] = node.choices[static_cast<std::size_t>(i)];
            isSame = choices_->itemText(i) == text(name) && choices_->itemData(i).toLongLong() == tag;
        }
        if (!isSame) {
            choices_->clear();
            for (const auto &[name, tag] : node.choices)
                choices_->addItem(text(name), static_cast<qlonglong>(tag));
        }
        choices_->setCurrentIndex(choices_->findData(static_cast<qlonglong>(node.selected)));
        choices_->setEnabled(node.isEnabled);
        choices_->setObjectName(text(id));
        say(choices_, node.title);
        picked_ = node.changed;
    }
    void fill(const view::Progress &node) {
        auto *bar = as<QProgressBar>();
        bar->setMinimumWidth(node.width.value_or(40));
        bar->setMaximumWidth(node.width.value_or(QWIDGETSIZE_MAX));
        bar->setRange(0, node.fraction ? 1000 : 0);
        bar->setValue(static_cast<int>(std::lround(std::clamp(node.fraction.value_or(0), 0.0, 1.0) * 1000)));
        say(bar, node.label);
    }
    void fill(const view::Separator &) {
        auto line = ink(Tone::primary);
        line.setAlphaF(0.15F);
        auto colors = widget->palette();
        colors.setColor(QPalette::WindowText, line);
        widget->setPalette(colors);
    }
    void fill(const view::Spacer &) {}
    void fill(const view::Row &node) {
        place(node.children);
        filler_->setVisible(std::none_of(node.children.begin(), node.children.end(), [](const View &child) {
            return std::visit(
                [](const auto &one) {
                    using Kind = std::decay_t<decltype(one)>;
                    return std::is_same_v<Kind, view::Spacer> || std::is_same_v<Kind, view::Toggle> ||
                           std::is_same_v<Kind, view::Picker> || std::is_same_v<Kind, view::Progress> ||
                           std::is_same_v<Kind, view::Row> || std::is_same_v<Kind, view::Column> ||
                           std::is_same_v<Kind, view::Scroll>;
                },
                child.node);
        }));
    }
    void fill(const view::Column &node) {
        layout_->setSpacing(node.isGroup ? groupSpacing : columnSpacing);
        place(node.children);
    }
    void fill(const view::Scroll &node) { place(node.children); }

    /// What begins and ends alike stays; only what lies between is made anew.
    void place(const Views &views) {
        std::size_t kept = 0, keptAtEnd = 0;
        const std::size_t most = std::min(views.size(), children_.size());
        while (kept < most && children_[kept]->fits(views[kept]))
            ++kept;
        while (keptAtEnd < most - kept &&
               children_[children_.size() - 1 - keptAtEnd]->fits(views[views.size() - 1 - keptAtEnd]))
            ++keptAtEnd;
        const auto at = [this](std::size_t index) {
            return children_.begin() + static_cast<std::ptrdiff_t>(index);
        };
        for (auto child = at(kept); child != at(children_.size() - keptAtEnd); ++child)
            layout_->removeWidget((*child)->widget);
        children_.erase(at(kept), at(children_.size() - keptAtEnd));
        for (std::size_t i = kept; i < views.size() - keptAtEnd; ++i) {
            auto child = std::make_unique<Drawn>(views[i], acted_);
            const bool isFixed = child->widget->sizePolicy().horizontalPolicy() == QSizePolicy::Fixed;
            const bool isInRow = layout_->direction() == QBoxLayout::LeftToRight;
            const auto alignment = isInRow ? alignment_ : isFixed ? Qt::AlignLeft : Qt::Alignment();
            layout_->insertWidget(static_cast<int>(i), child->widget, 0, alignment);
            // In a window that is open it would count only from the next turn of the loop on.
            child->widget->show();
            children_.insert(at(i), std::move(child));
        }
        for (std::size_t i = 0; i < views.size(); ++i)
            children_[i]->update(views[i]);
    }

    QColor ink(Tone tone) const { return color(tone, widget->window()->palette()); }

    Acted acted_;
    std::vector<std::unique_ptr<Drawn>> children_;
    QBoxLayout *layout_ = nullptr;
    Qt::Alignment alignment_;
    QWidget *filler_ = nullptr;
    Label *title_ = nullptr, *detail_ = nullptr;
    Switch *switch_ = nullptr;
    QComboBox *choices_ = nullptr;
    std::function<void()> pressed_;
    std::function<void(bool)> toggled_;
    std::function<void(std::int64_t)> picked_;
};

ViewPane::ViewPane(std::function<void()> acted, QWidget *parent) : QWidget(parent), acted_(std::move(acted)) {
    box(this, QBoxLayout::TopToBottom, 0);
}

ViewPane::~ViewPane() = default;

void ViewPane::show(const View &view) {
    if (!root_ || !root_->fits(view)) {
        root_ = std::make_unique<Drawn>(view, acted_);
        layout()->addWidget(root_->widget);
        root_->widget->show();
    }
    // The bar of what scrolls belongs at the edge.
    const int around = std::holds_alternative<view::Scroll>(view.node) ? 0 : margin;
    setContentsMargins(around, around, around, around);
    root_->update(view);
    QWidget *last = nullptr;
    root_->chain(last);
}

} // namespace tarn
