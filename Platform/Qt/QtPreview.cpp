#include "Platform/Qt/ViewWindow.h"
#include "TarnlinkMenu/MenuApp/PreviewCommand.h"

#include <QApplication>
#include <QBuffer>
#include <QLoggingCategory>
#include <QPixmap>
#include <QStyle>
#include <QStyleFactory>
#include <array>
#include <stdexcept>

namespace tarn {
namespace {

QPalette palette(bool isDark) {
    using Roles = std::initializer_list<std::pair<QPalette::ColorRole, const char *>>;
    const Roles light = {{QPalette::Window, "#f6f6f7"},
                         {QPalette::WindowText, "#1d1d1f"},
                         {QPalette::Base, "#ffffff"},
                         {QPalette::AlternateBase, "#efeff1"},
                         {QPalette::Text, "#1d1d1f"},
                         {QPalette::Button, "#ffffff"},
                         {QPalette::ButtonText, "#1d1d1f"},
                         {QPalette::Highlight, "#1a6fd4"},
                         {QPalette::HighlightedText, "#ffffff"},
                         {QPalette::Link, "#0a5cc2"},
                         {QPalette::PlaceholderText, "#6e6e73"}};
    const Roles dark = {{QPalette::Window, "#26272a"},
                        {QPalette::WindowText, "#f2f2f3"},
                        {QPalette::Base, "#1c1d1f"},
                        {QPalette::AlternateBase, "#2c2d30"},
                        {QPalette::Text, "#f2f2f3"},
                        {QPalette::Button, "#3a3b3f"},
                        {QPalette::ButtonText, "#f2f2f3"},
                        {QPalette::Highlight, "#3d8bfd"},
                        {QPalette::HighlightedText, "#ffffff"},
                        {QPalette::Link, "#6cb0ff"},
                        {QPalette::PlaceholderText, "#9c9ca1"}};
    QPalette made(QColor(isDark ? "#3a3b3f" : "#ffffff"), QColor(isDark ? "#26272a" : "#f6f6f7"));
    for (const auto &[role, color] : isDark ? dark : light)
        made.setColor(role, QColor(color));
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        made.setColor(QPalette::Disabled, role, QColor(isDark ? "#7d7d82" : "#98989d"));
    return made;
}

class QtPreview final : public PreviewRenderer {
public:
    QtPreview(bool isDark, int scale) : application_((prepare(scale), count_), values_.data()) {
        QApplication::setStyle(QStyleFactory::create("Fusion"));
        QApplication::setPalette(palette(isDark));
    }
    std::string png(const WindowContent &content) override {
        ViewWindow window([&content] { return content; });
        window.setAttribute(Qt::WA_DontShowOnScreen);
        window.show();
        // Sizes settle when what the layouts have posted is done.
        QApplication::processEvents();
        QByteArray bytes;
        QBuffer buffer(&bytes);
        if (!buffer.open(QIODevice::WriteOnly) || !window.grab().save(&buffer, "PNG"))
            throw std::runtime_error("the picture could not be made");
        return bytes.toStdString();
    }

private:
    /// Qt reads these when its application is made.
    static void prepare(int scale) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        qputenv("QT_SCALE_FACTOR", QByteArray::number(scale));
        qputenv("QT_QPA_PLATFORMTHEME", "");
        // That platform complains of every window, for which it lacks what a screen has.
        QLoggingCategory::setFilterRules("default.warning=false");
    }

    int count_ = 1;
    std::string name_ = "TarnlinkMenu";
    std::array<char *, 2> values_{name_.data(), nullptr};
    QApplication application_;
};

} // namespace

std::unique_ptr<PreviewRenderer> makePreviewRenderer(bool isDark, int scale) {
    return std::make_unique<QtPreview>(isDark, scale);
}

} // namespace tarn
