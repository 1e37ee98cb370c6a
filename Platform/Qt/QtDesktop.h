#pragma once

#include "TarnlinkMenu/Desktop.h"

#include <QObject>
#include <memory>
#include <vector>

namespace tarn {

/// The desktop through Qt. Nothing asks for a location here, so it counts as given; the Option key is Alt.
///
/// Thread: main thread, after QApplication was made.
class QtDesktop final : public QObject, public Desktop, private LocationManager, private ModifierEvents {
public:
    QtDesktop();

    LocationManager &location() override { return *this; }
    ModifierEvents &modifiers() override { return *this; }
    void activate() override;
    void copy(const std::string &text) override;
    void open(const std::string &url) override;
    void quit() override;

    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    /// Called with whether Alt is held.
    using Monitor = std::function<void(bool)>;
    using Monitors = std::vector<std::weak_ptr<Monitor>>;

    LocationStatus authorizationStatus() override { return LocationStatus::authorized; }
    void setHandler(std::function<void()>) override {}
    void requestWhenInUseAuthorization() override {}

    Token monitorFlags(std::function<void(bool optionHeld)> changed) override;
    Token observeWindowBecameKey(std::function<void()> became) override;
    Token observeWindowResignedKey(std::function<void()> resigned) override;
    bool isOptionHeld() override;

    static Token add(Monitors &monitors, Monitor monitor);
    static void tell(const Monitors &monitors, bool optionHeld);

    Monitors flags_, became_, resigned_;
};

} // namespace tarn
