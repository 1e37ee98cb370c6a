#pragma once

#include <QColor>
#include <QIcon>
#include <QPixmap>
#include <initializer_list>
#include <string>

namespace tarn::symbols {

/// The drawing of that name in one colour, `size` points wide and high; empty when there is none.
QPixmap pixmap(const std::string &name, const QColor &color, int size, double pixelRatio);
/// The same for controls, which draw it for their own state, and for screens with so many pixels to a point.
QIcon icon(const std::string &name, const QColor &color, const QColor &disabled,
           std::initializer_list<double> pixelRatios);

} // namespace tarn::symbols
