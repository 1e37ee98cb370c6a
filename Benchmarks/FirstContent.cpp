// To be preloaded into Qt programs. Where FIRST_CONTENT has a text, the program is started once a label with
// it has been painted, else with its first window. Then FIRST_CONTENT_FD, where it is set, is told and the
// windows are closed; otherwise the standard output is told, and the program ends.

#include <QAbstractEventDispatcher>
#include <QApplication>
#include <QLabel>
#include <cstdlib>
#include <unistd.h>

namespace {

class Start final : public QObject {
public:
    Start() {
        QCoreApplication::instance()->installEventFilter(this);
        connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock, this,
                [this] { waits(); });
    }
    bool eventFilter(QObject *watched, QEvent *event) override {
        if (!isPainted_ && event->type() == QEvent::Paint) {
            const auto *label = qobject_cast<QLabel *>(watched);
            isPainted_ =
                label ? label->text().contains(content_) : content_.isEmpty() && watched->isWidgetType();
        }
        return false;
    }

private:
    void waits() {
        if (!isPainted_)
            return;
        const auto told = qgetenv("FIRST_CONTENT_FD");
        if (told.isEmpty())
            _exit(write(STDOUT_FILENO, "\n", 1) == 1 ? 0 : 1);
        QCoreApplication::instance()->removeEventFilter(this);
        deleteLater();
        disconnect(QAbstractEventDispatcher::instance(), nullptr, this, nullptr);
        QApplication::closeAllWindows();
        if (write(told.toInt(), "\n", 1) != 1)
            _exit(1);
    }

    const QString content_ = qEnvironmentVariable("FIRST_CONTENT");
    bool isPainted_ = false;
};

void begin() {
    new Start;
}

} // namespace

Q_COREAPP_STARTUP_FUNCTION(begin)
