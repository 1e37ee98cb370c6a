#include "Platform/Qt/QtLoop.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>

namespace tarn {

QtLoop::QtLoop(EventLoop &loop)
    : loop_(loop), notifier_(sd_event_get_fd(loop.event()), QSocketNotifier::Read) {
    connect(&notifier_, &QSocketNotifier::activated, this, [this] { serve(); });
    // A timer or a descriptor added meanwhile is not in the kernel's hands yet.
    connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock, this,
            [this] { beforeBlocking(); });
}

void QtLoop::beforeBlocking() {
    if (!loop_.prepare())
        return;
    if (isQueued_) {
        // A loop inside another does not look by itself for what was posted before it.
        QAbstractEventDispatcher::instance()->wakeUp();
        return;
    }
    // Not here, where whatever a job does to Qt would come too late for the wait that begins.
    isQueued_ = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            isQueued_ = false;
            serve();
        },
        Qt::QueuedConnection);
}

void QtLoop::serve() {
    if (!loop_.dispatch())
        QCoreApplication::quit();
}

} // namespace tarn
