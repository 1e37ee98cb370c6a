#pragma once

#include "Platform/Linux/EventLoop.h"

#include <QObject>
#include <QSocketNotifier>

namespace tarn {

/// Serves our event loop from Qt's: Qt waits for its one descriptor, and what is due runs between Qt's own
/// events. Jobs must not run a loop of Qt's inside themselves.
///
/// Thread: the main thread, after QCoreApplication was made. Ownership: the loop must outlive this.
/// When the loop is told to stop, the Qt application quits.
class QtLoop final : public QObject {
public:
    explicit QtLoop(EventLoop &loop);

private:
    void beforeBlocking();
    void serve();

    EventLoop &loop_;
    QSocketNotifier notifier_;
    bool isQueued_ = false;
};

} // namespace tarn
