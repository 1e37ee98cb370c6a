#include "Platform/macOS/AppKitView.h"

#include "Platform/macOS/FoundationText.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <type_traits>
#include <utility>

/// What a control does, as the target of its action.
@interface TarnTarget : NSObject
- (void)fire:(id)sender;
@end

@implementation TarnTarget {
@public
    std::function<void()> _action;
}
- (void)fire:(id)sender {
    // A copy: it may be replaced by what it does.
    if (const auto action = _action)
        action();
}
@end

/// Counted from its top, where it begins when it is scrolled.
@interface TarnStack : NSStackView
@end

@implementation TarnStack
- (BOOL)isFlipped {
    return YES;
}
@end

namespace tarn {
namespace {

constexpr CGFloat windowMargin = 20;
constexpr CGFloat panelMargin = 14;
constexpr CGFloat rowSpacing = 8;
constexpr CGFloat columnSpacing = 12;
constexpr CGFloat groupSpacing = 3;
constexpr CGFloat largeSymbol = 28;
constexpr CGFloat dotSize = 9;
/// What scrolls gives way first where there is too little room, and takes what is too much; nothing else
/// grows beyond its content (NSLayoutPriorityDefaultLow).
constexpr NSLayoutPriority fillPriority = 240;
constexpr NSLayoutPriority scrollPriority = 200;
constexpr NSLayoutPriority textHugging = 100;
/// Where the texts of a row need more than there is, the short ones keep their lines and the long one wraps.
constexpr NSLayoutPriority wideText = 250;
constexpr NSLayoutPriority narrowText = 260;

using Acted = std::function<void()>;

/// A node on the screen.
class Drawn {
public:
    virtual ~Drawn() = default;
    virtual NSView *view() const = 0;
    /// Whether `next` is the same control, or the same kind of thing, with other values.
    virtual bool isShapeOf(const View &next) const = 0;
    /// `next` has this shape.
    virtual void update(const View &next) = 0;
    /// As wide as the column it stands in.
    virtual bool fillsColumn() const { return true; }
};

std::unique_ptr<Drawn> draw(const View &view, const Acted &acted);

template <class Kind> class DrawnAs : public Drawn {
public:
    bool isShapeOf(const View &next) const final {
        const auto *node = std::get_if<Kind>(&next.node);
        if constexpr (requires(const Kind &kind) { kind.id; })
            return node && node->id == id_;
        return node;
    }
    void update(const View &next) final {
        const auto &node = std::get<Kind>(next.node);
        if constexpr (requires { node.id; })
            id_ = node.id;
        apply(node);
    }

protected:
    virtual void apply(const Kind &node) = 0;

private:
    std::string id_;
};

NSColor *colorOf(view::Tone tone) {
    switch (tone) {
    case view::Tone::primary:
        break;
    case view::Tone::secondary:
        return NSColor.secondaryLabelColor;
    case view::Tone::warning:
        return NSColor.systemOrangeColor;
    case view::Tone::accent:
        return NSColor.controlAccentColor;
    }
    return NSColor.labelColor;
}

NSColor *colorOf(view::Color color) {
    switch (color) {
    case view::Color::gray:
        break;
    case view::Color::yellow:
        return NSColor.systemYellowColor;
    case view::Color::green:
        return NSColor.systemGreenColor;
    case view::Color::clear:
        return NSColor.clearColor;
    }
    return NSColor.systemGrayColor;
}

NSFont *fontOf(view::Font font) {
    switch (font) {
    case view::Font::title:
        return [NSFont preferredFontForTextStyle:NSFontTextStyleTitle2 options:@{}];
    case view::Font::headline:
        return [NSFont preferredFontForTextStyle:NSFontTextStyleHeadline options:@{}];
    case view::Font::body:
        break;
    case view::Font::caption:
        return [NSFont systemFontOfSize:NSFont.smallSystemFontSize];
    }
    return [NSFont preferredFontForTextStyle:NSFontTextStyleBody options:@{}];
}

NSTextField *makeView(const view::Text *) {
    NSTextField *label = [NSTextField wrappingLabelWithString:@""];
    label.selectable = NO;
    [label setContentHuggingPriority:textHugging forOrientation:NSLayoutConstraintOrientationHorizontal];
    [label setContentHuggingPriority:NSLayoutPriorityDefaultHigh
                      forOrientation:NSLayoutConstraintOrientationVertical];
    [label setContentCompressionResistancePriority:wideText
                                    forOrientation:NSLayoutConstraintOrientationHorizontal];
    return label;
}

NSTextField *makeLabel() {
    return makeView(static_cast<const view::Text *>(nullptr));
}

void show(NSTextField *label, const view::Text &text) {
    NSString *string = labelText(text.text);
    // The same again would be measured, and told to VoiceOver, as news.
    if (![label.stringValue isEqualToString:string])
        label.stringValue = string;
    label.font = fontOf(text.font);
    label.textColor = colorOf(text.tone);
}

void keepSize(NSView *view) {
    for (const auto orientation :
         {NSLayoutConstraintOrientationHorizontal, NSLayoutConstraintOrientationVertical}) {
        [view setContentHuggingPriority:NSLayoutPriorityDefaultHigh forOrientation:orientation];
        [view setContentCompressionResistancePriority:NSLayoutPriorityDefaultHigh forOrientation:orientation];
    }
}

void name(NSControl *control, const std::string &id, const std::string &label, bool isEnabled) {
    control.accessibilityIdentifier = labelText(id);
    control.accessibilityLabel = labelText(label);
    control.enabled = isEnabled;
}

/// The control does not keep its target.
void connect(NSControl *control, TarnTarget *target) {
    control.target = target;
    control.action = @selector(fire:);
}

std::function<void()> both(const std::function<void()> &action, const Acted &acted) {
    return [action, acted] {
        if (action)
            action();
        acted();
    };
}

template <class Kind>
    requires(std::is_same_v<Kind, view::Symbol> || std::is_same_v<Kind, view::Dot>)
NSImageView *makeView(const Kind *) {
    NSImageView *picture = [[NSImageView alloc] initWithFrame:NSZeroRect];
    keepSize(picture);
    return picture;
}

/// A picture is spoken by its label, or not at all.
void showPicture(NSImageView *picture, const std::string &symbol, CGFloat size, const std::string &label) {
    picture.image = symbolImage(symbol);
    picture.symbolConfiguration = [NSImageSymbolConfiguration configurationWithPointSize:size
                                                                                  weight:NSFontWeightRegular];
    picture.accessibilityElement = !label.empty();
    picture.accessibilityLabel = labelText(label);
}

void show(NSImageView *picture, const view::Symbol &node) {
    showPicture(picture, node.name, node.isLarge ? largeSymbol : NSFont.systemFontSize, node.label);
    picture.contentTintColor = colorOf(node.tone);
}

void show(NSImageView *picture, const view::Dot &node) {
    showPicture(picture, "circle.fill", dotSize, node.label);
    picture.contentTintColor = colorOf(node.color);
}

NSButton *makeView(const view::Button *) {
    NSButton *button = [[NSButton alloc] initWithFrame:NSZeroRect];
    button.bezelStyle = NSBezelStyleRounded;
    button.imageHugsTitle = YES;
    keepSize(button);
    return button;
}

NSButton *makeView(const view::Link *) {
    NSButton *button = [[NSButton alloc] initWithFrame:NSZeroRect];
    button.bordered = NO;
    button.accessibilityRole = NSAccessibilityLinkRole;
    keepSize(button);
    return button;
}

void show(NSButton *button, const view::Button &node) {
    name(button, node.id, node.title, node.isEnabled);
    button.title = labelText(node.title);
    button.image = node.symbol.empty() ? nil : symbolImage(node.symbol);
    button.imagePosition = node.symbol.empty() ? NSNoImage : NSImageLeading;
    button.keyEquivalent = node.isDefault ? @"\r" : @"";
}

void show(NSButton *button, const view::Link &node) {
    name(button, node.id, node.title, true);
    NSDictionary<NSAttributedStringKey, id> *look = @{
        NSForegroundColorAttributeName : NSColor.linkColor,
        NSFontAttributeName : fontOf(view::Font::body),
        NSUnderlineStyleAttributeName : @(NSUnderlineStyleSingle),
    };
    button.attributedTitle = [[NSAttributedString alloc] initWithString:labelText(node.title)
                                                             attributes:look];
    button.toolTip = labelText(node.url);
}

NSBox *makeView(const view::Separator *) {
    NSBox *line = [[NSBox alloc] initWithFrame:NSZeroRect];
    line.boxType = NSBoxSeparator;
    line.accessibilityElement = NO;
    return line;
}

NSView *makeView(const view::Spacer *) {
    return [[NSView alloc] initWithFrame:NSZeroRect];
}

void show(NSBox *, const view::Separator &) {}
void show(NSView *, const view::Spacer &) {}

template <class Kind> using ViewFor = decltype(makeView(static_cast<const Kind *>(nullptr)));

/// What is one AppKit view: made by makeView(), its values set by show().
template <class Kind> class Single final : public DrawnAs<Kind> {
public:
    explicit Single(const Acted &acted) : acted_(acted) {
        if constexpr (isPressed)
            connect(view_, target_);
    }
    NSView *view() const override { return view_; }
    bool fillsColumn() const override {
        return !std::is_same_v<ViewFor<Kind>, NSButton *> && !std::is_same_v<ViewFor<Kind>, NSImageView *>;
    }

protected:
    void apply(const Kind &node) override {
        show(view_, node);
        if constexpr (isPressed)
            target_->_action = both(node.action, acted_);
    }

private:
    static constexpr bool isPressed = requires(const Kind &kind) { kind.action; };

    const Acted acted_;
    TarnTarget *const target_ = isPressed ? [[TarnTarget alloc] init] : nil;
    const ViewFor<Kind> view_ = makeView(static_cast<const Kind *>(nullptr));
};

NSStackView *makeStack(NSUserInterfaceLayoutOrientation orientation, CGFloat spacing) {
    NSStackView *stack = [[TarnStack alloc] initWithFrame:NSZeroRect];
    stack.orientation = orientation;
    stack.distribution = NSStackViewDistributionFill;
    stack.alignment = orientation == NSUserInterfaceLayoutOrientationVertical ? NSLayoutAttributeLeading
                                                                              : NSLayoutAttributeCenterY;
    stack.spacing = spacing;
    stack.translatesAutoresizingMaskIntoConstraints = NO;
    [stack setHuggingPriority:textHugging forOrientation:NSLayoutConstraintOrientationHorizontal];
    return stack;
}

/// Adds a view that is as wide as the column.
void addFilling(NSStackView *column, NSView *view, NSInteger index) {
    [column insertArrangedSubview:view atIndex:index];
    const CGFloat margins = column.edgeInsets.left + column.edgeInsets.right;
    [view.widthAnchor constraintEqualToAnchor:column.widthAnchor constant:-margins].active = YES;
}

class DrawnProgress final : public DrawnAs<view::Progress> {
public:
    explicit DrawnProgress(const Acted &) {
        bar_.style = NSProgressIndicatorStyleBar;
        bar_.controlSize = NSControlSizeSmall;
        bar_.minValue = 0;
        bar_.maxValue = 1;
    }
    NSView *view() const override { return bar_; }

protected:
    void apply(const view::Progress &node) override {
        width_.active = NO;
        width_.constant = node.width.value_or(0);
        width_.active = node.width.has_value();
        bar_.indeterminate = !node.fraction;
        bar_.doubleValue = node.fraction.value_or(0);
        if (node.fraction)
            [bar_ stopAnimation:nil];
        else
            [bar_ startAnimation:nil];
        bar_.accessibilityLabel = labelText(node.label);
    }

private:
    NSProgressIndicator *const bar_ = [[NSProgressIndicator alloc] initWithFrame:NSZeroRect];
    NSLayoutConstraint *const width_ = [bar_.widthAnchor constraintEqualToConstant:0];
};

class DrawnToggle final : public DrawnAs<view::Toggle> {
public:
    explicit DrawnToggle(Acted acted) : acted_(std::move(acted)) {
        addFilling(texts_, title_, 0);
        [row_ addArrangedSubview:texts_];
        [row_ addArrangedSubview:switch_];
        connect(switch_, target_);
        keepSize(switch_);
    }
    NSView *view() const override { return row_; }

protected:
    void apply(const view::Toggle &node) override {
        show(title_, {node.title});
        show(detail_, {node.detail, view::Font::caption, view::Tone::secondary});
        if (node.detail.empty())
            [detail_ removeFromSuperview];
        else if (!detail_.superview)
            addFilling(texts_, detail_, 1);
        name(switch_, node.id, node.title, node.isEnabled);
        switch_.accessibilityHelp = labelText(node.detail);
        switch_.state = node.isOn ? NSControlStateValueOn : NSControlStateValueOff;
        NSSwitch *const control = switch_;
        target_->_action = [changed = node.changed, acted = acted_, control] {
            if (changed)
                changed(control.state == NSControlStateValueOn);
            acted();
        };
    }

private:
    const Acted acted_;
    TarnTarget *const target_ = [[TarnTarget alloc] init];
    NSStackView *const row_ = makeStack(NSUserInterfaceLayoutOrientationHorizontal, rowSpacing);
    NSStackView *const texts_ = makeStack(NSUserInterfaceLayoutOrientationVertical, groupSpacing);
    NSTextField *const title_ = makeLabel();
    NSTextField *const detail_ = makeLabel();
    NSSwitch *const switch_ = [[NSSwitch alloc] initWithFrame:NSZeroRect];
};

class DrawnPicker final : public DrawnAs<view::Picker> {
public:
    explicit DrawnPicker(Acted acted) : acted_(std::move(acted)) {
        [row_ addArrangedSubview:title_];
        [row_ addArrangedSubview:popUp_];
        connect(popUp_, target_);
        keepSize(popUp_);
    }
    NSView *view() const override { return row_; }

protected:
    void apply(const view::Picker &node) override {
        show(title_, {node.title});
        name(popUp_, node.id, node.title, node.isEnabled);
        if (choices_ != node.choices) {
            choices_ = node.choices;
            [popUp_ removeAllItems];
            for (const auto &[text, tag] : choices_) {
                // Not by its title: the pop-up button keeps only one item of each.
                NSMenuItem *item = [[NSMenuItem alloc] init];
                item.title = labelText(text);
                item.tag = static_cast<NSInteger>(tag);
                [popUp_.menu addItem:item];
            }
        }
        [popUp_ selectItemWithTag:static_cast<NSInteger>(node.selected)];
        NSPopUpButton *const control = popUp_;
        target_->_action = [changed = node.changed, acted = acted_, control] {
            NSMenuItem *item = control.selectedItem;
            if (changed && item)
                changed(item.tag);
            acted();
        };
    }

private:
    const Acted acted_;
    std::vector<std::pair<std::string, std::int64_t>> choices_;
    TarnTarget *const target_ = [[TarnTarget alloc] init];
    NSStackView *const row_ = makeStack(NSUserInterfaceLayoutOrientationHorizontal, rowSpacing);
    NSTextField *const title_ = makeLabel();
    NSPopUpButton *const popUp_ = [[NSPopUpButton alloc] initWithFrame:NSZeroRect pullsDown:NO];
};

/// What stands in a stack. Nodes are matched from both ends, so that one that comes or goes leaves the others
/// where they are.
class Children {
public:
    Children(NSStackView *stack, Acted acted) : stack_(stack), acted_(std::move(acted)) {}

    NSStackView *stack() const { return stack_; }
    const std::vector<std::unique_ptr<Drawn>> &drawn() const { return drawn_; }

    void update(const View *next, std::size_t count) {
        const std::size_t common = std::min(drawn_.size(), count);
        std::size_t first = 0;
        while (first < common && drawn_[first]->isShapeOf(next[first]))
            ++first;
        std::size_t last = 0;
        while (last < common - first && drawn_[drawn_.size() - 1 - last]->isShapeOf(next[count - 1 - last]))
            ++last;

        const auto begin = drawn_.begin() + static_cast<std::ptrdiff_t>(first);
        const auto end = drawn_.end() - static_cast<std::ptrdiff_t>(last);
        for (auto old = begin; old != end; ++old)
            [(*old)->view() removeFromSuperview];
        drawn_.erase(begin, end);
        for (std::size_t index = first; index < count - last; ++index)
            insert(draw(next[index], acted_), index);
        for (std::size_t index = 0; index < count; ++index)
            drawn_[index]->update(next[index]);
    }
    void update(const Views &next) { update(next.data(), next.size()); }

private:
    void insert(std::unique_ptr<Drawn> added, std::size_t index) {
        const auto position = static_cast<NSInteger>(index);
        if (stack_.orientation == NSUserInterfaceLayoutOrientationVertical && added->fillsColumn())
            addFilling(stack_, added->view(), position);
        else
            [stack_ insertArrangedSubview:added->view() atIndex:position];
        drawn_.insert(drawn_.begin() + position, std::move(added));
    }

    NSStackView *const stack_;
    const Acted acted_;
    std::vector<std::unique_ptr<Drawn>> drawn_;
};

class DrawnRow final : public DrawnAs<view::Row> {
public:
    explicit DrawnRow(const Acted &acted)
        : children_(makeStack(NSUserInterfaceLayoutOrientationHorizontal, rowSpacing), acted) {}
    NSView *view() const override { return children_.stack(); }

protected:
    void apply(const view::Row &node) override {
        children_.stack().alignment =
            node.alignsFirstLines ? NSLayoutAttributeFirstBaseline : NSLayoutAttributeCenterY;
        children_.update(node.children);
        bool isFilled = false;
        NSTextField *widest = nil;
        for (const auto &child : children_.drawn()) {
            isFilled = isFilled || child->fillsColumn();
            if (![child->view() isKindOfClass:[NSTextField class]])
                continue;
            NSTextField *label = static_cast<NSTextField *>(child->view());
            wrap(label, narrowText);
            if (!widest || naturalWidth(label) > naturalWidth(widest))
                widest = label;
        }
        wrap(widest, wideText);
        // Controls keep their sizes, whatever is left over.
        if (isFilled)
            [room_ removeFromSuperview];
        else if (!room_.superview)
            [children_.stack() addArrangedSubview:room_];
    }

private:
    static CGFloat naturalWidth(NSTextField *label) {
        constexpr CGFloat unlimited = 10'000;
        return [label.cell cellSizeForBounds:NSMakeRect(0, 0, unlimited, unlimited)].width;
    }
    static void wrap(NSTextField *label, NSLayoutPriority resistance) {
        [label setContentCompressionResistancePriority:resistance
                                        forOrientation:NSLayoutConstraintOrientationHorizontal];
        [label setContentHuggingPriority:resistance == wideText ? textHugging : resistance
                          forOrientation:NSLayoutConstraintOrientationHorizontal];
    }

    Children children_;
    NSView *const room_ = [[NSView alloc] initWithFrame:NSZeroRect];
};

class DrawnColumn final : public DrawnAs<view::Column> {
public:
    explicit DrawnColumn(const Acted &acted)
        : children_(makeStack(NSUserInterfaceLayoutOrientationVertical, columnSpacing), acted) {}
    NSView *view() const override { return children_.stack(); }

protected:
    void apply(const view::Column &node) override {
        children_.stack().spacing = node.isGroup ? groupSpacing : columnSpacing;
        children_.update(node.children);
    }

private:
    Children children_;
};

class DrawnScroll final : public DrawnAs<view::Scroll> {
public:
    explicit DrawnScroll(const Acted &acted)
        : children_(makeStack(NSUserInterfaceLayoutOrientationVertical, columnSpacing), acted) {
        NSStackView *document = children_.stack();
        scroll_.drawsBackground = NO;
        scroll_.hasVerticalScroller = YES;
        scroll_.autohidesScrollers = YES;
        scroll_.documentView = document;
        document.edgeInsets = NSEdgeInsetsMake(windowMargin, windowMargin, windowMargin, windowMargin);
        NSLayoutConstraint *wholeHeight =
            [scroll_.heightAnchor constraintEqualToAnchor:document.heightAnchor];
        wholeHeight.priority = scrollPriority;
        NSClipView *clip = scroll_.contentView;
        [NSLayoutConstraint activateConstraints:@[
            wholeHeight, [document.topAnchor constraintEqualToAnchor:clip.topAnchor],
            [document.leadingAnchor constraintEqualToAnchor:clip.leadingAnchor],
            [document.widthAnchor constraintEqualToAnchor:clip.widthAnchor]
        ]];
    }
    NSView *view() const override { return scroll_; }

protected:
    void apply(const view::Scroll &node) override { children_.update(node.children); }

private:
    NSScrollView *const scroll_ = [[NSScrollView alloc] initWithFrame:NSZeroRect];
    Children children_;
};

template <class Kind> struct DrawnKind {
    using Type = Single<Kind>;
};
template <> struct DrawnKind<view::Progress> {
    using Type = DrawnProgress;
};
template <> struct DrawnKind<view::Toggle> {
    using Type = DrawnToggle;
};
template <> struct DrawnKind<view::Picker> {
    using Type = DrawnPicker;
};
template <> struct DrawnKind<view::Row> {
    using Type = DrawnRow;
};
template <> struct DrawnKind<view::Column> {
    using Type = DrawnColumn;
};
template <> struct DrawnKind<view::Scroll> {
    using Type = DrawnScroll;
};

std::unique_ptr<Drawn> draw(const View &view, const Acted &acted) {
    return std::visit(
        [&]<class Kind>(const Kind &) -> std::unique_ptr<Drawn> {
            return std::make_unique<typename DrawnKind<Kind>::Type>(acted);
        },
        view.node);
}

} // namespace

struct AppKitView::State {
    NSView *const container = [[NSView alloc] initWithFrame:NSZeroRect];
    Children root;
};

AppKitView::AppKitView(const WindowContent &content, std::function<void()> acted)
    : state_(new State{
          .root = Children(makeStack(NSUserInterfaceLayoutOrientationVertical, 0), std::move(acted))}) {
    NSView *container = state_->container;
    NSStackView *stack = state_->root.stack();
    // The bar of what scrolls belongs at the edge.
    const bool isScrolled = std::holds_alternative<view::Scroll>(content.content.node);
    const CGFloat margin = isScrolled ? 0 : content.id == "menu" ? panelMargin : windowMargin;
    stack.edgeInsets = NSEdgeInsetsMake(margin, margin, margin, margin);
    [container addSubview:stack];
    NSLayoutConstraint *wholeHeight = [stack.bottomAnchor constraintEqualToAnchor:container.bottomAnchor];
    wholeHeight.priority = fillPriority;
    [NSLayoutConstraint activateConstraints:@[
        wholeHeight, [stack.bottomAnchor constraintLessThanOrEqualToAnchor:container.bottomAnchor],
        [stack.topAnchor constraintEqualToAnchor:container.topAnchor],
        [stack.leadingAnchor constraintEqualToAnchor:container.leadingAnchor],
        [stack.trailingAnchor constraintEqualToAnchor:container.trailingAnchor],
        [container.widthAnchor constraintEqualToConstant:content.width]
    ]];
    show(content);
}

AppKitView::~AppKitView() = default;

NSView *AppKitView::view() const {
    return state_->container;
}

void AppKitView::show(const WindowContent &content) {
    state_->root.update(&content.content, 1);
}

CGFloat AppKitView::height(const WindowContent &content) const {
    if (content.height)
        return *content.height;
    // Texts that wrap know how high they are once they have their width.
    [state_->container layoutSubtreeIfNeeded];
    return std::ceil(state_->container.fittingSize.height);
}

void fill(NSView *outer, NSView *inner) {
    inner.translatesAutoresizingMaskIntoConstraints = NO;
    [outer addSubview:inner];
    [NSLayoutConstraint activateConstraints:@[
        [inner.topAnchor constraintEqualToAnchor:outer.topAnchor],
        [inner.bottomAnchor constraintEqualToAnchor:outer.bottomAnchor],
        [inner.leadingAnchor constraintEqualToAnchor:outer.leadingAnchor],
        [inner.trailingAnchor constraintEqualToAnchor:outer.trailingAnchor]
    ]];
}

NSImage *symbolImage(const std::string &name) {
    return [NSImage imageWithSystemSymbolName:labelText(name) accessibilityDescription:nil];
}

NSString *labelText(const std::string &text) {
    NSString *string = makeNSString(text);
    return string ? string : @"";
}

} // namespace tarn
