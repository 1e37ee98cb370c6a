#include "Platform/Qt/Symbols.h"

#include <QFile>
#include <QPainter>
#include <QPixmapCache>
#include <QSvgRenderer>
#include <cmath>

// In a static library nothing else pulls the drawings in; it has to stand outside of namespaces.
static void load() {
    Q_INIT_RESOURCE(symbols);
}

namespace tarn::symbols {

QPixmap pixmap(const std::string &name, const QColor &color, int size, double pixelRatio) {
    static const bool isLoaded = (load(), true);
    static_cast<void>(isLoaded);
    const auto file = QString::fromStdString(":/symbols/" + name + ".svg");
    const auto key = QStringLiteral("%1 %2 %3 %4").arg(file, color.name()).arg(size).arg(pixelRatio);
    QPixmap drawn;
    if (QPixmapCache::find(key, &drawn))
        return drawn;
    QFile source(file);
    if (!source.open(QIODevice::ReadOnly))
        return {};
    QSvgRenderer renderer(source.readAll().replace("currentColor", color.name().toLatin1()));
    const int pixels = static_cast<int>(std::lround(size * pixelRatio));
    drawn = QPixmap(pixels, pixels);
    drawn.fill(Qt::transparent);
    QPainter painter(&drawn);
    renderer.render(&painter);
    painter.end();
    drawn.setDevicePixelRatio(pixelRatio);
    QPixmapCache::insert(key, drawn);
    return drawn;
}

QIcon icon(const std::string &name, const QColor &color, const QColor &disabled,
           std::initializer_list<double> pixelRatios) {
    QIcon made;
    for (const double ratio : pixelRatios) {
        made.addPixmap(pixmap(name, color, 16, ratio), QIcon::Normal);
        made.addPixmap(pixmap(name, disabled, 16, ratio), QIcon::Disabled);
    }
    return made;
}

} // namespace tarn::symbols
